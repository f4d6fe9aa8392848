#pragma once

#include <string>

#include "utils/support/json_util.h"

namespace zqpool::detail {

/// Reads required members of an object, without exceptions. Does not own the object.
///
/// @code
///   Member_Reader read(answer.get_obj());
///   return read("lun_num", lun_num) || ZQ_ERROR("Failed to export: %s\n", read.error());
/// @endcode
class Member_Reader {
 public:
  explicit Member_Reader(const Object& object) noexcept : object_(object) {}

  /// Copies member `key`. False, with `out` unchanged, if it is missing, of another type or out of
  /// range.
  template <typename T>
  bool operator()(const char* key, T& out) {
    if (object_read(object_, key, out)) return true;
    error_ = member_error<T>(object_, key);
    return false;
  }

  /// Why the last failed read failed: the key, the type wanted and the type found.
  const char* error() const noexcept { return error_.c_str(); }

 private:
  const Object& object_;
  std::string error_;
};

}  // namespace zqpool::detail
