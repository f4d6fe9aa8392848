#pragma once

#include <optional>
#include <string_view>

namespace zqpool::detail {

/// RFC 3986's characters that never need percent-encoding.
inline constexpr std::string_view unreserved_characters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

/// An IPv6 address with the interface on which a link-local one is meant.
struct IPv6_Literal {
  std::string_view address;
  std::string_view zone;  ///< "" when there is none
};

/// Reads "::1" or "fe80::1%eth0", without brackets; the parts point into `text`.
std::optional<IPv6_Literal> parse_ipv6_literal(std::string_view text);

}  // namespace zqpool::detail
