#pragma once

#include <string>

#include "platform/json/json_spirit.h"

namespace json_spirit::detail {

/// How a value becomes text.
struct Text_Style {
  bool pretty = false;
  /// Render what JSON cannot say as near as possible instead of throwing std::runtime_error.
  bool lenient = false;
};

/// Appends to `out`; on an exception `out` is left as it was.
void write_text(const Value& value, Text_Style style, std::string& out);
void write_text(const Object& object, Text_Style style, std::string& out);
void write_text(const Array& array, Text_Style style, std::string& out);

}  // namespace json_spirit::detail
