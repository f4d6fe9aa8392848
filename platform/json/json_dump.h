#pragma once

#include <string>

#include "platform/export.h"
#include "platform/json/json_spirit.h"

/// A JSON value as text for messages: `[5]`, `{"a":1}`.
///
/// Throws only std::bad_alloc. What JSON cannot express is replaced: NaN and infinity by null,
/// bytes that are not UTF-8 by U+FFFD, and containers nested deeper than json_spirit::max_depth by
/// "...".
class ZQ_EXPORT JSON_Dump {
 public:
  /// With `pretty`, one member per line, indented by two spaces per level.
  JSON_Dump(const json_spirit::Value& value, bool pretty);
  JSON_Dump(const json_spirit::Object& object, bool pretty);
  JSON_Dump(const json_spirit::Array& array, bool pretty);

  const char* c_str() const noexcept { return text_.c_str(); }
  const std::string& str() const noexcept { return text_; }

 private:
  std::string text_;
};
