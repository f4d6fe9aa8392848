#pragma once

#include <string_view>

namespace zqpool::text {

/// Whether `text` is a UUID: 8-4-4-4-12 hexadecimal digits of either case.
bool is_uuid(std::string_view text) noexcept;

}  // namespace zqpool::text
