#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/http/http_exchange_report.h"
#include "platform/http/http_options.h"
#include "platform/http/rest_client.h"
#include "tests/support/guards.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_server.h"
#include "tests/support/sockets.h"
#include "tests/support/test_certificates.h"

namespace json_spirit {
/// Prints a value when a comparison fails.
void PrintTo(const Value& value, std::ostream* out);
}  // namespace json_spirit

namespace zqpool::test {

using namespace std::chrono_literals;

/// The outcome of a client call.
struct Called {
  bool ok = false;
  unsigned status = 0;  ///< of the response, where the method has one; else of the report
  json_spirit::Value answer;
  HTTP_Exchange_Report report;
  std::chrono::milliseconds took{0};
};

/// The parameters of a client call.
struct Call_Options {
  int method = HTTP_METHOD_GET;
  std::string path = "/zq/x";
  std::string query;
  std::string access_key;
  const json_spirit::Value* body = nullptr;
  json_spirit::Value before = "untouched";  ///< the answer value before the call
  bool want_answer = true;
  bool keep_error_body = true;
  std::function<void(JSON_RESTful_Client&)> tune = [](JSON_RESTful_Client&) {};
  std::function<void(HTTP_Request&)> tune_request = [](HTTP_Request&) {};
};

/// Makes a call with a new client, or with `client`.
Called call(const Endpoint& to, const Call_Options& options = {});
Called call(JSON_RESTful_Client& client, const Call_Options& options = {});

/// A call that does not wait for a limit of test_options() ends before this, on any machine.
constexpr auto soon = 15s;

/// Parses a JSON text; a bad one fails the test.
json_spirit::Value json(const std::string& text);

/// Options that trust the test CA and end every call after 20 seconds.
HTTP_Options test_options();

/// Captures the log, replaces sleeping, and sets test_options() for the length of a test.
class HTTP_Test : public testing::Test {
 protected:
  /// Changes the current options.
  static void set_options(const std::function<void(HTTP_Options&)>& change);
  /// Options for a server with this certificate.
  static Server_Options tls(const Identity& identity = Test_Certificates::instance().server);

  const Options_Guard guard_{test_options()};
  const Sleep_Recorder sleeps_;
  Log_Capture log_;
};

}  // namespace zqpool::test
