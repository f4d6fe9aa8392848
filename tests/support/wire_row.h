#pragma once

#include <string>
#include <utility>

#include "tests/support/wire_table.h"

namespace zqpool::test {

inline Expected_Line error(const std::string& text) {
  return {"LM_ERROR", text};
}
inline Expected_Line retry_notice(int number, const std::string& file) {
  return {"LM_INFO", "Retry(" + std::to_string(number) + ") " + file +
                         ":{number} at {number} second(s) later.\n"};
}
inline Answer ok(const std::string& body) {
  return json_answer(200, body);
}
inline Answer refusal() {
  return json_answer(404, R"({"error":{"code":-1,"message":"no such thing"}})");
}

/// Builds a Wire_Row in one expression.
class Row {
 public:
  Row(const std::string& name, std::function<Outcome(const Endpoint&)> call) {
    row_.name = name;
    row_.call = std::move(call);
  }
  Row& sends(const std::string& method, const std::string& target, const std::string& body = "",
             const std::string& access_key = "key") {
    row_.requests.push_back({method, target, body, access_key, {}});
    return *this;
  }
  /// Repeats the previous request so many times more.
  Row& again(std::size_t times) {
    row_.requests.insert(row_.requests.end(), times, Expected_Request(row_.requests.back()));
    return *this;
  }
  Row& gets(Answer answer) {
    row_.answers.push_back(std::move(answer));
    return *this;
  }
  Row& logs(Expected_Line line) {
    row_.lines.push_back(std::move(line));
    return *this;
  }
  Row& pauses(std::size_t count) {
    row_.pauses.emplace(count);
    row_.pauses_vary = true;
    return *this;
  }
  Row& keeps_connection() {
    row_.keeps_connection = true;
    return *this;
  }
  Wire_Row gives(bool result, const std::string& outputs) {
    row_.result = result;
    row_.outputs = outputs;
    return row_;
  }

 private:
  Wire_Row row_;
};

}  // namespace zqpool::test
