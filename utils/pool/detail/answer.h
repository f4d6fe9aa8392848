#pragma once

#include "platform/json/json_spirit.h"

namespace zqpool::detail {

inline bool is_object(const json_spirit::Value& value) {
  return value.type() == json_spirit::obj_type;
}

inline bool is_array(const json_spirit::Value& value) {
  return value.type() == json_spirit::array_type;
}

/// Swaps `object` with the only element of `array`. Returns false if that is not one object.
inline bool take_only_object(Array& array, Object& object) {
  if (array.size() != 1 || !is_object(array.front())) return false;
  object.swap(array.front().get_obj());
  return true;
}

}  // namespace zqpool::detail
