#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "service/api/message.h"
#include "service/store/database.h"

namespace zqpool::service {

struct Deferred;

/// What a request leads to: the answer, or work that gives it later.
using Outcome = std::variant<Response, Deferred>;

/// Carries out one request on the state, inside a transaction. It is rolled back when the answer's
/// status is 400 or more, or when a Request_Error or anything else is thrown; otherwise it is
/// committed.
using Handler = std::function<Outcome(Connection&, const Request&)>;

/// A handler to run after a time, in a transaction of its own.
struct Deferred {
  std::chrono::milliseconds after{0};
  Access access = Access::read;
  Handler handler;
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
