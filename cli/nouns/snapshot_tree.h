#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "cli/command/command_context.h"

namespace zqpool::cli {

/// Finds out what a snapshot adds over the one before it.
using Size_Of =
    std::function<Outcome(const Target&, const std::string& snapshot_id, std::uint64_t& size)>;

/// Draws the snapshots of `root` in their order, each with what it adds; as records ("snapshot_id",
/// "seq", "adds") in other formats than the table. A snapshot that is listed several times is one.
/// What a size could not be found out of is told, and shown without it.
Exit_Code show_chain(Session& session, const std::string& root, const Array& snapshots,
                     const Size_Of& size_of);

/// How the library's messages begin when it does not find the snapshot that is asked about.
constexpr const char* no_current_snapshot =
    "Failed to get previous snapshot: failed to get current snapshot info";
constexpr const char* no_snapshot_to_measure = "Failed to calculate snapshot size: failed to get ";

/// What comes of an operation that looks for the snapshot before another: judged by `previous`,
/// because the operation's own result does not tell.
Outcome judge_previous(Outcome outcome, const Object& previous, const Said& said);

/// Tells of a size that was raised to 0, which the operation's result does not.
Outcome judge_size(Outcome outcome, const Said& said, const std::string& snapshot_id);

}  // namespace zqpool::cli
