#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "service/app/dispatcher.h"
#include "tests/service/protocol_document.h"
#include "tests/support/temp_directory.h"

namespace zqpool::test {

/// The JSON text as a value; a test failure when it is none.
inline json_spirit::Value json(const std::string& text) {
  json_spirit::Value value;
  std::string why;
  EXPECT_TRUE(json_spirit::read(text, value, why)) << why << ": " << text;
  return value;
}

/// A service without sockets, on a state of its own. Every exchange is held against the protocol
/// document.
class Lab_Service {
 public:
  /// `file`: where the state is, "" for a directory that goes away with this object.
  explicit Lab_Service(const std::string& scenario = "{}", const std::string& file = "",
                       std::chrono::milliseconds nfs_delay = {})
      : state_(file.empty() ? directory_.path("state") : file),
        service_(state_, service::Families(nfs_delay), std::nullopt, true) {
    load(scenario, true);
  }

  /// Throws service::Refusal; nothing is kept then.
  void load(const Object& scenario, bool replace) {
    service::Transaction transaction = state_.begin(service::Access::change);
    service_.scenario().load(transaction.store(), scenario, replace);
    transaction.commit();
  }
  void load(const std::string& scenario, bool replace) { load(json(scenario).get_obj(), replace); }
  /// Status and text with which the scenario is refused when it is merged; nothing of it is kept.
  std::string scenario_refusal(const std::string& scenario) {
    const json_spirit::Value before = dump();
    std::string message = "it was loaded";
    try {
      load(scenario, false);
    } catch (const service::Refusal& refusal) {
      message = std::to_string(refusal.status()) + ' ' + refusal.what();
    }
    EXPECT_EQ(json_spirit::Value(dump()), before);
    return message;
  }
  Object dump() {
    service::Transaction transaction = state_.begin(service::Access::read);
    return service_.scenario().dump(transaction.store());
  }

  service::Answer ask(const std::string& method, const std::string& target,
                      const std::string& body = "") {
    service::Request request;
    request.method = service::method_from(method);
    const std::size_t question = target.find('?');
    request.path = target.substr(0, question);
    if (question != std::string::npos) request.query = target.substr(question + 1);
    request.body = body;
    service::Answer answer = service_.run(service_.plan(request), request);
    waited_ = {};
    while (const auto later = answer.later) {
      waited_ += later->after;
      answer = service_.follow_up(*later, request);
    }
    EXPECT_EQ(Protocol_Document::instance().contradiction(
                  {method, target, body, answer.status, answer.body}),
              "");
    return answer;
  }
  /// The answer to what must be answered well.
  json_spirit::Value good(const std::string& method, const std::string& target,
                          const std::string& body = "") {
    const service::Answer answer = ask(method, target, body);
    EXPECT_EQ(answer.status, 200U) << method << ' ' << target << ' ' << body << ": " << answer.body;
    return json(answer.body);
  }
  /// Status and message of a refusal: "404 there is no pool 'x'".
  std::string refusal(const std::string& method, const std::string& target,
                      const std::string& body = "") {
    const service::Answer answer = ask(method, target, body);
    if (answer.status < 400) return std::to_string(answer.status) + " is no refusal";
    return std::to_string(answer.status) + ' ' +
           json(answer.body).get_obj().at("error").get_obj().at("message").get_str();
  }

  /// For how long the service put off its last answer. Nobody waits for that here.
  std::chrono::milliseconds waited() const { return waited_; }

  service::State& state() { return state_; }
  service::Service& service() { return service_; }

 private:
  Temp_Directory directory_;
  service::State state_;
  service::Service service_;
  std::chrono::milliseconds waited_{0};
};

}  // namespace zqpool::test
