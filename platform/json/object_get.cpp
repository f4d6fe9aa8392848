#include <limits>
#include <stdexcept>
#include <utility>

#include "platform/json/json_spirit.h"

namespace json_spirit {

namespace {

// The member, or null if it is missing or of another type. As const as the object.
template <typename Any_Object>
auto* member(Any_Object& object, const std::string& key, Value_type type) {
  const auto found = object.find(key);
  return found != object.end() && found->second.type() == type ? &found->second : nullptr;
}

template <typename Any_Object>
auto* array_member(Any_Object& object, const std::string& key) {
  auto* const value = member(object, key, array_type);
  return value != nullptr ? &value->get_array() : nullptr;
}

template <typename Any_Object>
auto* object_member(Any_Object& object, const std::string& key) {
  auto* const value = member(object, key, obj_type);
  return value != nullptr ? &value->get_obj() : nullptr;
}

template <typename Get>
auto get_or_throw(const Object& object, const std::string& key, Get get) -> decltype(get(Value())) {
  const auto found = object.find(key);
  if (found == object.end()) throw std::runtime_error("JSON member \"" + key + "\" is missing");
  try {
    return get(found->second);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error("JSON member \"" + key + "\": " + error.what());
  }
}

}  // namespace

bool object_get(const Object& object, const std::string& key, std::string& out) {
  const std::string* const text = object_get_str(object, key);
  if (text == nullptr) return false;
  out = *text;
  return true;
}

bool object_get(const Object& object, const std::string& key, bool& out) {
  const Value* const value = member(object, key, bool_type);
  if (value == nullptr) return false;
  out = value->get_bool();
  return true;
}

bool object_get(const Object& object, const std::string& key, int& out) {
  std::int64_t wide = 0;
  if (!object_get(object, key, wide)) return false;
  if (wide < std::numeric_limits<int>::min() || wide > std::numeric_limits<int>::max())
    return false;
  out = static_cast<int>(wide);
  return true;
}

bool object_get(const Object& object, const std::string& key, std::int64_t& out) {
  const Value* const value = member(object, key, int_type);
  if (value == nullptr || value->is_uint64()) return false;
  out = value->get_int64();
  return true;
}

bool object_get(const Object& object, const std::string& key, std::uint64_t& out) {
  const Value* const value = member(object, key, int_type);
  if (value == nullptr || (!value->is_uint64() && value->get_int64() < 0)) return false;
  out = value->get_uint64();
  return true;
}

bool object_get(const Object& object, const std::string& key, double& out) {
  const Value* value = member(object, key, real_type);
  if (value == nullptr) value = member(object, key, int_type);
  if (value == nullptr) return false;
  out = value->get_real();
  return true;
}

const std::string* object_get_str(const Object& object, const std::string& key) {
  const Value* const value = member(object, key, str_type);
  return value != nullptr ? &value->get_str() : nullptr;
}

const Array* object_get_array(const Object& object, const std::string& key) {
  return array_member(object, key);
}
Array* object_get_array(Object& object, const std::string& key) {
  return array_member(object, key);
}

const Object* object_get_object(const Object& object, const std::string& key) {
  return object_member(object, key);
}
Object* object_get_object(Object& object, const std::string& key) {
  return object_member(object, key);
}

bool object_get_swap(Object& object, const std::string& key, std::string& out) {
  Value* const value = member(object, key, str_type);
  if (value == nullptr) return false;
  value->get_str().swap(out);
  return true;
}

bool object_get_swap(Object& object, const std::string& key, Array& out) {
  Array* const array = object_get_array(object, key);
  if (array == nullptr) return false;
  array->swap(out);
  return true;
}

bool object_get_swap(Object& object, const std::string& key, Object& out) {
  Object* const inner = object_get_object(object, key);
  if (inner == nullptr) return false;
  Object taken = std::move(*inner);
  if (&out != &object) *inner = std::move(out);  // or `inner` would contain itself
  out = std::move(taken);
  return true;
}

const std::string& object_get_str_or_throw(const Object& object, const std::string& key) {
  return get_or_throw(object, key,
                      [](const Value& value) -> const std::string& { return value.get_str(); });
}

int object_get_int_or_throw(const Object& object, const std::string& key) {
  return get_or_throw(object, key, [](const Value& value) { return value.get_int(); });
}

std::int64_t object_get_int64_or_throw(const Object& object, const std::string& key) {
  return get_or_throw(object, key, [](const Value& value) { return value.get_int64(); });
}

std::uint64_t object_get_uint64_or_throw(const Object& object, const std::string& key) {
  return get_or_throw(object, key, [](const Value& value) { return value.get_uint64(); });
}

}  // namespace json_spirit
