#pragma once

#include <any>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// The product's JSON: a std::any that holds what JSON knows.
namespace json_spirit {

class Value;
typedef std::map<std::string, Value> Object;
typedef std::vector<Value> Array;

enum Value_type {
  obj_type = 0,
  array_type = 1,
  str_type = 2,
  bool_type = 3,
  int_type = 4,
  real_type = 5,
  null_type = 6
};

class Value {
  template <class T, class V>
  static auto& held(V& value) {
    if (auto* there = value.template find<T>()) return *there;
    throw std::runtime_error("the value is of another type");
  }

 public:
  Value() {}
  Value(const char* from) : held_(std::string(from)) {}
  Value(const std::string& from) : held_(from) {}
  Value(const Object& from) : held_(from) {}
  Value(const Array& from) : held_(from) {}
  Value(bool from) : held_(from) {}
  Value(double from) : held_(from) {}
  template <class N, class = std::enable_if_t<std::is_integral_v<N> && !std::is_same_v<N, bool>>>
  Value(N from) {
    if (from > 0 && static_cast<std::uint64_t>(from) > INT64_MAX) {
      held_ = static_cast<std::uint64_t>(from);
    } else {
      held_ = static_cast<std::int64_t>(from);
    }
  }

  Value_type type() const {
    return find<Object>()          ? obj_type
           : find<Array>()         ? array_type
           : find<std::string>()   ? str_type
           : find<bool>()          ? bool_type
           : find<std::int64_t>()  ? int_type
           : find<std::uint64_t>() ? int_type
           : find<double>()        ? real_type
                                   : null_type;
  }

  /// Null when something else is held.
  template <class T>
  const T* find() const {
    return std::any_cast<T>(&held_);
  }
  template <class T>
  T* find() {
    return std::any_cast<T>(&held_);
  }

  const std::string& get_str() const { return held<std::string>(*this); }
  std::string& get_str() { return held<std::string>(*this); }
  const Object& get_obj() const { return held<Object>(*this); }
  Object& get_obj() { return held<Object>(*this); }
  const Array& get_array() const { return held<Array>(*this); }
  Array& get_array() { return held<Array>(*this); }
  int get_int() const {
    int n = 0;
    return fits(n) ? n : throw std::runtime_error("the value is no int");
  }

  /// Whether an integer is held that a T can hold, too; then `to` gets it.
  template <class T>
  bool fits(T& to) const {
    if constexpr (std::is_same_v<T, std::uint64_t>) {
      if (const T* huge = find<T>()) to = *huge;
      if (find<T>()) return true;
    }
    const std::int64_t* wide = find<std::int64_t>();
    if (wide == nullptr || (std::is_unsigned_v<T> && *wide < 0)) return false;
    const T narrow = static_cast<T>(*wide);
    if (static_cast<std::int64_t>(narrow) != *wide) return false;
    to = narrow;
    return true;
  }

 private:
  std::any held_;
};

/// The member, or null when it is missing or no T.
template <class T, class O>
auto* member(O& object, const std::string& name) {
  auto at = object.find(name);
  return at == object.end() ? nullptr : at->second.template find<T>();
}

inline const std::string* object_get_str(const Object& from, const std::string& name) {
  return member<std::string>(from, name);
}
inline const Object* object_get_object(const Object& from, const std::string& name) {
  return member<Object>(from, name);
}
inline const Array* object_get_array(const Object& from, const std::string& name) {
  return member<Array>(from, name);
}
inline Array* object_get_array(Object& from, const std::string& name) {
  return member<Array>(from, name);
}

template <class T>
bool object_get(const Object& from, const std::string& name, T& to) {
  if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
    auto at = from.find(name);
    return at != from.end() && at->second.fits(to);
  } else {
    const T* there = member<T>(from, name);
    if (there) to = *there;
    return there;
  }
}

template <class T>
bool object_get_swap(Object& from, const std::string& name, T& with) {
  T* there = member<T>(from, name);
  if (there) std::swap(*there, with);
  return there;
}

}  // namespace json_spirit

using json_spirit::Array, json_spirit::Object;
