#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "platform/export.h"

/// JSON values in the map-based flavour: an object is a std::map, an array a std::vector.
///
/// A value is a plain value: copies are deep, moves are cheap and leave a null behind. Values have
/// no hidden sharing, so distinct values may be used on any number of threads at once.
namespace json_spirit {

class Value;
namespace detail {
struct Value_Access;
}
using Object = std::map<std::string, Value>;
using Array = std::vector<Value>;

enum Value_type { obj_type, array_type, str_type, bool_type, int_type, real_type, null_type };

/// Deepest nesting of objects and arrays that the reader, the writer, copy and comparison take;
/// `[]` has depth 1.
constexpr int max_depth = 256;

class ZQ_EXPORT Value {
 public:
  Value() noexcept = default;  ///< null
  Value(const char* text);     ///< a null pointer gives null
  Value(std::string text) noexcept;
  Value(std::string_view text);
  Value(Object object) noexcept;
  Value(Array array) noexcept;
  Value(bool flag) noexcept;
  Value(int number) noexcept;
  Value(long number) noexcept;
  Value(long long number) noexcept;
  Value(unsigned number) noexcept;
  Value(unsigned long number) noexcept;
  Value(unsigned long long number) noexcept;
  Value(double number) noexcept;  ///< NaN and infinity are kept, but write() refuses them
  /// A pointer is not a bool.
  template <typename T, typename = std::enable_if_t<!std::is_same_v<std::remove_cv_t<T>, char>>>
  Value(T*) = delete;

  /// Copying throws std::runtime_error for a value nested deeper than max_depth.
  Value(const Value& other);
  Value(Value&& other) noexcept;
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept;
  /// Never overflows the stack and works without free memory, however deep the value is.
  ~Value();

  void swap(Value& other) noexcept;

  Value_type type() const noexcept;
  bool is_null() const noexcept { return type() == null_type; }
  /// True for an integer that only an unsigned 64-bit type holds (above 2^63-1).
  bool is_uint64() const noexcept;

  /// Typed access. Each throws std::runtime_error, with a text that names the wanted and the found
  /// type, when the value has another type or a number does not fit; no number is ever cut.
  const std::string& get_str() const;
  std::string& get_str();
  const Object& get_obj() const;
  Object& get_obj();
  const Array& get_array() const;
  Array& get_array();
  bool get_bool() const;
  int get_int() const;
  std::int64_t get_int64() const;
  std::uint64_t get_uint64() const;
  double get_real() const;  ///< also reads an integer

  /// Equal type and content; an integer never equals a real. Throws std::runtime_error when both
  /// values are alike down to beyond max_depth.
  ZQ_EXPORT friend bool operator==(const Value& a, const Value& b);
  friend bool operator!=(const Value& a, const Value& b) { return !(a == b); }

 private:
  friend struct detail::Value_Access;
  using Data = std::variant<std::monostate, std::string, Object, Array, bool, std::int64_t,
                            std::uint64_t, double>;

  static bool equal(const Value& a, const Value& b, int depth);

  bool is_container() const noexcept;
  void copy_from(const Value& other, int depth);
  void clear() noexcept;
  void take_apart() noexcept;

  Data data_;
};

inline void swap(Value& a, Value& b) noexcept {
  a.swap(b);
}

/// Reads one JSON document that fills the whole text. Returns false, and leaves `value` as it was,
/// when the text is not strict JSON (RFC 8259), is nested deeper than max_depth, is larger than
/// max_document_size(), is not valid UTF-8, or holds an integer beyond 64 bits or a real beyond
/// double. Never throws except std::bad_alloc, which leaves `value` as it was too (but the first
/// call of a process ends it when memory fails while simdjson chooses its code for the processor).
/// Of members with the same key the last one wins. `text` is read in place when its capacity
/// exceeds its size by at least read_padding bytes, otherwise through a copy. Safe on any number of
/// threads; each keeps working memory of some 14 times its largest document below 1 MiB. A long
/// list of objects which begin with the same key, as services write them, is read in pieces of 32
/// KiB, and counts as no more than that.
ZQ_EXPORT bool read(const std::string& text, Value& value);

/// As above; on failure `error` receives why (never a piece of the text).
ZQ_EXPORT bool read(const std::string& text, Value& value, std::string& error);

/// As above, for a text that nobody needs afterwards: its memory is given back while the tree
/// grows.
ZQ_EXPORT bool read(std::string&& text, Value& value, std::string& error);

/// Spare capacity with which a text is read without being copied.
constexpr std::size_t read_padding = 64;

/// Largest document that read() takes, in bytes; 256 MiB until set. Set once at start. A tree takes
/// up to 32 times the memory of its text, and reading one that is not read in pieces 14 times more.
ZQ_EXPORT std::size_t max_document_size() noexcept;
ZQ_EXPORT void set_max_document_size(std::size_t bytes) noexcept;

/// Compact text without blanks, keys in the map's order. Numbers read back as the same number of
/// the same type (1.0 is written "1.0"). Throws std::runtime_error for what JSON cannot say: NaN,
/// infinity, a string that is not UTF-8, nesting beyond max_depth.
ZQ_EXPORT std::string write(const Value& value);
/// As above, appended to `out`; what was appended before a failure is taken away again.
ZQ_EXPORT void write_to(const Value& value, std::string& out);

/// Member access that does not throw: true (or a pointer) when `key` is there with the wanted type
/// and fits, else false (or null) and `out` keeps what it had.
ZQ_EXPORT bool object_get(const Object& object, const std::string& key, std::string& out);
ZQ_EXPORT bool object_get(const Object& object, const std::string& key, bool& out);
ZQ_EXPORT bool object_get(const Object& object, const std::string& key, int& out);
ZQ_EXPORT bool object_get(const Object& object, const std::string& key, std::int64_t& out);
ZQ_EXPORT bool object_get(const Object& object, const std::string& key, std::uint64_t& out);
ZQ_EXPORT bool object_get(const Object& object, const std::string& key, double& out);
ZQ_EXPORT const std::string* object_get_str(const Object& object, const std::string& key);
ZQ_EXPORT const Array* object_get_array(const Object& object, const std::string& key);
ZQ_EXPORT Array* object_get_array(Object& object, const std::string& key);
ZQ_EXPORT const Object* object_get_object(const Object& object, const std::string& key);
ZQ_EXPORT Object* object_get_object(Object& object, const std::string& key);

/// As object_get, but the member's content changes places with `out` instead of being copied. In
/// the last one `out` may be `object` itself; what it held is then gone.
ZQ_EXPORT bool object_get_swap(Object& object, const std::string& key, std::string& out);
ZQ_EXPORT bool object_get_swap(Object& object, const std::string& key, Array& out);
ZQ_EXPORT bool object_get_swap(Object& object, const std::string& key, Object& out);

/// Member access that throws std::runtime_error, with a text that names the key and what is wrong.
ZQ_EXPORT const std::string& object_get_str_or_throw(const Object& object, const std::string& key);
ZQ_EXPORT int object_get_int_or_throw(const Object& object, const std::string& key);
ZQ_EXPORT std::int64_t object_get_int64_or_throw(const Object& object, const std::string& key);
ZQ_EXPORT std::uint64_t object_get_uint64_or_throw(const Object& object, const std::string& key);

}  // namespace json_spirit

// The library's callers spell these two without a namespace.
using json_spirit::Array;
using json_spirit::Object;
