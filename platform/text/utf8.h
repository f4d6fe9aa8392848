#pragma once

#include <string_view>

namespace zqpool::text {

/// Whether `text` is well-formed UTF-8: no overlong form, no surrogate, nothing above U+10FFFF.
bool is_utf8(std::string_view text) noexcept;

}  // namespace zqpool::text
