#pragma once

#include <string>
#include <string_view>

namespace zqpool::service {

/// The text as one line of printable ASCII: a backslash, a double quote and every other byte become
/// \\, \" and \xHH. Nothing in it can end a line or a quoted field of a log.
std::string printable(std::string_view bytes);

/// ASCII only; other bytes stay.
std::string lower_case(std::string_view text);

/// A fresh random UUID, lower case. Throws std::runtime_error when the system gives no randomness.
std::string random_uuid();

/// "2026-11-21T09:30:00.123Z", now.
std::string utc_now();

}  // namespace zqpool::service
