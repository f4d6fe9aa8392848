#include "platform/json/json_spirit.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <utility>

#include "platform/json/detail/prefetch.h"

namespace json_spirit {

namespace {

// Levels that a destructor descends by recursion before it turns to the slower way that needs no
// stack. More than documents have, little enough for the smallest stacks in use.
constexpr int recursive_destruction = 50;

// Containers being destroyed by this thread, one inside the other.
thread_local int destruction_depth = 0;

// Elements of an array that are destroyed between two merges.
constexpr std::size_t merging_interval = 64;

// glibc merges freed small blocks only when a large one is asked for or freed, but then all of
// them: after a long array that is a second walk through memory which has left the cache, and takes
// longer than the destruction. Here it is done while they are at hand (10,000 objects were
// destroyed in 0.4 of the time). An Array that is no Value destroys itself, without this.
void merge_freed_blocks() noexcept {
  constexpr std::size_t large = 2048;
  void* volatile block = std::malloc(large);  // volatile, or the compiler leaves both calls out
  std::free(block);
}

void check_depth(int depth, const char* what) {
  if (depth < max_depth) return;
  throw std::runtime_error(std::string("JSON value is nested too deep to be ") + what);
}

// Where the alternatives of Value's variant stand.
enum Index : std::size_t {
  at_null,
  at_string,
  at_object,
  at_array,
  at_bool,
  at_int,
  at_uint,
  at_real
};

const char* name_of(std::size_t index) {
  switch (index) {
    case at_string:
      return "a string";
    case at_object:
      return "an object";
    case at_array:
      return "an array";
    case at_bool:
      return "a boolean";
    case at_int:
      return "an integer";
    case at_uint:
      return "an unsigned 64-bit integer";
    case at_real:
      return "a real";
    default:
      return "null";
  }
}

[[noreturn]] void throw_type(const char* wanted, const char* found) {
  throw std::runtime_error(std::string("JSON value type mismatch: wanted ") + wanted + ", found " +
                           found);
}

[[noreturn]] void throw_range(const char* wanted, const std::string& number) {
  throw std::runtime_error(std::string("JSON value type mismatch: wanted ") + wanted +
                           ", found the integer " + number);
}

template <typename Alternative, typename Data>
auto& get_or_throw(Data& data, const char* wanted) {
  auto* const found = std::get_if<Alternative>(&data);
  if (found == nullptr) throw_type(wanted, name_of(data.index()));
  return *found;
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

Value::Value(const Value& other) {
  copy_from(other, 0);
}

// The containers' own copying would do, but takes several times the stack.
void Value::copy_from(const Value& other, int depth) {
  if (!other.is_container()) {
    data_ = other.data_;
    return;
  }
  check_depth(depth, "copied");
  if (const auto* const object = std::get_if<Object>(&other.data_)) {
    Object& copies = data_.emplace<Object>();
    for (const auto& [key, value] : *object) {
      copies.try_emplace(copies.end(), key)->second.copy_from(value, depth + 1);
    }
  } else {
    const Array& array = *std::get_if<Array>(&other.data_);
    Array& copies = data_.emplace<Array>(array.size());
    for (std::size_t i = 0; i < array.size(); ++i)
      copies[i].copy_from(array[i], depth + 1);
  }
}

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

Value::~Value() {
  if (is_container()) clear();
}

bool Value::is_container() const noexcept {
  return data_.index() == at_object || data_.index() == at_array;
}

void Value::clear() noexcept {
  if (destruction_depth == recursive_destruction) {
    take_apart();
    return;
  }
  ++destruction_depth;
  if (auto* const array = std::get_if<Array>(&data_)) {
    for (std::size_t i = 0; i < array->size(); ++i) {
      detail::prefetch_ahead(*array, i);
      if (!(*array)[i].is_container()) continue;
      (*array)[i].clear();
      if (i % merging_interval == merging_interval - 1) merge_freed_blocks();
    }
  }
  data_.emplace<std::monostate>();
  --destruction_depth;
}

namespace {

// The first and the last element of a container; null for an empty one and for anything else.
Value* first_of(Object* object, Array* array) noexcept {
  if (object != nullptr && !object->empty()) return &object->begin()->second;
  return array != nullptr && !array->empty() ? &array->front() : nullptr;
}
Value* last_of(Object* object, Array* array) noexcept {
  if (object != nullptr && !object->empty()) return &std::prev(object->end())->second;
  return array != nullptr && !array->empty() ? &array->back() : nullptr;
}

}  // namespace

// Destroys without recursion and without memory for a list of what is left to do: a container found
// inside another one changes places with it, so that the rest of the outer one waits, as an
// element, inside the inner one. Each container comes to the top once.
void Value::take_apart() noexcept {
  const auto first = [](Value& value) noexcept {
    return first_of(std::get_if<Object>(&value.data_), std::get_if<Array>(&value.data_));
  };
  const auto last = [](Value& value) noexcept {
    return last_of(std::get_if<Object>(&value.data_), std::get_if<Array>(&value.data_));
  };
  const auto drop_last = [](Value& value) noexcept {
    if (auto* const array = std::get_if<Array>(&value.data_)) {
      array->pop_back();
    } else if (auto* const object = std::get_if<Object>(&value.data_)) {
      object->erase(std::prev(object->end()));
    }
  };
  while (Value* const tail = last(*this)) {
    if (last(*tail) == nullptr) {
      tail->data_.emplace<std::monostate>();
      drop_last(*this);
      continue;
    }
    Value inner(std::move(*tail));
    if (tail != first(*this)) {
      Value& place = *first(inner);
      place.swap(*tail);
      place.swap(*this);
    }
    swap(inner);
    // What is left here holds at most nulls.
    inner.data_.emplace<std::monostate>();
  }
  data_.emplace<std::monostate>();
}

void Value::swap(Value& other) noexcept {
  data_.swap(other.data_);
}

Value_type Value::type() const noexcept {
  constexpr Value_type types[] = {null_type, str_type, obj_type, array_type,
                                  bool_type, int_type, int_type, real_type};
  return types[data_.index()];
}

bool Value::is_uint64() const noexcept {
  return data_.index() == at_uint;
}

const std::string& Value::get_str() const {
  return get_or_throw<std::string>(data_, "a string");
}
std::string& Value::get_str() {
  return get_or_throw<std::string>(data_, "a string");
}
const Object& Value::get_obj() const {
  return get_or_throw<Object>(data_, "an object");
}
Object& Value::get_obj() {
  return get_or_throw<Object>(data_, "an object");
}
const Array& Value::get_array() const {
  return get_or_throw<Array>(data_, "an array");
}
Array& Value::get_array() {
  return get_or_throw<Array>(data_, "an array");
}
bool Value::get_bool() const {
  return get_or_throw<bool>(data_, "a boolean");
}

int Value::get_int() const {
  constexpr const char* wanted = "a 32-bit integer";
  if (const auto* const big = std::get_if<std::uint64_t>(&data_)) {
    throw_range(wanted, std::to_string(*big));
  }
  const auto number = get_or_throw<std::int64_t>(data_, wanted);
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
  return get_or_throw<std::int64_t>(data_, wanted);
}

std::uint64_t Value::get_uint64() const {
  constexpr const char* wanted = "an unsigned 64-bit integer";
  if (const auto* const big = std::get_if<std::uint64_t>(&data_)) return *big;
  const auto number = get_or_throw<std::int64_t>(data_, wanted);
  if (number < 0) throw_range(wanted, std::to_string(number));
  return static_cast<std::uint64_t>(number);
}

double Value::get_real() const {
  if (const auto* const number = std::get_if<std::int64_t>(&data_)) {
    return static_cast<double>(*number);
  }
  if (const auto* const big = std::get_if<std::uint64_t>(&data_)) return static_cast<double>(*big);
  return get_or_throw<double>(data_, "a real");
}

bool Value::equal(const Value& a, const Value& b, int depth) {
  if (a.data_.index() != b.data_.index()) return false;
  if (!a.is_container()) return a.data_ == b.data_;
  check_depth(depth, "compared");
  if (const auto* const object = std::get_if<Object>(&a.data_)) {
    const Object& other = *std::get_if<Object>(&b.data_);
    return std::equal(object->begin(), object->end(), other.begin(), other.end(),
                      [depth](const auto& x, const auto& y) {
                        return x.first == y.first && equal(x.second, y.second, depth + 1);
                      });
  }
  const Array& array = *std::get_if<Array>(&a.data_);
  const Array& other = *std::get_if<Array>(&b.data_);
  return std::equal(array.begin(), array.end(), other.begin(), other.end(),
                    [depth](const Value& x, const Value& y) { return equal(x, y, depth + 1); });
}

bool operator==(const Value& a, const Value& b) {
  return Value::equal(a, b, 0);
}

}  // namespace json_spirit
