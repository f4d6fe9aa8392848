#pragma once

#include <chrono>
#include <string>

namespace zqpool::cli {

/// Reads "90" (seconds), "90s", "1m30s", "2h", "250ms". Units may follow each other from large to
/// small, each once. Throws Usage_Error for anything else and for more than 24 days, which is what
/// the milliseconds of poll() can hold.
std::chrono::milliseconds parse_duration(const std::string& text);

}  // namespace zqpool::cli
