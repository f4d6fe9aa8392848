#include "service/api/request_fields.h"
#include "service/api/text.h"
#include "service/filesystem/filesystems.h"
#include "service/volumes/history.h"

namespace zqpool::service {

namespace {

constexpr Volume_Kind kind = Volume_Kind::filesystem;

// ---- image pools

void clear_image_pools(Connection& db) {
  db.execute(
      "DELETE FROM volume_pool WHERE uuid IN (SELECT uuid FROM catalog_pool WHERE type = 'image')");
}

void load_image_pool(Connection& db, Request_Fields& fields) {
  const std::string uuid = fields.uuid("uuid");
  if (!db.has_row("SELECT 1 FROM catalog_pool WHERE uuid = ? AND type = 'image'", uuid)) {
    fields.refuse("uuid", "there is no pool '" + uuid + "' of type image");
  }
  const std::int64_t size = fields.count("size");
  if (size == 0) fields.refuse("size", "must not be 0");
  set_volume_pool(db, uuid, size);
}

Array dump_image_pools(Connection& db) {
  Array out;
  for (Statement row(db,
                     "SELECT p.uuid, p.total_size FROM volume_pool p "
                     "JOIN catalog_pool c ON c.uuid = p.uuid WHERE c.type = 'image' "
                     "ORDER BY p.uuid");
       row.next();) {
    out.emplace_back(Object{{"uuid", row.text(0)}, {"size", row.integer(1)}});
  }
  return out;
}

// ---- filesystems

void clear_filesystems(Connection& db) {
  db.execute("DELETE FROM volume WHERE kind = 'filesystem'");
}

void load_filesystem(Connection& db, Request_Fields& fields) {
  Volume wanted;
  wanted.kind = kind;
  wanted.pool = need_volume_pool(db, fields.uuid("pool_uuid"), Access::read).uuid;
  wanted.name = read_filesystem_name(fields, "name");
  if (const auto before = find_volume(db, wanted.pool, kind, wanted.name)) {
    delete_volume(db, *before, true);
  }
  wanted.created = read_created(fields);
  std::optional<Snapshot> origin;
  if (fields.has("origin")) {
    origin = find_snapshot(db, wanted.pool, kind, lower_case(fields.uuid("origin")));
    if (!origin) fields.refuse("origin", "no filesystem before this one has that snapshot");
  }
  std::optional<std::string> mount_point;
  if (fields.has("mount_point")) mount_point = read_mount_point(fields, "mount_point");
  const bool mounted = fields.flag_or("mounted", false);
  if (mounted && !mount_point) fields.refuse("mount_point", "is missing", 400);
  const Filesystem filesystem = make_filesystem(db, wanted, origin, mount_point, mounted);
  load_history(db, filesystem.volume, fields, [](Request_Fields&, const Snapshot&) {});
}

std::string identity_of_filesystem(const Object& entry) {
  // No member contains a zero character.
  return lower_case(json_spirit::object_get_str_or_throw(entry, "pool_uuid")) + '\0' +
         json_spirit::object_get_str_or_throw(entry, "name");
}

Array dump_filesystems(Connection& db) {
  Array out;
  // A clone comes after its origin.
  for (Statement row(db, "SELECT pool, name FROM volume WHERE kind = 'filesystem' ORDER BY number");
       row.next();) {
    const Filesystem filesystem = need_filesystem(db, row.text(0), row.text(1));
    const Volume& volume = filesystem.volume;
    Object entry{{"pool_uuid", volume.pool},
                 {"name", volume.name},
                 {"created", volume.created},
                 {"mounted", filesystem.mounted}};
    if (filesystem.mount_point) entry.emplace("mount_point", *filesystem.mount_point);
    if (volume.origin) entry.emplace("origin", snapshot_by_number(db, *volume.origin).id);
    dump_history(db, volume, entry, [](Object&, const Snapshot&) {});
    out.emplace_back(std::move(entry));
  }
  return out;
}

}  // namespace

void add_filesystem_sections(Scenario& scenario) {
  scenario.add(
      {"image_pools", clear_image_pools, load_image_pool, identity_by_uuid, dump_image_pools});
  scenario.add({"filesystems", clear_filesystems, load_filesystem, identity_of_filesystem,
                dump_filesystems});
}

}  // namespace zqpool::service
