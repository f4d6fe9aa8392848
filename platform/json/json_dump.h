#pragma once

#include <string>

#include "platform/export.h"
#include "platform/json/json_spirit.h"

/// A JSON value as text, for messages: `[5]`, `{"a":1}`. Never throws except std::bad_alloc: what
/// JSON cannot say is rendered as near as possible (NaN and infinity as null, bytes that are not
/// UTF-8 as U+FFFD, nesting beyond json_spirit::max_depth as "...").
class ZQ_EXPORT JSON_Dump {
 public:
  /// With `pretty`, one member a line, indented by two blanks.
  JSON_Dump(const json_spirit::Value& value, bool pretty);
  JSON_Dump(const json_spirit::Object& object, bool pretty);
  JSON_Dump(const json_spirit::Array& array, bool pretty);

  const char* c_str() const noexcept { return text_.c_str(); }
  const std::string& str() const noexcept { return text_; }

 private:
  std::string text_;
};
