#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_server.h"

namespace zqpool::test {

/// One of the many ways in which a service can answer.
struct Any_Answer {
  enum class Kind {
    good,     ///< the operation's own good answer
    none,     ///< no HTTP answer: refused, closed, reset, cut off
    failure,  ///< an HTTP status other than 2xx
    no_json,  ///< 200 with a body that is not JSON
    empty,    ///< 204
    json,     ///< 200 with `value`, which is not the good answer
  };
  std::string name;
  Kind kind = Kind::good;
  Answer answer;             ///< given to every request
  bool refused = false;      ///< nobody listens on the port
  json_spirit::Value value;  ///< the body, where it is JSON

  /// Whether the client's own call succeeds.
  bool exchange_succeeds() const {
    return kind == Kind::good || kind == Kind::empty || kind == Kind::json;
  }
};

/// No answer, refused, reset, 500 with HTML, 204, null, [], {}, a string, cut-off JSON, and the
/// good answer with each member and element, down to `levels` deep, left out or replaced by a value
/// of each other JSON type. The first one is the good answer itself.
std::vector<Any_Answer> any_answers(const std::string& good_answer, int levels = 4);

/// Calls an operation for each of any_answers(). `call` makes one call to the endpoint and checks
/// what it promises; an exception that leaves it is a test failure. Nothing sleeps meanwhile.
void for_any_answer(const std::string& good_answer,
                    const std::function<void(const Endpoint&, const Any_Answer&)>& call);

}  // namespace zqpool::test
