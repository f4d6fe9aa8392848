#pragma once

#include <functional>

#include "platform/json/json_spirit.h"
#include "service/api/request_fields.h"
#include "service/store/database.h"
#include "service/volumes/volumes.h"

namespace zqpool::service {

// The content and snapshots of a volume in a scenario: what was done to it, in order.
//
//   "history": [{"write": {"offset": 0, "length": 65536}},
//               {"snapshot": {"snapshot_id": "...", "seq": 1, "recycle": true}},
//               {"discard": {"offset": 0, "length": 4096}}],
//   "next_seq": 5
//
// "seq" and "next_seq" are present only where they differ from the next number.

/// Replays the entry's members "history" and "next_seq" on a new volume. `load_more` reads further
/// members of a snapshot. Throws Request_Error with the place.
void load_history(Connection& db, const Volume& volume, Request_Fields& entry,
                  const std::function<void(Request_Fields&, const Snapshot&)>& load_more);

/// Adds the members from which load_history() makes an equal volume. Data that was overwritten
/// before any snapshot referenced it is left out.
void dump_history(Connection& db, const Volume& volume, Object& entry,
                  const std::function<void(Object&, const Snapshot&)>& dump_more);

}  // namespace zqpool::service
