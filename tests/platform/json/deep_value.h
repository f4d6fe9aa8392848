#pragma once

#include <string>
#include <utility>

#include "platform/json/json_spirit.h"

/// `levels` arrays, one inside the other, the innermost empty.
inline json_spirit::Value nested_arrays(int levels) {
  json_spirit::Value value = json_spirit::Array();
  for (int i = 1; i < levels; ++i) {
    json_spirit::Array outer;
    outer.push_back(std::move(value));
    value = json_spirit::Value(std::move(outer));
  }
  return value;
}

/// `levels` objects, one inside the other as the member "a", the innermost empty.
inline json_spirit::Value nested_objects(int levels) {
  json_spirit::Value value = json_spirit::Object();
  for (int i = 1; i < levels; ++i) {
    json_spirit::Object outer;
    outer["a"] = std::move(value);
    value = json_spirit::Value(std::move(outer));
  }
  return value;
}

inline std::string repeat(const std::string& part, int times) {
  std::string text;
  for (int i = 0; i < times; ++i)
    text += part;
  return text;
}
