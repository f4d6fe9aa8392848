#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "service/api/message.h"
#include "service/api/request_fields.h"
#include "service/store/database.h"

namespace zqpool::service {

struct Deferred;

/// A handler's result: the response, or work that gives it later.
using Outcome = std::variant<Response, Deferred>;

/// Carries out one request inside a transaction. It is rolled back when the response's status is
/// 400 or more, when anything is thrown, or when the handler left a part of the request unread;
/// otherwise it is committed.
using Handler = std::function<Outcome(Connection&, Parsed_Request&)>;

/// Work to run after a delay, in a transaction of its own.
struct Deferred {
  std::chrono::milliseconds after{0};
  Access access = Access::read;
  std::function<Outcome(Connection&)> handler;
};

/// Which handler answers which method and path. Filled at start, read-only afterwards.
class Router {
 public:
  struct Route {
    Access access;
    Handler handler;
  };

  /// A path is matched as a whole, as it was sent. A GET route answers HEAD too.
  void add(Method method, const std::string& path, Access access, Handler handler);

  /// Null when the path has no such method, or there is no such path.
  const Route* find(Method method, const std::string& path) const;
  /// The methods of a path for an Allow header; "" for an unknown path.
  std::string allowed(const std::string& path) const;
  /// Names of the methods of each path.
  std::map<std::string, std::vector<std::string>> methods() const;

 private:
  std::map<std::string, std::map<Method, Route>> paths_;
};

}  // namespace zqpool::service
