#include "cli/command/raw_request.h"

#include <iterator>

#include "platform/http/rest_client.h"
#include "utils/support/http_query_string.h"

namespace zqpool::cli {

Outcome exchange(Command_Context& context, Effect effect, HTTP_Method method, const char* path,
                 const Query& query, const json_spirit::Value* body, json_spirit::Value& answer) {
  const Target& target = context.target();
  std::string text;
  HTTP_Query_String_Builder build_query{std::back_inserter(text)};
  for (const auto& [name, value] : query)
    build_query(name, value.c_str());
  return context.call({effect}, [&] {
    HTTP_Request request(method, path, false);
    request.query_string(text.c_str());
    request.headers().put(HTTP_HEAD_X_ACCESS_KEY, target.access_key.c_str(), true);
    JSON_RESTful_Client client(target.host.c_str(), target.port, target.ssl, true);
    switch (method) {
      case HTTP_METHOD_GET:
        return client.get(request, &answer);
      case HTTP_METHOD_DELETE:
        return client.del(request);
      default:
        return client.post(request, body, &answer);
    }
  });
}

Outcome list_objects(Command_Context& context, const char* path, const Query& query, Array& list) {
  json_spirit::Value answer;
  Outcome outcome = exchange(context, Effect::reads, HTTP_METHOD_GET, path, query, nullptr, answer);
  if (!outcome.done()) return outcome;
  if (answer.type() != json_spirit::array_type) {
    outcome.code = Exit_Code::failed;
    outcome.cause = "the answer is unusable";
    return outcome;
  }
  list = std::move(answer.get_array());
  return outcome;
}

}  // namespace zqpool::cli
