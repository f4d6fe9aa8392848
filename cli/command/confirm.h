#pragma once

#include <string>
#include <vector>

namespace zqpool::cli {

/// Asks on the terminal, unless `yes`, before something is destroyed: "DOING OBJECT?" or "DOING 3
/// KIND?". Does not ask when there are no objects. Throws Command_Error when the user declines, and
/// Usage_Error when there is no terminal.
void confirm(bool yes, const std::string& doing, const std::vector<std::string>& objects,
             const std::string& kind);

}  // namespace zqpool::cli
