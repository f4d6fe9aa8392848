#pragma once

#include "platform/json/json_spirit.h"

/// The value as text; this product has it on one line, whatever `lines` says.
class JSON_Dump {
 public:
  JSON_Dump(const json_spirit::Value& value, bool lines);
  const char* c_str() const { return text_.c_str(); }

 private:
  std::string text_;
};
