#include "service/api/message.h"

#include <array>

#include "service/api/text.h"

namespace zqpool::service {

namespace {

constexpr std::array<std::pair<Method, const char*>, 6> method_names{
    {{Method::get, "GET"},
     {Method::head, "HEAD"},
     {Method::post, "POST"},
     {Method::put, "PUT"},
     {Method::del, "DELETE"},
     {Method::options, "OPTIONS"}}};

bool may_pass_later(unsigned status) {
  return status == 408 || status == 429 || status == 503 || status == 507;
}

}  // namespace

const char* method_name(Method method) {
  for (const auto& [value, name] : method_names) {
    if (value == method) return name;
  }
  return "";
}

Method method_from(std::string_view name) {
  for (const auto& [value, known] : method_names) {
    if (name == known) return value;
  }
  return Method::other;
}

Response json_response(const json_spirit::Value& value, unsigned status) {
  return {status, json_spirit::write(value), {}};
}

Response error_response(unsigned status, std::string_view message) {
  const int code = static_cast<int>(status);
  return json_response(Object{{"error", Object{{"code", may_pass_later(status) ? code : -code},
                                               {"message", printable(message)}}}},
                       status);
}

}  // namespace zqpool::service
