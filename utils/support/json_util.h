#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "platform/json/json_spirit.h"

// Helpers to build JSON values and to read members of JSON objects.

/// Makes `value` an empty object and returns that object.
inline Object& to_new_object(json_spirit::Value& value) {
  value = json_spirit::Value(Object());
  return value.get_obj();
}

/// Makes `value` an empty array and returns that array.
inline Array& to_new_array(json_spirit::Value& value) {
  value = json_spirit::Value(Array());
  return value.get_array();
}

/// Returned by insert(). Each call sets one member of the object.
class Object_Inserter {
 public:
  explicit Object_Inserter(Object& object) noexcept : object_(object) {}

  /// Sets member `key`, also if there is one already.
  template <typename T>
  const Object_Inserter& operator()(const std::string& key, T&& value) const {
    object_[key] = json_spirit::Value(std::forward<T>(value));
    return *this;
  }

 private:
  Object& object_;
};

/// Sets members in order: `insert(object)("key", value)("key2", value2)`.
inline Object_Inserter insert(Object& object) noexcept {
  return Object_Inserter(object);
}

/// Builds an object in one expression:
/// `Object_Maker().insert("key", value).insert_ptr("key2", pointer_or_null).take()`.
class Object_Maker {
 public:
  template <typename T>
  Object_Maker& insert(const std::string& key, T&& value) {
    ::insert(object_)(key, std::forward<T>(value));
    return *this;
  }

  /// Sets member `key` to `*value`, or does nothing if `value` is null.
  template <typename T>
  Object_Maker& insert_ptr(const std::string& key, const T* value) {
    if (value != nullptr) insert(key, *value);
    return *this;
  }
  Object_Maker& insert_ptr(const std::string& key, const char* text) {
    if (text != nullptr) insert(key, text);
    return *this;
  }

  /// Returns the object and leaves the maker empty.
  Object take() noexcept { return std::exchange(object_, Object()); }

 private:
  Object object_;
};

/// Builds an array in one expression: `Array_Maker().push(value).push(value2).take()`.
class Array_Maker {
 public:
  template <typename T>
  Array_Maker& push(T&& value) {
    array_.emplace_back(std::forward<T>(value));
    return *this;
  }

  /// Returns the array and leaves the maker empty.
  Array take() noexcept { return std::exchange(array_, Array()); }

 private:
  Array array_;
};

namespace zqpool::detail {

/// The JSON type of a T and how to access it.
template <typename T>
struct Json_Type;

template <>
struct Json_Type<Object> {
  static constexpr json_spirit::Value_type type = json_spirit::obj_type;
  static constexpr const char* name = "object";
  template <typename V>
  static auto& get(V& value) {
    return value.get_obj();
  }
};

template <>
struct Json_Type<Array> {
  static constexpr json_spirit::Value_type type = json_spirit::array_type;
  static constexpr const char* name = "array";
  template <typename V>
  static auto& get(V& value) {
    return value.get_array();
  }
};

template <>
struct Json_Type<std::string> {
  static constexpr json_spirit::Value_type type = json_spirit::str_type;
  static constexpr const char* name = "string";
  template <typename V>
  static auto& get(V& value) {
    return value.get_str();
  }
};

template <>
struct Json_Type<bool> {
  static constexpr const char* name = "bool";
};
template <>
struct Json_Type<std::int32_t> {
  static constexpr const char* name = "32-bit integer";
};
template <>
struct Json_Type<std::int64_t> {
  static constexpr const char* name = "64-bit integer";
};
template <>
struct Json_Type<std::uint64_t> {
  static constexpr const char* name = "unsigned 64-bit integer";
};
template <>
struct Json_Type<double> {
  static constexpr const char* name = "number";
};

inline const char* json_type_name(json_spirit::Value_type type) noexcept {
  switch (type) {
    case json_spirit::obj_type:
      return "object";
    case json_spirit::array_type:
      return "array";
    case json_spirit::str_type:
      return "string";
    case json_spirit::bool_type:
      return "bool";
    case json_spirit::int_type:
      return "integer";
    case json_spirit::real_type:
      return "real";
    case json_spirit::null_type:
      return "null";
  }
  return "unknown";
}

template <typename T, typename O>
auto object_get_any_ptr(O& object, const std::string& key)
    -> decltype(&Json_Type<T>::get(object.begin()->second)) {
  const auto found = object.find(key);
  if (found == object.end() || found->second.type() != Json_Type<T>::type) return nullptr;
  return &Json_Type<T>::get(found->second);
}

/// Copies a member. False, with `out` unchanged, if it is missing, not a T or out of range.
template <typename T>
bool object_read(const Object& object, const std::string& key, T& out) {
  if constexpr (std::is_same_v<T, Object> || std::is_same_v<T, Array>) {
    const T* const member = object_get_any_ptr<T>(object, key);
    if (member != nullptr) out = *member;
    return member != nullptr;
  } else {
    return json_spirit::object_get(object, key, out);
  }
}

/// Says what is wrong with member `key` as a T: the key, the type wanted and the type found.
template <typename T>
std::string member_error(const Object& object, const std::string& key) {
  const auto found = object.find(key);
  std::string text = "\"" + key + "\": wanted " + Json_Type<T>::name + ", found ";
  if (found == object.end()) return text + "nothing";
  text += json_type_name(found->second.type());
  constexpr bool integer = std::is_integral_v<T> && !std::is_same_v<T, bool>;
  if (integer && found->second.type() == json_spirit::int_type) text += " out of its range";
  return text;
}

}  // namespace zqpool::detail

/// Returns member `key` as a T (Object, Array or std::string), or null if it is missing or of
/// another type. The pointer is valid until the object changes.
template <typename T>
const T* object_get_any_ptr(const Object& object, const std::string& key) {
  return zqpool::detail::object_get_any_ptr<T>(object, key);
}
/// The same for changing the member.
template <typename T>
auto object_get_any_ptr(Object& object, const std::string& key) {
  return zqpool::detail::object_get_any_ptr<T>(object, key);
}

/// Returns member `key` as a T, or `fallback` if it is missing, of another type or out of range.
template <typename T>
T object_get_or_default(const Object& object, const std::string& key, T fallback) {
  zqpool::detail::object_read(object, key, fallback);
  return fallback;
}
inline std::string object_get_or_default(const Object& object, const std::string& key,
                                         const char* fallback) {
  return object_get_or_default(object, key, std::string(fallback));
}

/// Reads members of an object and throws for those that are wrong. Does not own the object.
///
/// @code
///   Const_Object_Throw_Extractor extract(answer.get_obj());
///   extract("lun_id", lun_id, true);
///   extract("lun_num", lun_num, to_export);
/// @endcode
class Const_Object_Throw_Extractor {
 public:
  explicit Const_Object_Throw_Extractor(const Object& object) noexcept : object_(object) {}

  /// Copies member `key` into `out`: an Object, Array, std::string, bool, double, or integer of 32
  /// or 64 bits. If it is missing, of another type or out of range, `out` is unchanged, and a
  /// std::runtime_error names the key and both types, or, if not `required`, the result is false.
  template <typename T>
  bool operator()(const std::string& key, T& out, bool required) const {
    if (zqpool::detail::object_read(object_, key, out)) return true;
    if (required) throw std::runtime_error(zqpool::detail::member_error<T>(object_, key));
    return false;
  }

 private:
  const Object& object_;
};
