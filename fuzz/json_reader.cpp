// Bodies come from services: no text may break the reader, a refused text leaves the value
// unchanged, and an accepted one reads the same again after it was written. Accessors may throw,
// but not crash.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "fuzz/check.h"
#include "platform/json/json_dump.h"
#include "platform/json/json_spirit.h"

namespace {

using json_spirit::Value;

template <typename Get>
bool gives(Get get) {
  try {
    get();
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

// Accessors that throw and those that do not must agree on each member.
void check_member(const json_spirit::Object& object, const std::string& key, const Value& value) {
  std::string text;
  bool flag = false;
  int narrow = 0;
  std::int64_t wide = 0;
  std::uint64_t natural = 0;
  double real = 0;
  check(object_get(object, key, text) == gives([&] { value.get_str(); }));
  check(object_get(object, key, flag) == gives([&] { value.get_bool(); }));
  check(object_get(object, key, narrow) == gives([&] { value.get_int(); }));
  check(object_get(object, key, wide) == gives([&] { value.get_int64(); }));
  check(object_get(object, key, natural) == gives([&] { value.get_uint64(); }));
  check(object_get(object, key, real) == gives([&] { value.get_real(); }));
  check((object_get_array(object, key) != nullptr) == gives([&] { value.get_array(); }));
  check((object_get_object(object, key) != nullptr) == gives([&] { value.get_obj(); }));
  check(gives([&] { object_get_str_or_throw(object, key); }) == gives([&] { value.get_str(); }));
  check(gives([&] { object_get_int_or_throw(object, key); }) == gives([&] { value.get_int(); }));
}

void check_members(const Value& value) {
  if (value.type() == json_spirit::array_type) {
    for (const Value& element : value.get_array())
      check_members(element);
  } else if (value.type() == json_spirit::obj_type) {
    for (const auto& [key, member] : value.get_obj()) {
      check_member(value.get_obj(), key, member);
      check_members(member);
    }
  }
}

Value reread(const std::string& text) {
  Value value;
  check(json_spirit::read(text, value));
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  text.shrink_to_fit();
  Value value = "before";
  std::string error;
  const bool good = json_spirit::read(text, value, error);
  check(error.empty() == good);

  // Reading in place gives the same, whatever lies behind the end.
  std::string roomy = text + std::string(json_spirit::read_padding, ']');
  roomy.resize(text.size());
  Value in_place = "before";
  check(json_spirit::read(roomy, in_place) == good);
  check(in_place == value);
  if (!good) {
    check(value == Value("before"));
    return 0;
  }

  const std::string written = json_spirit::write(value);
  check(reread(written) == value);
  check(json_spirit::write(reread(written)) == written);
  check(JSON_Dump(value, false).str() == written);
  check(reread(JSON_Dump(value, true).str()) == value);
  check(Value(value) == value);
  check_members(value);
  return 0;
}
