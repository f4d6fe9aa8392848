#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "service/store/database.h"
#include "service/volumes/extent_map.h"

namespace zqpool::service {

// Pools that keep volumes: LUNs and filesystems, their snapshots and clones, and the space they
// take.
//
// Space is allocated by writing; a volume's size reserves none. A snapshot takes none by itself,
// but keeps the data it references when the volume is overwritten. When a pool is full, recyclable
// snapshots are reclaimed, the oldest first.
//
// All functions throw Request_Error with a text for the client. Those that change the state need a
// write transaction.

enum class Volume_Kind { lun, filesystem };

struct Volume {
  std::int64_t number = 0;  ///< of its row
  std::string pool;
  Volume_Kind kind = Volume_Kind::lun;
  std::string name;                    ///< for a LUN, its identifier
  std::optional<std::int64_t> size;    ///< absent: as large as the pool
  std::int64_t next_seq = 1;           ///< of its next snapshot
  std::optional<std::int64_t> origin;  ///< number of the snapshot it was cloned from
  std::string created;
};

struct Snapshot {
  std::int64_t number = 0;  ///< of its row
  std::string id;
  std::int64_t volume = 0;
  std::int64_t seq = 0;  ///< from 1; never used again in its volume
  bool recyclable = false;
  std::string created;
};

// ---- pools

struct Volume_Pool {
  std::string uuid;
  std::string name;
  std::string state;
  std::int64_t total_size = 0;
  std::int64_t used_size = 0;
};

/// 404 when there is no such pool; 409 when it is to be changed and is readonly or offline.
Volume_Pool need_volume_pool(Connection& db, const std::string& uuid, Access access);
/// Makes the pool, or gives it another size: 422 when more is in use.
void set_volume_pool(Connection& db, const std::string& uuid, std::int64_t total_size);
/// Reclaims snapshots until `bytes` are free. 507 when that is not enough. Returns the identifiers
/// of the snapshots.
std::vector<std::string> make_room(Connection& db, const std::string& pool, std::int64_t bytes);

// ---- volumes

std::optional<Volume> find_volume(Connection& db, const std::string& pool, Volume_Kind kind,
                                  const std::string& name);
/// 404 when there is none.
Volume need_volume(Connection& db, const std::string& pool, Volume_Kind kind,
                   const std::string& name);
Volume volume_by_number(Connection& db, std::int64_t number);
/// In the order of their creation.
std::vector<Volume> volumes_of(Connection& db, const std::string& pool, Volume_Kind kind);
/// "LUN 'x'", "filesystem 'x'": for messages.
std::string described(const Volume& volume);

/// Makes an empty volume; `wanted` has everything but its number. 409 when there is one of that
/// name.
Volume create_volume(Connection& db, const Volume& wanted);
/// As above, with the content of a snapshot, which cannot be deleted while the clone is there.
Volume clone_volume(Connection& db, const Snapshot& origin, const Volume& wanted);
/// Deletes a volume with everything that belongs to it. 409 when another one was cloned from one of
/// its snapshots; unless `force` also when it has snapshots, or it or one of them is in use.
void delete_volume(Connection& db, const Volume& volume, bool force);
/// Takes the volume back to its newest snapshot, which is returned. 409 when it has none.
Snapshot roll_back_volume(Connection& db, const Volume& volume);
/// How the volume itself is used ("exported"), "" when it is not.
std::string use_of(Connection& db, const Volume& volume);

/// Whether a write may reclaim snapshots. Loading a scenario must not.
enum class Reclaim { yes, no };

/// Writes a range that lies within the volume's size. 507 when the pool is full. Returns the
/// identifiers of the snapshots that were reclaimed.
std::vector<std::string> write_volume(Connection& db, const Volume& volume, std::int64_t start,
                                      std::int64_t length, Reclaim reclaim);
/// Frees a range, as a guest's "discard" does.
void discard_volume(Connection& db, const Volume& volume, std::int64_t start, std::int64_t length);
/// 422 when the range is empty or does not lie within the volume.
void need_range(const Volume& volume, std::int64_t start, std::int64_t length);

// ---- snapshots

/// 404 when there is none on a volume of this kind.
Snapshot need_snapshot(Connection& db, const std::string& pool, Volume_Kind kind,
                       const std::string& id);
std::optional<Snapshot> find_snapshot(Connection& db, const std::string& pool, Volume_Kind kind,
                                      const std::string& id);
Snapshot snapshot_by_number(Connection& db, std::int64_t number);
/// In the order of their "seq".
std::vector<Snapshot> snapshots_of(Connection& db, const Volume& volume);
/// `wanted` has "id", "recyclable" and "created", and the "seq" when it is not 0; that must not be
/// below the volume's next one.
Snapshot create_snapshot(Connection& db, const Volume& volume, const Snapshot& wanted);
/// Makes `seq` the volume's next one. 422 when it is below that.
void raise_next_seq(Connection& db, const Volume& volume, std::int64_t seq);
/// With `delete_empty` the volume goes, too, when it has no other snapshot, is not in use, and was
/// not written to since this one. 409 when the snapshot is in use or has clones.
void delete_snapshot(Connection& db, const Snapshot& snapshot, bool delete_empty);

/// Whether there was such a volume, or a snapshot of such a volume, that was deleted: deleting it
/// again is no error.
bool was_volume_deleted(Connection& db, const std::string& pool, Volume_Kind kind,
                        const std::string& name);
bool was_snapshot_deleted(Connection& db, const std::string& pool, Volume_Kind kind,
                          const std::string& id);

}  // namespace zqpool::service
