#include "utils/pool/image_pool_manager.h"

#include <optional>

#include "platform/net/uri.h"
#include "utils/pool/detail/filesystem_protocol.h"
#include "utils/pool/detail/parse_url.h"
#include "utils/pool/detail/snapshot_chain.h"
#include "utils/support/log.h"

using std::string;
using zqpool::detail::Filesystem_Protocol;

namespace {

Filesystem_Protocol filesystems(const Image_Pool_Manager& pool,
                                const zqpool::detail::Source_Location& location) {
  return {location,
          {pool.host_.c_str(), pool.port_, pool.ssl_, pool.access_key_.c_str()},
          pool.pool_uuid_};
}

}  // namespace

Image_Pool_Manager::Image_Pool_Manager(const string& host, unsigned short port, bool ssl,
                                       const string& access_key, const string& pool_uuid)
    : host_(host), port_(port), ssl_(ssl), access_key_(access_key), pool_uuid_(pool_uuid) {}

Image_Pool_Manager::Image_Pool_Manager(const string& url, const string& access_key,
                                       const string& pool_uuid)
    : access_key_(access_key), pool_uuid_(pool_uuid) {
  URI uri;
  zqpool::detail::parse_url(ZQ_HERE, url, uri);
  host_ = uri.host(false);
  port_ = uri.port();
  ssl_ = uri.is_ssl();
}

// --- Filesystems -------------------------------------------------------------------------------

bool Image_Pool_Manager::create_filesystem(const string& name, const string* snapshot_id,
                                           const string* mount_point) const {
  return filesystems(*this, ZQ_HERE).create(name, snapshot_id, mount_point);
}

bool Image_Pool_Manager::delete_filesystem(const string& name, int* status) const {
  return filesystems(*this, ZQ_HERE).destroy(name, status);
}

bool Image_Pool_Manager::rollback_filesystem(const string& name) const {
  return filesystems(*this, ZQ_HERE).rollback(name);
}

bool Image_Pool_Manager::list_filesystem_info(const string& name, Object& info, int* status) const {
  return filesystems(*this, ZQ_HERE).describe(name, info, std::nullopt, status);
}

bool Image_Pool_Manager::mount_filesystem(const string& name, string& mount_point) const {
  return filesystems(*this, ZQ_HERE).mount(name, mount_point);
}

bool Image_Pool_Manager::list_mounted_filesystem(Array& info, const string* name) const {
  return filesystems(*this, ZQ_HERE).list_mounted(info, name);
}

bool Image_Pool_Manager::update_filesystem_mountpoint(const string& name,
                                                      const string& new_mount_point,
                                                      string& mount_point) const {
  return filesystems(*this, ZQ_HERE).move_mount(name, new_mount_point, mount_point);
}

bool Image_Pool_Manager::umount_filesystem(const string& name) const {
  return filesystems(*this, ZQ_HERE).umount(name);
}

// --- Snapshots ---------------------------------------------------------------------------------

bool Image_Pool_Manager::create_snapshot(const string& name, string& snapshot_id,
                                         bool recyclable) const {
  return filesystems(*this, ZQ_HERE).create_snapshot(name, snapshot_id, recyclable);
}

bool Image_Pool_Manager::delete_snapshot(const string& snapshot_id,
                                         const bool delete_empty_fs) const {
  return filesystems(*this, ZQ_HERE).delete_snapshot(snapshot_id, delete_empty_fs);
}

bool Image_Pool_Manager::get_snapshot_info(const string& snapshot_id, Object& info) const {
  return filesystems(*this, ZQ_HERE).describe_snapshot(snapshot_id, info);
}

bool Image_Pool_Manager::get_previous_snapshot(const string& snapshot_id, Object& info) const {
  return filesystems(*this, ZQ_HERE).get_previous_snapshot(snapshot_id, info);
}

bool Image_Pool_Manager::cal_snapshot_size(const string& snapshot_id, std::uint64_t& size) const {
  Object current;
  if (!get_snapshot_info(snapshot_id, current)) {
    return ZQ_ERROR("Failed to calculate snapshot size: failed to get snapshot info\n");
  }
  Object previous;
  get_previous_snapshot(snapshot_id, previous);
  return zqpool::detail::added_size(ZQ_HERE, current, previous, size);
}
