#include "service/volumes/volumes.h"

#include <limits>

#include "service/api/message.h"

namespace zqpool::service {

namespace {

const char* kind_text(Volume_Kind kind) {
  return kind == Volume_Kind::lun ? "lun" : "filesystem";
}

const char* kind_noun(Volume_Kind kind) {
  return kind == Volume_Kind::lun ? "LUN" : "filesystem";
}

// Statements that share their columns.

const std::string volumes_select =
    "SELECT v.number, v.pool, v.kind, v.name, v.size, v.next_seq, v.origin, v.created "
    "FROM volume v ";
const std::string volume_by_name =
    volumes_select + "WHERE v.pool = ? AND v.kind = ? AND v.name = ?";
const std::string volume_of_number = volumes_select + "WHERE v.number = ?";
const std::string volumes_of_pool =
    volumes_select + "WHERE v.pool = ? AND v.kind = ? ORDER BY v.number";
const std::string clones_of_volume =
    volumes_select +
    "JOIN volume_snapshot s ON s.number = v.origin WHERE s.volume = ? ORDER BY v.number LIMIT 1";
const std::string clones_of_snapshot =
    volumes_select + "WHERE v.origin = ? ORDER BY v.number LIMIT 1";

const std::string snapshots_select =
    "SELECT s.number, s.id, s.volume, s.seq, s.recyclable, s.created FROM volume_snapshot s ";
const std::string snapshot_by_id =
    snapshots_select +
    "JOIN volume v ON v.number = s.volume WHERE s.id = ?3 AND v.pool = ?1 AND v.kind = ?2";
const std::string snapshot_of_number = snapshots_select + "WHERE s.number = ?";
const std::string snapshots_of_volume = snapshots_select + "WHERE s.volume = ? ORDER BY s.seq";
const std::string oldest_reclaimable =
    snapshots_select +
    "JOIN volume v ON v.number = s.volume WHERE v.pool = ? AND s.recyclable = 1 "
    "AND NOT EXISTS (SELECT 1 FROM volume c WHERE c.origin = s.number) "
    "AND NOT EXISTS (SELECT 1 FROM volume_use u WHERE u.snapshot = s.number) "
    "ORDER BY s.created, s.number LIMIT 1";

Volume read_volume(const Statement& row) {
  Volume out;
  out.number = row.integer(0);
  out.pool = row.text(1);
  out.kind = row.text(2) == "lun" ? Volume_Kind::lun : Volume_Kind::filesystem;
  out.name = row.text(3);
  if (!row.is_null(4)) out.size = row.integer(4);
  out.next_seq = row.integer(5);
  if (!row.is_null(6)) out.origin = row.integer(6);
  out.created = row.text(7);
  return out;
}

Snapshot read_snapshot(const Statement& row) {
  return {row.integer(0), row.text(1),         row.integer(2),
          row.integer(3), row.integer(4) != 0, row.text(5)};
}

std::optional<Volume> first_volume(Statement&& row) {
  if (!row.next()) return std::nullopt;
  return read_volume(row);
}

std::optional<Snapshot> first_snapshot(Statement&& row) {
  if (!row.next()) return std::nullopt;
  return read_snapshot(row);
}

std::string first_text(Statement&& row) {
  return row.next() ? row.text(0) : "";
}

void change_used(Connection& db, const std::string& pool, std::int64_t by) {
  db.execute("UPDATE volume_pool SET used_size = used_size + ? WHERE uuid = ?", by, pool);
}

/// Records a deletion, so that deleting again is no error.
void remember(Connection& db, const std::string& pool, const std::string& what,
              const std::string& name) {
  db.execute("INSERT OR IGNORE INTO volume_gone (pool, what, name) VALUES (?, ?, ?)", pool, what,
             name);
}

void forget(Connection& db, const std::string& pool, const std::string& what,
            const std::string& name) {
  db.execute("DELETE FROM volume_gone WHERE pool = ? AND what = ? AND name = ?", pool, what, name);
}

bool is_remembered(Connection& db, const std::string& pool, const std::string& what,
                   const std::string& name) {
  return db.has_row("SELECT 1 FROM volume_gone WHERE pool = ? AND what = ? AND name = ?", pool,
                    what, name);
}

std::string snapshot_what(Volume_Kind kind) {
  return kind_text(kind) + std::string(" snapshot");
}

/// Removes the snapshot without further checks.
void remove_snapshot(Connection& db, const Snapshot& snapshot) {
  const Volume volume = volume_by_number(db, snapshot.volume);
  change_used(db, volume.pool, -Extent_Map(db, volume.number).drop_snapshot(snapshot.seq));
  db.execute("DELETE FROM volume_snapshot WHERE number = ?", snapshot.number);
  remember(db, volume.pool, snapshot_what(volume.kind), snapshot.id);
}

/// Removes the volume and its snapshots without further checks.
void remove_volume(Connection& db, const Volume& volume) {
  for (const Snapshot& snapshot : snapshots_of(db, volume)) {
    remember(db, volume.pool, snapshot_what(volume.kind), snapshot.id);
  }
  change_used(db, volume.pool, -Extent_Map(db, volume.number).drop_all());
  db.execute("DELETE FROM volume WHERE number = ?", volume.number);
  remember(db, volume.pool, kind_text(volume.kind), volume.name);
}

}  // namespace

// ---- pools

Volume_Pool need_volume_pool(Connection& db, const std::string& uuid, Access access) {
  Statement row(db,
                "SELECT p.uuid, c.name, c.state, p.total_size, p.used_size FROM volume_pool p "
                "JOIN catalog_pool c ON c.uuid = p.uuid WHERE p.uuid = ?",
                uuid);
  if (!row.next()) throw Request_Error(404, "there is no pool '" + uuid + "' that keeps volumes");
  Volume_Pool out{row.text(0), row.text(1), row.text(2), row.integer(3), row.integer(4)};
  if (access == Access::write && (out.state == "readonly" || out.state == "offline")) {
    throw Request_Error(409, "pool '" + uuid + "' is " + out.state);
  }
  return out;
}

void set_volume_pool(Connection& db, const std::string& uuid, std::int64_t total_size) {
  Statement row(db, "SELECT used_size FROM volume_pool WHERE uuid = ?", uuid);
  if (row.next() && row.integer(0) > total_size) {
    throw Request_Error(
        422, "pool '" + uuid + "' has " + std::to_string(row.integer(0)) + " bytes in use");
  }
  db.execute(
      "INSERT INTO volume_pool (uuid, total_size) VALUES (?1, ?2) "
      "ON CONFLICT (uuid) DO UPDATE SET total_size = ?2",
      uuid, total_size);
}

std::vector<std::string> make_room(Connection& db, const std::string& pool, std::int64_t bytes) {
  std::vector<std::string> reclaimed;
  while (true) {
    const std::int64_t room =
        db.integer("SELECT total_size - used_size FROM volume_pool WHERE uuid = ?", pool);
    if (room >= bytes) return reclaimed;
    const auto oldest = first_snapshot({db, oldest_reclaimable, pool});
    if (!oldest) {
      throw Request_Error(507, "pool '" + pool + "' has " + std::to_string(room) + " bytes free, " +
                                   std::to_string(bytes) + " are needed");
    }
    remove_snapshot(db, *oldest);
    reclaimed.push_back(oldest->id);
  }
}

// ---- volumes

std::optional<Volume> find_volume(Connection& db, const std::string& pool, Volume_Kind kind,
                                  const std::string& name) {
  return first_volume({db, volume_by_name, pool, kind_text(kind), name});
}

Volume need_volume(Connection& db, const std::string& pool, Volume_Kind kind,
                   const std::string& name) {
  std::optional<Volume> out = find_volume(db, pool, kind, name);
  if (!out)
    throw Request_Error(404, std::string("there is no ") + kind_noun(kind) + " '" + name + "'");
  return *std::move(out);
}

Volume volume_by_number(Connection& db, std::int64_t number) {
  return first_volume({db, volume_of_number, number}).value();
}

std::vector<Volume> volumes_of(Connection& db, const std::string& pool, Volume_Kind kind) {
  std::vector<Volume> out;
  for (Statement row(db, volumes_of_pool, pool, kind_text(kind)); row.next();) {
    out.push_back(read_volume(row));
  }
  return out;
}

std::string described(const Volume& volume) {
  return kind_noun(volume.kind) + std::string(" '") + volume.name + '\'';
}

Volume create_volume(Connection& db, const Volume& wanted) {
  if (find_volume(db, wanted.pool, wanted.kind, wanted.name)) {
    throw Request_Error(409, "there is a " + described(wanted) + " already");
  }
  db.execute(
      "INSERT INTO volume (pool, kind, name, size, next_seq, origin, created) "
      "VALUES (?, ?, ?, ?, ?, ?, ?)",
      wanted.pool, kind_text(wanted.kind), wanted.name, wanted.size, wanted.next_seq, wanted.origin,
      wanted.created);
  forget(db, wanted.pool, kind_text(wanted.kind), wanted.name);
  return need_volume(db, wanted.pool, wanted.kind, wanted.name);
}

Volume clone_volume(Connection& db, const Snapshot& origin, const Volume& wanted) {
  Volume clone = wanted;
  clone.origin = origin.number;
  clone = create_volume(db, clone);
  Extent_Map(db, clone.number).copy_from(origin.volume, origin.seq);
  return clone;
}

void delete_volume(Connection& db, const Volume& volume, bool force) {
  if (const auto clone = first_volume({db, clones_of_volume, volume.number})) {
    throw Request_Error(409,
                        described(*clone) + " is a clone of a snapshot of " + described(volume));
  }
  if (!force) {
    const std::string use = use_of(db, volume);
    if (!use.empty()) throw Request_Error(409, described(volume) + " is " + use);
    // Prefer a snapshot that is in use: it explains more.
    Statement row(db,
                  "SELECT s.id, u.how FROM volume_snapshot s "
                  "LEFT JOIN volume_use u ON u.snapshot = s.number "
                  "WHERE s.volume = ? ORDER BY u.how IS NULL, s.seq LIMIT 1",
                  volume.number);
    if (row.next()) {
      throw Request_Error(409, described(volume) + " has snapshot '" + row.text(0) + '\'' +
                                   (row.is_null(1) ? "" : ", which is " + row.text(1)));
    }
  }
  remove_volume(db, volume);
}

Snapshot roll_back_volume(Connection& db, const Volume& volume) {
  const std::vector<Snapshot> snapshots = snapshots_of(db, volume);
  if (snapshots.empty()) {
    throw Request_Error(409, described(volume) + " has no snapshot to roll back to");
  }
  change_used(db, volume.pool, -Extent_Map(db, volume.number).roll_back());
  return snapshots.back();
}

std::string use_of(Connection& db, const Volume& volume) {
  return first_text({db, "SELECT how FROM volume_use WHERE volume = ? LIMIT 1", volume.number});
}

std::vector<std::string> write_volume(Connection& db, const Volume& volume, std::int64_t start,
                                      std::int64_t length, Reclaim reclaim) {
  need_range(volume, start, length);
  Extent_Map map(db, volume.number);
  change_used(db, volume.pool, -map.clear(start, length));
  std::vector<std::string> reclaimed = make_room(db, volume.pool, length);
  if (reclaim == Reclaim::no && !reclaimed.empty()) {
    throw Request_Error(422, "pool '" + volume.pool + "' is full");
  }
  map.add(start, length);
  change_used(db, volume.pool, length);
  return reclaimed;
}

void discard_volume(Connection& db, const Volume& volume, std::int64_t start, std::int64_t length) {
  need_range(volume, start, length);
  change_used(db, volume.pool, -Extent_Map(db, volume.number).clear(start, length));
}

void need_range(const Volume& volume, std::int64_t start, std::int64_t length) {
  const std::int64_t size = volume.size.value_or(std::numeric_limits<std::int64_t>::max());
  if (length <= 0) throw Request_Error(422, "length: must not be 0");
  if (start < 0 || start > size || length > size - start) {
    throw Request_Error(422, "offset: the range ends beyond " + described(volume));
  }
}

// ---- snapshots

std::optional<Snapshot> find_snapshot(Connection& db, const std::string& pool, Volume_Kind kind,
                                      const std::string& id) {
  return first_snapshot({db, snapshot_by_id, pool, kind_text(kind), id});
}

Snapshot need_snapshot(Connection& db, const std::string& pool, Volume_Kind kind,
                       const std::string& id) {
  std::optional<Snapshot> out = find_snapshot(db, pool, kind, id);
  if (!out) {
    throw Request_Error(404, "there is no snapshot '" + id + "' of a " + kind_noun(kind));
  }
  return *std::move(out);
}

Snapshot snapshot_by_number(Connection& db, std::int64_t number) {
  return first_snapshot({db, snapshot_of_number, number}).value();
}

std::vector<Snapshot> snapshots_of(Connection& db, const Volume& volume) {
  std::vector<Snapshot> out;
  for (Statement row(db, snapshots_of_volume, volume.number); row.next();) {
    out.push_back(read_snapshot(row));
  }
  return out;
}

Snapshot create_snapshot(Connection& db, const Volume& volume, const Snapshot& wanted) {
  // Clients read it as 32 bits.
  constexpr std::int64_t last_seq = std::numeric_limits<std::int32_t>::max();
  const std::int64_t next = volume_by_number(db, volume.number).next_seq;
  const std::int64_t seq = wanted.seq == 0 ? next : wanted.seq;
  if (seq < next || seq > last_seq) {
    throw Request_Error(409, described(volume) + " takes a snapshot number from " +
                                 std::to_string(next) + " to " + std::to_string(last_seq));
  }
  if (db.has_row("SELECT 1 FROM volume_snapshot WHERE id = ?", wanted.id)) {
    throw Request_Error(409, "there is a snapshot '" + wanted.id + "' already");
  }
  db.execute(
      "INSERT INTO volume_snapshot (id, volume, seq, recyclable, created) VALUES (?, ?, ?, ?, ?)",
      wanted.id, volume.number, seq, wanted.recyclable, wanted.created);
  db.execute("UPDATE volume SET next_seq = ? WHERE number = ?", seq + 1, volume.number);
  forget(db, volume.pool, snapshot_what(volume.kind), wanted.id);
  return need_snapshot(db, volume.pool, volume.kind, wanted.id);
}

void raise_next_seq(Connection& db, const Volume& volume, std::int64_t seq) {
  if (seq < volume.next_seq) {
    throw Request_Error(422, "next_seq: must be " + std::to_string(volume.next_seq) + " or more");
  }
  db.execute("UPDATE volume SET next_seq = ? WHERE number = ?", seq, volume.number);
}

void delete_snapshot(Connection& db, const Snapshot& snapshot, bool delete_empty) {
  const std::string use =
      first_text({db, "SELECT how FROM volume_use WHERE snapshot = ? LIMIT 1", snapshot.number});
  if (!use.empty()) throw Request_Error(409, "snapshot '" + snapshot.id + "' is " + use);
  if (const auto clone = first_volume({db, clones_of_snapshot, snapshot.number})) {
    throw Request_Error(409, described(*clone) + " is a clone of snapshot '" + snapshot.id + '\'');
  }
  const Volume volume = volume_by_number(db, snapshot.volume);
  if (delete_empty && snapshots_of(db, volume).size() == 1 && use_of(db, volume).empty() &&
      Extent_Map(db, volume.number).is_unchanged_since(snapshot.seq)) {
    remove_volume(db, volume);
  } else {
    remove_snapshot(db, snapshot);
  }
}

bool was_volume_deleted(Connection& db, const std::string& pool, Volume_Kind kind,
                        const std::string& name) {
  return is_remembered(db, pool, kind_text(kind), name);
}

bool was_snapshot_deleted(Connection& db, const std::string& pool, Volume_Kind kind,
                          const std::string& id) {
  return is_remembered(db, pool, snapshot_what(kind), id);
}

}  // namespace zqpool::service
