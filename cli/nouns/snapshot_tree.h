#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "cli/command/command_context.h"

namespace zqpool::cli {

/// Finds out what a snapshot adds over the one before it. Called from several threads at once.
using Size_Of = std::function<Outcome(const std::string& snapshot_id, std::uint64_t& size)>;

/// Draws the snapshots of `root` in their order, each with what it adds; in other formats than the
/// table as records ("snapshot_id", "seq", "adds"). A snapshot that is listed several times counts
/// once. Snapshots whose size cannot be determined are reported and listed without one.
Exit_Code show_snapshot_tree(Command_Context& context, const std::string& root,
                             const Array& snapshots, const Size_Of& size_of);

}  // namespace zqpool::cli
