#include "service/filesystem/filesystems.h"

#include <algorithm>

#include "service/api/paths.h"
#include "service/api/request_fields.h"
#include "service/api/text.h"
#include "service/volumes/extent_map.h"

namespace zqpool::service {

namespace {

constexpr Volume_Kind kind = Volume_Kind::filesystem;
constexpr std::size_t longest_name = 255;

/// A member that says nothing when it is empty.
std::optional<std::string> said(Fields& fields, const std::string& key) {
  std::optional<std::string> text = fields.optional_text(key);
  if (text && text->empty()) text.reset();
  return text;
}

/// What a request to make a filesystem asks for.
struct Wanted {
  Volume volume;
  std::optional<Snapshot> origin;
  std::optional<std::string> mount_point;
};

Wanted read_wanted(Store& store, const Request& request) {
  no_query(request);
  const Object body = body_object(request);
  Fields fields(body, "");
  Wanted out;
  out.volume.pool = need_volume_pool(store, fields.text("pool_id"), Access::change).uuid;
  out.volume.kind = kind;
  out.volume.name = read_filesystem_name(fields, "name");
  out.volume.created = utc_now();
  if (const auto snapshot = said(fields, "snapshot_id")) {
    out.origin = need_snapshot(store, out.volume.pool, kind, lower_case(*snapshot));
  }
  if (said(fields, "mount_point")) out.mount_point = read_mount_point(fields, "mount_point");
  fields.finish();
  return out;
}

/// Whether making it now would give the very same: it was made so, and nothing has happened to it.
bool is_as_wanted(Store& store, const Filesystem& there, const Wanted& wanted) {
  std::optional<std::int64_t> origin;
  std::int64_t content = 0;
  if (wanted.origin) {
    origin = wanted.origin->number;
    const Chain_Sizes sizes = Block_Map(store, wanted.origin->volume).sizes();
    content = sizes.snapshots.at(wanted.origin->seq).referenced;
  }
  if (there.volume.origin != origin || there.mount_point != wanted.mount_point ||
      there.mounted != wanted.mount_point.has_value() || there.volume.next_seq != 1) {
    return false;
  }
  // What is written to it is its own, what is discarded it reaches no more.
  const Sizes now = Block_Map(store, there.volume.number).sizes().head;
  return now.exclusive == 0 && now.referenced == content;
}

// ---- /zq/r/scsipool/fs

Answer create_filesystem(Store& store, const Request& request) {
  const Wanted wanted = read_wanted(store, request);
  if (const auto there = find_filesystem(store, wanted.volume.pool, wanted.volume.name)) {
    if (!is_as_wanted(store, *there, wanted)) {
      throw Refusal(409, "there is a " + described(there->volume) + " already");
    }
    return json_answer(filesystem_record(store, *there), 201);
  }
  const Filesystem made = make_filesystem(store, wanted.volume, wanted.origin, wanted.mount_point,
                                          wanted.mount_point.has_value());
  return json_answer(filesystem_record(store, made), 201);
}

Answer get_filesystems(Store& store, const Request& request) {
  Query_Fields query(request);
  const Volume_Pool pool = need_volume_pool(store, query.needed_text("pool_id"), Access::read);
  const std::optional<std::string> name = query.text("name");
  query.finish();
  Array out;
  if (name) {
    out.emplace_back(filesystem_record(store, need_filesystem(store, pool.uuid, *name)));
  } else {
    for (const Volume& volume : volumes_of(store, pool.uuid, kind)) {
      out.emplace_back(filesystem_record(store, need_filesystem(store, pool.uuid, volume.name)));
    }
  }
  return json_answer(std::move(out));
}

Answer roll_back_filesystem(Store& store, const Request& request) {
  no_query(request);
  const Object body = body_object(request);
  Fields fields(body, "");
  const Volume_Pool pool = need_volume_pool(store, fields.text("pool_id"), Access::change);
  const Filesystem filesystem = need_filesystem(store, pool.uuid, fields.text("name"));
  fields.finish();
  // Files would change under the feet of who has them open.
  if (filesystem.mounted) throw Refusal(409, described(filesystem.volume) + " is mounted");
  const Snapshot newest = roll_back_volume(store, filesystem.volume);
  return json_answer(Object{{"name", filesystem.volume.name}, {"snapshot_id", newest.id}});
}

Answer delete_filesystem(Store& store, const Request& request) {
  Query_Fields query(request);
  const Volume_Pool pool = need_volume_pool(store, query.needed_text("pool_id"), Access::change);
  const std::string name = query.needed_text("name");
  query.finish();
  if (const auto filesystem = find_undeleted_filesystem(store, pool.uuid, name)) {
    delete_volume(store, filesystem->volume, false);
  }
  return json_answer(Object{{"name", name}});
}

// ---- the check

/// Every volume of the kind has its row, and mount points are as they may be.
std::int64_t check_filesystems(Store& store, Array& problems) {
  std::int64_t count = 0;
  for (Store::Query row(store,
                        "SELECT v.name, v.kind, f.volume, f.mount_point FROM volume v "
                        "LEFT JOIN filesystem f ON f.volume = v.number "
                        "WHERE v.kind = 'filesystem' OR f.volume IS NOT NULL ORDER BY v.number");
       row.next();) {
    ++count;
    const std::string name = "filesystem '" + row.text(0) + '\'';
    if (row.text(1) != "filesystem") problems.emplace_back(name + " is none");
    if (row.is_null(2)) problems.emplace_back(name + " has no row of its own");
    if (row.is_null(3)) continue;
    const std::string place = row.text(3);
    if (place.front() != '/' || place != tidy_path(place)) {
      problems.emplace_back(name + " has a mount point that is no tidy path");
    }
  }
  return count;
}

Filesystem with_mount(Store& store, Volume volume) {
  Filesystem out;
  out.volume = std::move(volume);
  Store::Query row(store, "SELECT mount_point, mounted FROM filesystem WHERE volume = ?",
                   out.volume.number);
  if (row.next()) {
    if (!row.is_null(0)) out.mount_point = row.text(0);
    out.mounted = row.integer(1) != 0;
  }
  return out;
}

}  // namespace

std::optional<Filesystem> find_filesystem(Store& store, const std::string& pool,
                                          const std::string& name) {
  std::optional<Volume> volume = find_volume(store, pool, kind, name);
  if (!volume) return std::nullopt;
  return with_mount(store, *std::move(volume));
}

Filesystem need_filesystem(Store& store, const std::string& pool, const std::string& name) {
  return with_mount(store, need_volume(store, pool, kind, name));
}

std::optional<Filesystem> find_undeleted_filesystem(Store& store, const std::string& pool,
                                                    const std::string& name) {
  std::optional<Filesystem> out = find_filesystem(store, pool, name);
  if (!out && !was_volume_deleted(store, pool, kind, name)) need_filesystem(store, pool, name);
  return out;
}

std::string read_filesystem_name(Fields& fields, const std::string& key) {
  std::string name = fields.text(key);
  if (name.size() > longest_name) fields.refuse(key, "is longer than 255 bytes");
  if (name == "." || name == "..") fields.refuse(key, "must not be '" + name + "'");
  if (std::any_of(name.begin(), name.end(),
                  [](unsigned char c) { return c < 0x20 || c == 0x7f || c == '/'; })) {
    fields.refuse(key, "must not hold '/' or a control character");
  }
  // Queries carry names as they stand.
  if (name.find_first_of("&%+") != std::string::npos) {
    fields.refuse(key, "must not hold '&', '%' or '+', which mean something else in a query");
  }
  return name;
}

std::string read_mount_point(Fields& fields, const std::string& key) {
  std::string path = read_path(fields, key);
  if (path.front() != '/') fields.refuse(key, "must be an absolute path");
  if (path == "/") fields.refuse(key, "must not be the root");
  return path;
}

Filesystem make_filesystem(Store& store, const Volume& wanted,
                           const std::optional<Snapshot>& origin,
                           const std::optional<std::string>& mount_point, bool mounted) {
  Filesystem out;
  out.volume = origin ? clone_volume(store, *origin, wanted) : create_volume(store, wanted);
  store.execute("INSERT INTO filesystem (volume, mounted) VALUES (?, 0)", out.volume.number);
  if (mount_point) set_mount_point(store, out, *mount_point);
  set_mounted(store, out, mounted);
  out.mount_point = mount_point;
  out.mounted = mounted;
  return out;
}

void set_mount_point(Store& store, const Filesystem& filesystem, const std::string& mount_point) {
  Store::Query other(store,
                     "SELECT v.name FROM filesystem f JOIN volume v ON v.number = f.volume "
                     "WHERE f.mount_point = ? AND f.volume <> ?",
                     mount_point, filesystem.volume.number);
  if (other.next()) {
    throw Refusal(
        409, "mount point '" + mount_point + "' is that of filesystem '" + other.text(0) + '\'');
  }
  store.execute("UPDATE filesystem SET mount_point = ? WHERE volume = ?", mount_point,
                filesystem.volume.number);
}

void set_mounted(Store& store, const Filesystem& filesystem, bool mounted) {
  store.execute("UPDATE filesystem SET mounted = ? WHERE volume = ?", mounted,
                filesystem.volume.number);
}

Object filesystem_record(Store& store, const Filesystem& filesystem) {
  const Volume& volume = filesystem.volume;
  const Chain_Sizes sizes = Block_Map(store, volume.number).sizes();
  Object out{{"name", volume.name},
             {"pool_id", volume.pool},
             {"mounted", filesystem.mounted},
             {"created", volume.created},
             {"snapshot_count", static_cast<std::int64_t>(sizes.snapshots.size())},
             {"rfer_size", sizes.head.referenced},
             {"excl_size", sizes.head.exclusive}};
  if (filesystem.mount_point) out.emplace("mountpoint", *filesystem.mount_point);
  if (volume.origin) out.emplace("origin", snapshot_by_number(store, *volume.origin).id);
  return out;
}

void add_filesystems(Families& families) {
  const std::string path = "/zq/r/scsipool/fs";
  families.router.add(Method::post, path, Access::change, create_filesystem);
  families.router.add(Method::get, path, Access::read, get_filesystems);
  families.router.add(Method::put, path, Access::change, roll_back_filesystem);
  families.router.add(Method::del, path, Access::change, delete_filesystem);
  add_filesystem_mount_path(families.router);
  add_filesystem_snapshot_path(families.router);
  add_filesystem_sections(families.scenario);
  families.checks.push_back({"filesystems", check_filesystems});
}

}  // namespace zqpool::service
