#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/json/json_spirit.h"
#include "utils/support/log.h"

// The order of a parent's snapshots, and what each adds to the one before it, whatever the parent
// is. Messages are written in the name of `place`.

namespace zqpool::detail {

/// A snapshot and where its neighbours are to be had.
struct Snapshot_Chain {
  /// Gets the description of the snapshot itself.
  std::function<bool(Object& current)> describe;
  /// Asks the service for all snapshots of a parent.
  std::function<bool(const std::string& parent_id, json_spirit::Value& answer)> list;
  /// Logs that an element of that list has no "seq".
  std::function<void(const json_spirit::Value& answer, const std::string& parent_id)> complain;
};

/// Puts the description of the snapshot right before `snapshot_id` into `info`. The result does not
/// tell whether there is one, `info` does, if it was empty before.
bool get_previous_snapshot(const Place& place, const Snapshot_Chain& chain,
                           const std::string& snapshot_id, Object& info);

/// What the snapshot described by `current` adds over the one described by `previous` (empty: there
/// is none). False, after a message, when one of them does not tell its sizes.
bool added_size(const Place& place, const Object& current, const Object& previous,
                std::uint64_t& size);

}  // namespace zqpool::detail
