#include "service/api/request_fields.h"
#include "service/filesystem/filesystems.h"
#include "service/nfs/nfs.h"

namespace zqpool::service {

namespace {

constexpr Volume_Kind kind = Volume_Kind::filesystem;

/// Mounting does not change the pool, so it may be readonly.
Volume_Pool need_mountable(Connection& db, const std::string& uuid) {
  Volume_Pool pool = need_volume_pool(db, uuid, Access::read);
  if (pool.state == "offline") throw Request_Error(409, "pool '" + pool.uuid + "' is offline");
  return pool;
}

/// NFS clients would lose their files.
void need_unexported(Connection& db, const Filesystem& filesystem) {
  if (!filesystem.mounted) return;
  const std::optional<std::string> record = nfs_export_of_mount(db, *filesystem.mount_point);
  if (record) {
    throw Request_Error(
        409, described(filesystem.volume) + " is exported over NFS, by record '" + *record + '\'');
  }
}

Object mount_record(const Filesystem& filesystem) {
  return {{"name", filesystem.volume.name}, {"mountpoint", filesystem.mount_point.value()}};
}

Response mount(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const Volume_Pool pool = need_mountable(db, fields.text("pool_id"));
  Filesystem filesystem = need_filesystem(db, pool.uuid, fields.text("name"));
  if (!filesystem.mount_point) {
    filesystem.mount_point = "/pools/" + pool.uuid + '/' + filesystem.volume.name;
    set_mount_point(db, filesystem, *filesystem.mount_point);
  }
  set_mounted(db, filesystem, true);
  return json_response(mount_record(filesystem));
}

Response get_mounts(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const Volume_Pool pool = need_volume_pool(db, query.needed_text("pool_id"), Access::read);
  const std::optional<std::string> name = query.text("name");
  Array out;
  const auto add = [&](const Filesystem& filesystem) {
    if (filesystem.mounted) out.emplace_back(mount_record(filesystem));
  };
  if (name) {
    add(need_filesystem(db, pool.uuid, *name));
  } else {
    for (const Volume& volume : volumes_of(db, pool.uuid, kind))
      add(need_filesystem(db, pool.uuid, volume.name));
  }
  return json_response(std::move(out));
}

/// The response is the new mount point, a JSON string.
Response move_mount(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const Volume_Pool pool = need_mountable(db, fields.text("pool_id"));
  const Filesystem filesystem = need_filesystem(db, pool.uuid, fields.text("name"));
  const std::string mount_point = read_mount_point(fields, "mount_point");
  if (filesystem.mount_point != mount_point) {
    need_unexported(db, filesystem);
    set_mount_point(db, filesystem, mount_point);
  }
  return json_response(mount_point);
}

Response unmount(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const Volume_Pool pool = need_mountable(db, query.needed_text("pool_id"));
  const std::string name = query.needed_text("name");
  if (const auto filesystem = find_undeleted_filesystem(db, pool.uuid, name)) {
    need_unexported(db, *filesystem);
    set_mounted(db, *filesystem, false);
  }
  return json_response(Object{{"name", name}});
}

}  // namespace

void add_filesystem_mount_path(Router& router) {
  const std::string path = "/zq/r/scsipool/fs/mount";
  router.add(Method::post, path, Access::write, mount);
  router.add(Method::get, path, Access::read, get_mounts);
  router.add(Method::put, path, Access::write, move_mount);
  router.add(Method::del, path, Access::write, unmount);
}

}  // namespace zqpool::service
