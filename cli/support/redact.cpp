#include "cli/support/redact.h"

#include <string_view>

namespace zqpool::cli {

namespace {

bool names_a_key(std::string_view name) {
  constexpr std::string_view end = "key";
  return name.size() >= end.size() && name.substr(name.size() - end.size()) == end;
}

}  // namespace

void hide_keys(Object& object) {
  for (auto& [name, value] : object) {
    if (value.type() == json_spirit::obj_type) {
      hide_keys(value.get_obj());
    } else if (value.type() == json_spirit::array_type) {
      for (json_spirit::Value& element : value.get_array()) {
        if (element.type() == json_spirit::obj_type) hide_keys(element.get_obj());
      }
    } else if (value.type() == json_spirit::str_type && names_a_key(name) &&
               !value.get_str().empty()) {
      value = "(hidden)";
    }
  }
}

}  // namespace zqpool::cli
