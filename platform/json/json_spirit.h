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
/// Values are regular: copies are deep, moves are cheap and leave null behind. Nothing is shared
/// between values, so different threads may use different values at the same time.
namespace json_spirit {

class Value;
namespace detail {
class Writer;
}
using Object = std::map<std::string, Value>;
using Array = std::vector<Value>;

enum Value_type { obj_type, array_type, str_type, bool_type, int_type, real_type, null_type };

/// The type's name with its article, for messages: "an object", "a string", "null".
ZQ_EXPORT const char* type_name(Value_type type) noexcept;

/// Deepest nesting of objects and arrays that is read and written; `[]` has depth 1.
///
/// Reading, writing, copying, comparing and destroying a value of this depth takes less than 128
/// KiB of stack. Deeper values, which can only be built in code, take proportionally more.
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
  Value(double number) noexcept;  ///< NaN and infinity are kept, but cannot be written
  /// Pointers do not convert to bool.
  template <typename T, typename = std::enable_if_t<!std::is_same_v<std::remove_cv_t<T>, char>>>
  Value(T*) = delete;

  Value(const Value& other);
  Value(Value&& other) noexcept;
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept;
  ~Value();

  void swap(Value& other) noexcept;

  Value_type type() const noexcept;
  bool is_null() const noexcept { return type() == null_type; }
  /// True only for integers above 2^63-1, which need an unsigned 64-bit type.
  bool is_uint64() const noexcept;

  /// Typed access. If the value has another type, or its number does not fit, throws
  /// std::runtime_error with a message that names both types. Numbers are never truncated.
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
  double get_real() const;  ///< also takes integers

  /// Compares type and content: an integer never equals a real.
  ZQ_EXPORT friend bool operator==(const Value& a, const Value& b);
  friend bool operator!=(const Value& a, const Value& b) { return !(a == b); }

 private:
  friend class detail::Writer;
  using Data = std::variant<std::monostate, std::string, Object, Array, bool, std::int64_t,
                            std::uint64_t, double>;

  Data data_;
};

inline void swap(Value& a, Value& b) noexcept {
  a.swap(b);
}

/// Parses `text`, which must be exactly one JSON document (RFC 8259) in UTF-8.
///
/// Returns false, and leaves `value` unchanged, if the text is anything else, is nested deeper than
/// max_depth, is larger than max_document_size(), or holds an integer beyond 64 bits or a real
/// beyond double. Of several members with the same key the last one wins.
///
/// Throws only std::bad_alloc, which leaves `value` unchanged, too. (The first call in a process
/// aborts instead if memory runs out while simdjson selects its code for this processor.)
///
/// Any number of threads may call this at the same time. Each thread keeps working memory of about
/// 14 times its largest document below 1 MiB.
ZQ_EXPORT bool read(const std::string& text, Value& value);

/// As above. On failure `error` receives the reason, which never quotes the text.
ZQ_EXPORT bool read(const std::string& text, Value& value, std::string& error);

/// As above, but frees the memory of `text` before the tree is built.
ZQ_EXPORT bool read(std::string&& text, Value& value, std::string& error);

/// A text with this much capacity beyond its size is parsed in place, any other is copied first.
constexpr std::size_t read_padding = 64;

/// Size limit of read(), in bytes; 256 MiB by default. Set it once at start. While a document is
/// read, working memory takes up to 14 times its size, and the tree up to 32 times.
ZQ_EXPORT std::size_t max_document_size() noexcept;
ZQ_EXPORT void set_max_document_size(std::size_t bytes) noexcept;

/// Compact JSON text with the members in the map's order. Numbers read back as the same number of
/// the same type (1.0 is written as "1.0"). Throws std::runtime_error for what JSON cannot express
/// (NaN, infinity, strings that are not UTF-8) and for nesting deeper than max_depth.
ZQ_EXPORT std::string write(const Value& value);
/// As above, appended to `out`, which an exception leaves unchanged.
ZQ_EXPORT void write_to(const Value& value, std::string& out);

/// Member access without exceptions. Returns false (or null), and leaves `out` unchanged, if `key`
/// is missing, has another type, or holds a number that does not fit.
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

/// Like object_get, but swaps the member's content with `out` instead of copying it. For an object
/// `out` may be `object` itself: the member's content then replaces it.
ZQ_EXPORT bool object_get_swap(Object& object, const std::string& key, std::string& out);
ZQ_EXPORT bool object_get_swap(Object& object, const std::string& key, Array& out);
ZQ_EXPORT bool object_get_swap(Object& object, const std::string& key, Object& out);

/// Member access that throws std::runtime_error, with a message that names the key and the problem.
ZQ_EXPORT const std::string& object_get_str_or_throw(const Object& object, const std::string& key);
ZQ_EXPORT int object_get_int_or_throw(const Object& object, const std::string& key);
ZQ_EXPORT std::int64_t object_get_int64_or_throw(const Object& object, const std::string& key);
ZQ_EXPORT std::uint64_t object_get_uint64_or_throw(const Object& object, const std::string& key);

}  // namespace json_spirit

// Callers use these two without the namespace.
using json_spirit::Array;
using json_spirit::Object;
