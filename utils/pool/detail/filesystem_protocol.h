#pragma once

#include <optional>
#include <string>

#include "platform/json/json_spirit.h"
#include "utils/support/log.h"
#include "utils/support/service_call.h"

namespace zqpool::detail {

/// The requests about a pool's filesystems and their snapshots, which both pool managers use and
/// document. Messages are logged with the manager's `location`. The endpoint's texts and
/// `pool_uuid` must outlive the object.
class Filesystem_Protocol {
 public:
  Filesystem_Protocol(const Source_Location& location, const Service_Endpoint& endpoint,
                      const std::string& pool_uuid)
      : location_(location), endpoint_(endpoint), pool_uuid_(pool_uuid) {}

  /// A null `snapshot_id` or `mount_point` is not sent; "" is.
  bool create(std::string name, const std::string* snapshot_id,
              const std::string* mount_point) const;
  bool destroy(const std::string& name, int* status) const;
  bool rollback(std::string name) const;
  /// Without `logging_error` the client's default holds.
  bool describe(const std::string& name, Object& info, std::optional<bool> logging_error,
                int* status) const;
  bool mount(const std::string& name, std::string& mount_point) const;
  /// Lists all mounts if `name` is null or "".
  bool list_mounted(Array& info, const std::string* name) const;
  bool move_mount(const std::string& name, const std::string& mount_point,
                  std::string& reported) const;
  bool umount(const std::string& name) const;

  bool create_snapshot(const std::string& name, std::string& snapshot_id, bool recyclable) const;
  bool delete_snapshot(const std::string& snapshot_id, bool delete_empty_fs) const;
  bool describe_snapshot(const std::string& snapshot_id, Object& info) const;
  bool get_previous_snapshot(const std::string& snapshot_id, Object& info) const;

 private:
  Service_Call call(int method, const char* path) const;
  /// A request body that names a filesystem.
  Object named(std::string name) const;

  const Source_Location location_;
  const Service_Endpoint endpoint_;
  const std::string& pool_uuid_;
};

/// Returns `text`, or null if it is empty.
inline const std::string* unless_empty(const std::string* text) {
  return text != nullptr && text->empty() ? nullptr : text;
}

}  // namespace zqpool::detail
