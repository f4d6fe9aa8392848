#pragma once

#include <string>
#include <string_view>

namespace zqpool::detail {

/// Standard Base64 with padding of at most 1 GiB.
std::string base64_encode(std::string_view bytes);

}  // namespace zqpool::detail
