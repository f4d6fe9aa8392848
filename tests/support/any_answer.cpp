#include "tests/support/any_answer.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/json/json_dump.h"
#include "tests/support/guards.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using Made = std::function<void(const std::string&)>;

const std::vector<Value>& one_of_each_type() {
  static const std::vector<Value> values = {
      Value(), Value(true), Value(7), Value(1.5), Value("text"), Value(Array{}), Value(Object{})};
  return values;
}

// Puts every other value in the place of `value`, which is a part of a whole, and each time tells
// `made` what was done; afterwards `value` is as it was.
void vary(Value& value, const std::string& where, int levels, const Made& made) {
  const Value kept = value;
  for (const Value& other : one_of_each_type()) {
    if (other.type() == kept.type()) continue;
    value = other;
    made(where + " is " + JSON_Dump(other, false).str());
  }
  value = kept;
  if (levels == 0) return;
  if (value.type() == json_spirit::obj_type) {
    for (const auto& [key, ignored] : kept.get_obj()) {
      const std::string member = where + '.' + key;
      value.get_obj().erase(key);
      made(member + " left out");
      value = kept;
      vary(value.get_obj()[key], member, levels - 1, made);
    }
  } else if (value.type() == json_spirit::array_type) {
    for (std::size_t i = 0; i < kept.get_array().size(); ++i) {
      const std::string element = where + '[' + std::to_string(i) + ']';
      value.get_array().erase(value.get_array().begin() + static_cast<std::ptrdiff_t>(i));
      made(element + " left out");
      value = kept;
      value.get_array().push_back(kept.get_array()[i]);
      made(element + " doubled");
      value = kept;
      vary(value.get_array()[i], element, levels - 1, made);
    }
  }
}

Any_Answer make(std::string name, Any_Answer::Kind kind, Answer answer) {
  Any_Answer made;
  made.name = std::move(name);
  made.kind = kind;
  made.answer = std::move(answer);
  return made;
}

Any_Answer make_json(std::string name, Any_Answer::Kind kind, const Value& value) {
  Any_Answer made = make(std::move(name), kind, json_answer(200, json_spirit::write(value)));
  made.value = value;
  return made;
}

}  // namespace

std::vector<Any_Answer> any_answers(const std::string& good_answer, int levels) {
  using Kind = Any_Answer::Kind;
  Value good;
  if (!json_spirit::read(good_answer, good)) throw std::invalid_argument("good answer: no JSON");
  const std::string text = json_spirit::write(good);

  std::vector<Any_Answer> all;
  all.push_back(make_json("good", Kind::good, good));
  all.push_back(make("closed at once", Kind::none, close_at_once()));
  all.push_back(make("closed after the request", Kind::none, close_after_request()));
  all.push_back(make("reset", Kind::none, reset_after_request()));
  Any_Answer refused = make("refused", Kind::none, close_at_once());
  refused.refused = true;
  all.push_back(refused);
  all.push_back(
      make("cut off within the body", Kind::none,
           json_answer(200, text).cut_after(json_answer(200, text).bytes(false).size() - 1)));
  all.push_back(
      make("500 with HTML", Kind::failure,
           http_answer(500, "<html><body>Oops</body></html>", {{"Content-Type", "text/html"}})));
  all.push_back(make("404 with an error object", Kind::failure,
                     json_answer(404, R"({"error":{"code":-1,"message":"not here"}})")));
  all.push_back(make("403 with the good answer", Kind::failure, json_answer(403, text)));
  all.push_back(make("204", Kind::empty, http_answer(204, "")));
  all.push_back(make("200 with HTML", Kind::no_json, http_answer(200, "<html></html>")));
  all.push_back(make("200 with cut-off JSON", Kind::no_json,
                     json_answer(200, text.substr(0, text.size() - 1))));
  vary(good, "answer", levels, [&all, &good](const std::string& what) {
    all.push_back(make_json(what, Kind::json, good));
  });
  return all;
}

void for_any_answer(const std::string& good_answer,
                    const std::function<void(const Endpoint&, const Any_Answer&)>& call) {
  const Sleep_Recorder nothing_sleeps;
  for (const Any_Answer& answer : any_answers(good_answer)) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, answer.name);
    const Log_Capture log;
    Scripted_Server server;
    server.otherwise(answer.answer);
    const Refused_Port nobody;
    Endpoint endpoint = server.endpoint();
    if (answer.refused) endpoint.port = nobody.port();
    try {
      call(endpoint, answer);
    } catch (const std::exception& e) {
      ADD_FAILURE() << "an exception left the call: " << e.what();
    }
  }
}

}  // namespace zqpool::test
