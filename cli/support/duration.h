#pragma once

#include <chrono>
#include <string>

namespace zqpool::cli {

/// Reads "90" (seconds), "90s", "1m30s", "2h", "250ms". Units go from large to small, each at most
/// once. Throws Usage_Error for anything else and for more than 24 days, the limit of poll().
std::chrono::milliseconds parse_duration(const std::string& text);

}  // namespace zqpool::cli
