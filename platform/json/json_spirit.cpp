#include "platform/json/json_spirit.h"

#include <iterator>
#include <limits>
#include <stdexcept>
#include <utility>

namespace json_spirit {

const char* type_name(Value_type type) noexcept {
  switch (type) {
    case obj_type:
      return "an object";
    case array_type:
      return "an array";
    case str_type:
      return "a string";
    case bool_type:
      return "a boolean";
    case int_type:
      return "an integer";
    case real_type:
      return "a real";
    case null_type:
      break;
  }
  return "null";
}

namespace {

[[noreturn]] void throw_mismatch(const char* wanted, const std::string& found) {
  throw std::runtime_error(std::string("JSON value type mismatch: wanted ") + wanted + ", found " +
                           found);
}

[[noreturn]] void throw_range(const char* wanted, const std::string& number) {
  throw_mismatch(wanted, "the integer " + number);
}

template <typename T, typename Data>
auto& get_or_throw(Data& data, const Value& value, const char* wanted) {
  auto* const content = std::get_if<T>(&data);
  if (content == nullptr) {
    throw_mismatch(wanted,
                   value.is_uint64() ? "an unsigned 64-bit integer" : type_name(value.type()));
  }
  return *content;
}

}  // namespace

Value::Value(const char* text) {
  if (text != nullptr) data_.emplace<std::string>(text);
}
Value::Value(std::string text) noexcept : data_(std::move(text)) {}
Value::Value(std::string_view text) : data_(std::in_place_type<std::string>, text) {}
Value::Value(Object object) noexcept : data_(std::move(object)) {}
Value::Value(Array array) noexcept : data_(std::move(array)) {}
Value::Value(bool flag) noexcept : data_(flag) {}
Value::Value(int number) noexcept : data_(std::int64_t{number}) {}
Value::Value(long number) noexcept : data_(std::int64_t{number}) {}
Value::Value(long long number) noexcept : data_(std::int64_t{number}) {}
Value::Value(unsigned number) noexcept : data_(std::int64_t{number}) {}
Value::Value(unsigned long number) noexcept : Value(static_cast<unsigned long long>(number)) {}
Value::Value(unsigned long long number) noexcept {
  // One number has one form, so that equal numbers compare equal.
  if (number <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    data_ = static_cast<std::int64_t>(number);
  } else {
    data_ = std::uint64_t{number};
  }
}
Value::Value(double number) noexcept : data_(number) {}

Value::Value(const Value& other) = default;
Value::Value(Value&& other) noexcept : data_(std::move(other.data_)) {
  other.data_.emplace<std::monostate>();
}
Value& Value::operator=(const Value& other) {
  // By way of a copy: `other` may lie inside this value.
  Value copy(other);
  swap(copy);
  return *this;
}
Value& Value::operator=(Value&& other) noexcept {
  Value moved(std::move(other));
  swap(moved);
  return *this;
}
Value::~Value() = default;

void Value::swap(Value& other) noexcept {
  data_.swap(other.data_);
}

Value_type Value::type() const noexcept {
  constexpr Value_type types[] = {null_type, str_type, obj_type, array_type,
                                  bool_type, int_type, int_type, real_type};
  static_assert(std::size(types) == std::variant_size_v<Data>);
  return types[data_.index()];
}

bool Value::is_uint64() const noexcept {
  return std::holds_alternative<std::uint64_t>(data_);
}

const std::string& Value::get_str() const {
  return get_or_throw<std::string>(data_, *this, "a string");
}
std::string& Value::get_str() {
  return get_or_throw<std::string>(data_, *this, "a string");
}
const Object& Value::get_obj() const {
  return get_or_throw<Object>(data_, *this, "an object");
}
Object& Value::get_obj() {
  return get_or_throw<Object>(data_, *this, "an object");
}
const Array& Value::get_array() const {
  return get_or_throw<Array>(data_, *this, "an array");
}
Array& Value::get_array() {
  return get_or_throw<Array>(data_, *this, "an array");
}
bool Value::get_bool() const {
  return get_or_throw<bool>(data_, *this, "a boolean");
}

int Value::get_int() const {
  constexpr const char* wanted = "a 32-bit integer";
  if (const auto* const big = std::get_if<std::uint64_t>(&data_)) {
    throw_range(wanted, std::to_string(*big));
  }
  const auto number = get_or_throw<std::int64_t>(data_, *this, wanted);
  if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max()) {
    throw_range(wanted, std::to_string(number));
  }
  return static_cast<int>(number);
}

std::int64_t Value::get_int64() const {
  constexpr const char* wanted = "a signed 64-bit integer";
  if (const auto* const big = std::get_if<std::uint64_t>(&data_)) {
    throw_range(wanted, std::to_string(*big));
  }
  return get_or_throw<std::int64_t>(data_, *this, wanted);
}

std::uint64_t Value::get_uint64() const {
  constexpr const char* wanted = "an unsigned 64-bit integer";
  if (const auto* const big = std::get_if<std::uint64_t>(&data_)) return *big;
  const auto number = get_or_throw<std::int64_t>(data_, *this, wanted);
  if (number < 0) throw_range(wanted, std::to_string(number));
  return static_cast<std::uint64_t>(number);
}

double Value::get_real() const {
  if (const auto* const number = std::get_if<std::int64_t>(&data_)) {
    return static_cast<double>(*number);
  }
  if (const auto* const big = std::get_if<std::uint64_t>(&data_)) return static_cast<double>(*big);
  return get_or_throw<double>(data_, *this, "a real");
}

bool operator==(const Value& a, const Value& b) {
  return a.data_ == b.data_;
}

}  // namespace json_spirit
