#include "service/api/request_fields.h"
#include "service/filesystem/filesystems.h"
#include "service/nfs/nfs.h"

namespace zqpool::service {

namespace {

constexpr Volume_Kind kind = Volume_Kind::filesystem;

/// Mounting changes nothing in a pool, so that a readonly one will do.
Volume_Pool need_mountable(Store& store, const std::string& uuid) {
  Volume_Pool pool = need_volume_pool(store, uuid, Access::read);
  if (pool.state == "offline") throw Refusal(409, "pool '" + pool.uuid + "' is offline");
  return pool;
}

/// NFS clients would lose their files.
void need_unexported(Store& store, const Filesystem& filesystem) {
  if (!filesystem.mounted) return;
  const std::optional<std::string> record = nfs_export_of_mount(store, *filesystem.mount_point);
  if (record) {
    throw Refusal(
        409, described(filesystem.volume) + " is exported over NFS, by record '" + *record + '\'');
  }
}

Object mount_record(const Filesystem& filesystem) {
  return {{"name", filesystem.volume.name}, {"mountpoint", filesystem.mount_point.value()}};
}

Answer mount(Store& store, const Request& request) {
  no_query(request);
  const Object body = body_object(request);
  Fields fields(body, "");
  const Volume_Pool pool = need_mountable(store, fields.text("pool_id"));
  Filesystem filesystem = need_filesystem(store, pool.uuid, fields.text("name"));
  fields.finish();
  if (!filesystem.mount_point) {
    filesystem.mount_point = "/pools/" + pool.uuid + '/' + filesystem.volume.name;
    set_mount_point(store, filesystem, *filesystem.mount_point);
  }
  set_mounted(store, filesystem, true);
  return json_answer(mount_record(filesystem));
}

Answer get_mounts(Store& store, const Request& request) {
  Query_Fields query(request);
  const Volume_Pool pool = need_volume_pool(store, query.needed_text("pool_id"), Access::read);
  const std::optional<std::string> name = query.text("name");
  query.finish();
  Array out;
  const auto add = [&](const Filesystem& filesystem) {
    if (filesystem.mounted) out.emplace_back(mount_record(filesystem));
  };
  if (name) {
    add(need_filesystem(store, pool.uuid, *name));
  } else {
    for (const Volume& volume : volumes_of(store, pool.uuid, kind))
      add(need_filesystem(store, pool.uuid, volume.name));
  }
  return json_answer(std::move(out));
}

/// Answers the new mount point as a text alone.
Answer move_mount(Store& store, const Request& request) {
  no_query(request);
  const Object body = body_object(request);
  Fields fields(body, "");
  const Volume_Pool pool = need_mountable(store, fields.text("pool_id"));
  const Filesystem filesystem = need_filesystem(store, pool.uuid, fields.text("name"));
  const std::string mount_point = read_mount_point(fields, "mount_point");
  fields.finish();
  if (filesystem.mount_point != mount_point) {
    need_unexported(store, filesystem);
    set_mount_point(store, filesystem, mount_point);
  }
  return json_answer(mount_point);
}

Answer unmount(Store& store, const Request& request) {
  Query_Fields query(request);
  const Volume_Pool pool = need_mountable(store, query.needed_text("pool_id"));
  const std::string name = query.needed_text("name");
  query.finish();
  if (const auto filesystem = find_undeleted_filesystem(store, pool.uuid, name)) {
    need_unexported(store, *filesystem);
    set_mounted(store, *filesystem, false);
  }
  return json_answer(Object{{"name", name}});
}

}  // namespace

void add_filesystem_mount_path(Router& router) {
  const std::string path = "/zq/r/scsipool/fs/mount";
  router.add(Method::post, path, Access::change, mount);
  router.add(Method::get, path, Access::read, get_mounts);
  router.add(Method::put, path, Access::change, move_mount);
  router.add(Method::del, path, Access::change, unmount);
}

}  // namespace zqpool::service
