#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "cli/command/command_line.h"

namespace zqpool::cli {

/// What can be done with the filesystems of one pool, by whichever manager of the library: the
/// commands are the same for all of them. Each member is the manager's operation of that kind.
struct Filesystems {
  std::function<bool(const std::string& name, const std::string* snapshot_id,
                     const std::string* mount_point)>
      create;
  std::function<bool(const std::string& name, Object& info)> describe;
  std::function<bool(const std::string& name)> roll_back;
  std::function<bool(const std::string& name)> remove;
  std::function<bool(const std::string& name, std::string& mount_point)> mount;
  std::function<bool(Array& mounts, const std::string* name)> list_mounted;
  std::function<bool(const std::string& name, const std::string& mount_point)> move;
  std::function<bool(const std::string& name)> unmount;
  std::function<bool(const std::string& name, std::string& snapshot_id, bool recyclable)> snapshot;
  std::function<bool(const std::string& snapshot_id, Object& info)> describe_snapshot;
  std::function<bool(const std::string& snapshot_id, Object& info)> previous_snapshot;
  std::function<bool(const std::string& snapshot_id, std::uint64_t& size)> snapshot_size;
  std::function<bool(const std::string& snapshot_id, bool delete_empty)> remove_snapshot;
};

/// The operations that managers have under the same names.
template <typename Manager>
Filesystems filesystems_of(const std::shared_ptr<const Manager>& pool) {
  using std::string;
  Filesystems out;
  out.create = [pool](const string& name, const string* snapshot_id, const string* mount_point) {
    return pool->create_filesystem(name, snapshot_id, mount_point);
  };
  out.roll_back = [pool](const string& name) { return pool->rollback_filesystem(name); };
  out.remove = [pool](const string& name) { return pool->delete_filesystem(name, nullptr); };
  out.mount = [pool](const string& name, string& mount_point) {
    return pool->mount_filesystem(name, mount_point);
  };
  out.list_mounted = [pool](Array& mounts, const string* name) {
    return pool->list_mounted_filesystem(mounts, name);
  };
  out.move = [pool](const string& name, const string& mount_point) {
    string never_written;
    return pool->update_filesystem_mountpoint(name, mount_point, never_written);
  };
  out.unmount = [pool](const string& name) { return pool->umount_filesystem(name); };
  return out;
}

/// Makes them for a pool; a set of its own for each thread that asks.
using Open_Filesystems = Filesystems (*)(const Target& target, const std::string& pool_uuid);

/// The verbs of a noun about filesystems, those of its "snapshot" among them.
void add_filesystem_verbs(Command_Line& commands, CLI::App& noun, Open_Filesystems open);

}  // namespace zqpool::cli
