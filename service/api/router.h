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

/// A handler's result: the response, or deferred work that produces it.
using Outcome = std::variant<Response, Deferred>;

/// Handles one request in a transaction. It is rolled back when the response's status is 400 or
/// more, the handler throws, or it left a part of the request unread; otherwise it is committed.
using Handler = std::function<Outcome(Connection&, Parsed_Request&)>;

/// Work to run after a delay, in its own transaction.
struct Deferred {
  std::chrono::milliseconds after{0};
  Access access = Access::read;
  std::function<Outcome(Connection&)> handler;
};

/// Maps methods and paths to handlers. Filled at start, read-only afterwards.
class Router {
 public:
  struct Route {
    Access access;
    Handler handler;
  };

  /// A path is matched as a whole, as it was sent. A GET route answers HEAD too.
  void add(Method method, const std::string& path, Access access, Handler handler);

  /// Null for an unknown path or method.
  const Route* find(Method method, const std::string& path) const;
  /// The methods of a path for an Allow header; "" for an unknown path.
  std::string allowed(const std::string& path) const;
  /// The methods of each path.
  std::map<std::string, std::vector<std::string>> methods() const;

 private:
  std::map<std::string, std::map<Method, Route>> paths_;
};

}  // namespace zqpool::service
