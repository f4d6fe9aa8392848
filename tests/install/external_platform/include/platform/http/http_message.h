#pragma once

#include <map>
#include <string>

enum { HTTP_METHOD_DELETE = 2, HTTP_METHOD_GET = 3, HTTP_METHOD_POST = 8, HTTP_METHOD_PUT = 9 };
enum { HTTP_HEAD_X_ACCESS_KEY = 48 };

struct HTTP_Headers {
  void put(int head, const char* value, bool overwrite) {
    if (overwrite || all.count(head) == 0) all[head] = value;
  }
  std::map<int, std::string> all;
};

class HTTP_Request {
 public:
  HTTP_Request(int verb, const char* where, bool /*stay_connected*/) : verb_(verb), path_(where) {}
  void query_string(const char* all) { query_ = all; }
  HTTP_Headers& headers() { return headers_; }

  int verb() const { return verb_; }
  /// Path and query, as they are sent.
  std::string target() const { return query_.empty() ? path_ : path_ + '?' + query_; }

 private:
  int verb_;
  std::string path_, query_;
  HTTP_Headers headers_;
};

class HTTP_Response {
 public:
  unsigned status() const { return status_; }
  void came(unsigned with) { status_ = with; }

 private:
  unsigned status_ = 0;
};
