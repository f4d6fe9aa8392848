#include "service/filesystem/filesystems.h"

#include <algorithm>

#include "service/api/paths.h"
#include "service/api/request_fields.h"
#include "service/api/text.h"
#include "service/volumes/extent_map.h"

namespace zqpool::service {

namespace {

constexpr Volume_Kind kind = Volume_Kind::filesystem;
constexpr std::size_t max_name_size = 255;

/// A member; an empty one counts as absent.
std::optional<std::string> said(Request_Fields& fields, const std::string& key) {
  std::optional<std::string> text = fields.optional_text(key);
  if (text && text->empty()) text.reset();
  return text;
}

/// A request to create a filesystem.
struct Wanted {
  Volume volume;
  std::optional<Snapshot> origin;
  std::optional<std::string> mount_point;
};

Wanted read_wanted(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  Wanted out;
  out.volume.pool = need_volume_pool(db, fields.text("pool_id"), Access::write).uuid;
  out.volume.kind = kind;
  out.volume.name = read_filesystem_name(fields, "name");
  out.volume.created = utc_now();
  if (const auto snapshot = said(fields, "snapshot_id")) {
    out.origin = need_snapshot(db, out.volume.pool, kind, lower_case(*snapshot));
  }
  if (said(fields, "mount_point")) out.mount_point = read_mount_point(fields, "mount_point");
  return out;
}

/// Whether the filesystem was created by the same request and has not changed since.
bool is_as_wanted(Connection& db, const Filesystem& there, const Wanted& wanted) {
  std::optional<std::int64_t> origin;
  std::int64_t content = 0;
  if (wanted.origin) {
    origin = wanted.origin->number;
    const Chain_Sizes sizes = Extent_Map(db, wanted.origin->volume).sizes();
    content = sizes.snapshots.at(wanted.origin->seq).referenced;
  }
  if (there.volume.origin != origin || there.mount_point != wanted.mount_point ||
      there.mounted != wanted.mount_point.has_value() || there.volume.next_seq != 1) {
    return false;
  }
  // A write adds exclusive bytes, a discard takes referenced ones away.
  const Sizes now = Extent_Map(db, there.volume.number).sizes().head;
  return now.exclusive == 0 && now.referenced == content;
}

// ---- /zq/r/scsipool/fs

Response create_filesystem(Connection& db, Parsed_Request& request) {
  const Wanted wanted = read_wanted(db, request);
  if (const auto there = find_filesystem(db, wanted.volume.pool, wanted.volume.name)) {
    if (!is_as_wanted(db, *there, wanted)) {
      throw Request_Error(409, "there is a " + described(there->volume) + " already");
    }
    return json_response(filesystem_record(db, *there), 201);
  }
  const Filesystem made = make_filesystem(db, wanted.volume, wanted.origin, wanted.mount_point,
                                          wanted.mount_point.has_value());
  return json_response(filesystem_record(db, made), 201);
}

Response get_filesystems(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const Volume_Pool pool = need_volume_pool(db, query.needed_text("pool_id"), Access::read);
  const std::optional<std::string> name = query.text("name");
  Array out;
  if (name) {
    out.emplace_back(filesystem_record(db, need_filesystem(db, pool.uuid, *name)));
  } else {
    for (const Volume& volume : volumes_of(db, pool.uuid, kind)) {
      out.emplace_back(filesystem_record(db, need_filesystem(db, pool.uuid, volume.name)));
    }
  }
  return json_response(std::move(out));
}

Response roll_back_filesystem(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const Volume_Pool pool = need_volume_pool(db, fields.text("pool_id"), Access::write);
  const Filesystem filesystem = need_filesystem(db, pool.uuid, fields.text("name"));
  // Open files would change.
  if (filesystem.mounted) throw Request_Error(409, described(filesystem.volume) + " is mounted");
  const Snapshot newest = roll_back_volume(db, filesystem.volume);
  return json_response(Object{{"name", filesystem.volume.name}, {"snapshot_id", newest.id}});
}

Response delete_filesystem(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const Volume_Pool pool = need_volume_pool(db, query.needed_text("pool_id"), Access::write);
  const std::string name = query.needed_text("name");
  if (const auto filesystem = find_undeleted_filesystem(db, pool.uuid, name)) {
    delete_volume(db, filesystem->volume, false);
  }
  return json_response(Object{{"name", name}});
}

// ---- the check

/// Every filesystem volume has its row, and mount points are valid.
std::int64_t check_filesystems(Connection& db, Array& problems) {
  std::int64_t count = 0;
  for (Statement row(db,
                     "SELECT v.name, v.kind, f.volume, f.mount_point FROM volume v "
                     "LEFT JOIN filesystem f ON f.volume = v.number "
                     "WHERE v.kind = 'filesystem' OR f.volume IS NOT NULL ORDER BY v.number");
       row.next();) {
    ++count;
    const std::string name = "filesystem '" + row.text(0) + '\'';
    if (row.text(1) != "filesystem") problems.emplace_back(name + " is not a filesystem volume");
    if (row.is_null(2)) problems.emplace_back(name + " has no row in its table");
    if (row.is_null(3)) continue;
    const std::string place = row.text(3);
    if (place.front() != '/' || place != tidy_path(place)) {
      problems.emplace_back(name + " has a mount point that is not tidy");
    }
  }
  return count;
}

Filesystem with_mount(Connection& db, Volume volume) {
  Filesystem out;
  out.volume = std::move(volume);
  Statement row(db, "SELECT mount_point, mounted FROM filesystem WHERE volume = ?",
                out.volume.number);
  if (row.next()) {
    if (!row.is_null(0)) out.mount_point = row.text(0);
    out.mounted = row.integer(1) != 0;
  }
  return out;
}

}  // namespace

std::optional<Filesystem> find_filesystem(Connection& db, const std::string& pool,
                                          const std::string& name) {
  std::optional<Volume> volume = find_volume(db, pool, kind, name);
  if (!volume) return std::nullopt;
  return with_mount(db, *std::move(volume));
}

Filesystem need_filesystem(Connection& db, const std::string& pool, const std::string& name) {
  return with_mount(db, need_volume(db, pool, kind, name));
}

std::optional<Filesystem> find_undeleted_filesystem(Connection& db, const std::string& pool,
                                                    const std::string& name) {
  std::optional<Filesystem> out = find_filesystem(db, pool, name);
  if (!out && !was_volume_deleted(db, pool, kind, name)) need_filesystem(db, pool, name);
  return out;
}

std::string read_filesystem_name(Request_Fields& fields, const std::string& key) {
  std::string name = fields.text(key);
  if (name.size() > max_name_size) fields.refuse(key, "is longer than 255 bytes");
  if (name == "." || name == "..") fields.refuse(key, "must not be '" + name + "'");
  if (std::any_of(name.begin(), name.end(),
                  [](unsigned char c) { return c < 0x20 || c == 0x7f || c == '/'; })) {
    fields.refuse(key, "must not contain '/' or a control character");
  }
  // Clients put names into queries without encoding them.
  if (name.find_first_of("&%+") != std::string::npos) {
    fields.refuse(key, "must not contain '&', '%' or '+', which are special in a query");
  }
  return name;
}

std::string read_mount_point(Request_Fields& fields, const std::string& key) {
  std::string path = read_path(fields, key);
  if (path.front() != '/') fields.refuse(key, "must be an absolute path");
  if (path == "/") fields.refuse(key, "must not be the root");
  return path;
}

Filesystem make_filesystem(Connection& db, const Volume& wanted,
                           const std::optional<Snapshot>& origin,
                           const std::optional<std::string>& mount_point, bool mounted) {
  Filesystem out;
  out.volume = origin ? clone_volume(db, *origin, wanted) : create_volume(db, wanted);
  db.execute("INSERT INTO filesystem (volume, mounted) VALUES (?, 0)", out.volume.number);
  if (mount_point) set_mount_point(db, out, *mount_point);
  set_mounted(db, out, mounted);
  out.mount_point = mount_point;
  out.mounted = mounted;
  return out;
}

void set_mount_point(Connection& db, const Filesystem& filesystem, const std::string& mount_point) {
  Statement other(db,
                  "SELECT v.name FROM filesystem f JOIN volume v ON v.number = f.volume "
                  "WHERE f.mount_point = ? AND f.volume <> ?",
                  mount_point, filesystem.volume.number);
  if (other.next()) {
    throw Request_Error(
        409, "mount point '" + mount_point + "' belongs to filesystem '" + other.text(0) + '\'');
  }
  db.execute("UPDATE filesystem SET mount_point = ? WHERE volume = ?", mount_point,
             filesystem.volume.number);
}

void set_mounted(Connection& db, const Filesystem& filesystem, bool mounted) {
  db.execute("UPDATE filesystem SET mounted = ? WHERE volume = ?", mounted,
             filesystem.volume.number);
}

Object filesystem_record(Connection& db, const Filesystem& filesystem) {
  const Volume& volume = filesystem.volume;
  const Chain_Sizes sizes = Extent_Map(db, volume.number).sizes();
  Object out{{"name", volume.name},
             {"pool_id", volume.pool},
             {"mounted", filesystem.mounted},
             {"created", volume.created},
             {"snapshot_count", static_cast<std::int64_t>(sizes.snapshots.size())},
             {"rfer_size", sizes.head.referenced},
             {"excl_size", sizes.head.exclusive}};
  if (filesystem.mount_point) out.emplace("mountpoint", *filesystem.mount_point);
  if (volume.origin) out.emplace("origin", snapshot_by_number(db, *volume.origin).id);
  return out;
}

void add_filesystems(Resources& resources) {
  const std::string path = "/zq/r/scsipool/fs";
  resources.router.add(Method::post, path, Access::write, create_filesystem);
  resources.router.add(Method::get, path, Access::read, get_filesystems);
  resources.router.add(Method::put, path, Access::write, roll_back_filesystem);
  resources.router.add(Method::del, path, Access::write, delete_filesystem);
  add_filesystem_mount_path(resources.router);
  add_filesystem_snapshot_path(resources.router);
  add_filesystem_sections(resources.scenario);
  resources.checks.push_back({"filesystems", check_filesystems});
}

}  // namespace zqpool::service
