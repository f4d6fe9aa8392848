#pragma once

#include <optional>
#include <string>
#include <string_view>

// Percent-encoding of URLs (RFC 3986).

namespace zqpool::text {

/// Whether `text` begins with "%" and two hexadecimal digits.
bool starts_with_percent_encoding(std::string_view text) noexcept;

/// Appends "%" and two upper-case digits.
void append_percent_encoded(std::string& out, char c);

/// Decodes a name or value of a query string: "%XX" is a byte, "+" a blank. Returns nothing if a
/// "%" is not followed by two hexadecimal digits.
std::optional<std::string> decode_query_text(std::string_view text);

}  // namespace zqpool::text
