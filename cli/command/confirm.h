#pragma once

#include <string>
#include <vector>

namespace zqpool::cli {

/// Asks on the terminal, unless `yes`, before something is destroyed: "DOING OBJECT?" or "DOING 3
/// KIND?". Nothing is asked about no objects. Ends the command with a Command_Error when the user
/// declines, and with a Usage_Error when there is no terminal to ask on.
void confirm(bool yes, const std::string& doing, const std::vector<std::string>& objects,
             const std::string& kind);

}  // namespace zqpool::cli
