#include "tests/platform/http/http_test.h"

#include "platform/json/json_dump.h"

void json_spirit::PrintTo(const Value& value, std::ostream* out) {
  *out << JSON_Dump(value, false).str();
}

namespace zqpool::test {

Called call(JSON_RESTful_Client& client, const Call_Options& options) {
  HTTP_Request request(options.method, options.path.c_str(), false);
  if (!options.query.empty()) request.query_string(options.query.c_str());
  request.headers().put(HTTP_HEAD_X_ACCESS_KEY, options.access_key.c_str(), true);
  options.tune_request(request);
  options.tune(client);

  Called called;
  called.answer = options.before;
  json_spirit::Value* const answer = options.want_answer ? &called.answer : nullptr;
  HTTP_Response response;
  response.status(999);
  const auto start = std::chrono::steady_clock::now();
  switch (options.method) {
    case HTTP_METHOD_GET:
      called.ok = client.get(request, response, answer);
      break;
    case HTTP_METHOD_POST:
      called.ok = client.post(request, options.body, answer);
      break;
    case HTTP_METHOD_PUT:
      called.ok = client.put(request, options.body, answer);
      break;
    case HTTP_METHOD_DELETE:
      called.ok = client.del(request, response);
      break;
    default:
      ADD_FAILURE() << "no call for method " << options.method;
  }
  called.took = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - start);
  called.report = last_http_exchange();
  const bool has_response =
      options.method == HTTP_METHOD_GET || options.method == HTTP_METHOD_DELETE;
  called.status = has_response ? response.status() : called.report.status;
  EXPECT_EQ(called.status, called.report.status);
  EXPECT_EQ(called.ok, called.report.ok());
  EXPECT_EQ(called.ok, called.report.text.empty()) << called.report.text;
  return called;
}

Called call(const Endpoint& to, const Call_Options& options) {
  JSON_RESTful_Client client(to.host.c_str(), to.port, to.ssl, options.keep_error_body);
  return call(client, options);
}

json_spirit::Value json(const std::string& text) {
  json_spirit::Value value;
  EXPECT_TRUE(json_spirit::read(text, value)) << text;
  return value;
}

HTTP_Options test_options() {
  HTTP_Options options = options_with_test_ca();
  options.exchange_timeout = 20s;
  return options;
}

void HTTP_Test::set_options(const std::function<void(HTTP_Options&)>& change) {
  HTTP_Options options = HTTP_Options::get();
  change(options);
  HTTP_Options::set(options);
}

Server_Options HTTP_Test::tls(const Identity& identity) {
  Server_Options options;
  options.identity = &identity;
  return options;
}

}  // namespace zqpool::test
