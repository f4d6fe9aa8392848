#pragma once

#include <memory>

#include "platform/http/rest_client.h"

/// A connection is the root of its service.
typedef std::shared_ptr<const std::string> HTTP_Session_Ptr;

struct HTTP_Session_Factory {
  HTTP_Session_Ptr create(const char* host, unsigned port, bool tls, const char* /*from*/,
                          int /*attempts*/, void* /*trust*/, bool /*stay*/, int /*connecting*/,
                          int /*exchanging*/, int /*buffer*/, unsigned /*flags*/) {
    return std::make_shared<std::string>(product::root_of(host, port, tls));
  }
};

class JSON_HTTP_Session {
 public:
  JSON_HTTP_Session(const HTTP_Session_Ptr& to, int /*idle*/, int /*exchange*/) : to_(to) {}
  void reset(const HTTP_Session_Ptr& to) { to_ = to; }
  explicit operator bool() const { return to_ != nullptr; }
  /// True for every answer, of whatever status.
  bool get(HTTP_Request& request, HTTP_Response& response, json_spirit::Value& to) {
    product::exchange(*to_, "", request, nullptr, response, &to);
    return response.status() != 0;
  }

 private:
  HTTP_Session_Ptr to_;
};
