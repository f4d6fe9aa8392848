#pragma once

#include "platform/json/json_spirit.h"

namespace json_spirit::detail {

/// For walks over whole trees, which would otherwise ask each value for its type twice.
struct Value_Access {
  static const Value::Data& data(const Value& value) noexcept { return value.data_; }
};

}  // namespace json_spirit::detail
