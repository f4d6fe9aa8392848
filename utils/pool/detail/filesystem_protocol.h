#pragma once

#include <optional>
#include <string>

#include "platform/json/json_spirit.h"
#include "utils/support/log.h"
#include "utils/support/service_call.h"

namespace zqpool::detail {

/// The filesystems of one pool and their snapshots, as the service is asked about them. Whoever has
/// filesystems offers these operations under names of its own and documents them; messages name
/// `place`, the caller's. Borrows the endpoint's texts and the pool's identifier.
class Filesystem_Protocol {
 public:
  Filesystem_Protocol(const Source_Location& location, const Service_Endpoint& endpoint,
                      const std::string& pool_uuid)
      : location_(location), endpoint_(endpoint), pool_uuid_(pool_uuid) {}

  /// Null leaves `snapshot_id` and `mount_point` out; "" is sent.
  bool create(std::string name, const std::string* snapshot_id,
              const std::string* mount_point) const;
  bool destroy(const std::string& name, int* status) const;
  bool rollback(std::string name) const;
  /// Without a value for `logging_error` the client does as it likes.
  bool describe(const std::string& name, Object& info, std::optional<bool> logging_error,
                int* status) const;
  bool mount(const std::string& name, std::string& mount_point) const;
  /// All mounts when `name` is null or "".
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
  /// A filesystem of the pool, as it is named in a body.
  Object named(std::string name) const;

  const Source_Location location_;
  const Service_Endpoint endpoint_;
  const std::string& pool_uuid_;
};

/// Null where nothing is pointed to or what is is empty.
inline const std::string* unless_empty(const std::string* text) {
  return text != nullptr && text->empty() ? nullptr : text;
}

}  // namespace zqpool::detail
