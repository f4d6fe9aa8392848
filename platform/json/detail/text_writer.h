#pragma once

#include <string>

#include "platform/json/json_spirit.h"

namespace json_spirit::detail {

struct Text_Style {
  bool pretty = false;
  /// Replace what JSON cannot express (see JSON_Dump) instead of throwing std::runtime_error.
  bool lenient = false;
};

/// Appends to `out`, which an exception leaves unchanged.
void write_text(const Value& value, Text_Style style, std::string& out);
void write_text(const Object& object, Text_Style style, std::string& out);
void write_text(const Array& array, Text_Style style, std::string& out);

}  // namespace json_spirit::detail
