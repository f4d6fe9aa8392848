#pragma once

#include <string>
#include <string_view>

namespace zqpool::detail {

/// Encodes at most 1 GiB as standard Base64 with padding.
std::string base64_encode(std::string_view bytes);

}  // namespace zqpool::detail
