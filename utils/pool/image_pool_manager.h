#pragma once

#include <cstdint>
#include <string>

#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// An image pool of the storage service: its filesystems and their snapshots.
///
/// Every operation sends one request to the service, or a few in a row, and blocks until the answer
/// is there. It returns true on success. On failure it logs the reason, returns false and leaves
/// its outputs unchanged, except where documented: "logs nothing itself" means that only the client
/// logs a failed request. Only std::bad_alloc is thrown, except by update_filesystem_mountpoint().
///
/// A request that changes something is sent only once. If an operation fails after that, the change
/// may still have been made: see HTTP_Exchange_Report::outcome_unknown().
///
/// All operations are const: an object may be used by several threads at once. No connection is
/// kept between calls.
///
/// Names and identifiers go into query strings unescaped: they must not contain "&", "=", "+", "%"
/// or a zero byte. Sizes are in the service's unit; the reference service uses bytes.
///
/// @code
///   const Image_Pool_Manager pool("https://storage:8443", key, pool_uuid);
///   std::string where, snapshot_id;
///   return pool.create_filesystem("daily", nullptr, nullptr) &&
///          pool.mount_filesystem("daily", where) && fill(where) &&
///          pool.create_snapshot("daily", snapshot_id, false);
/// @endcode
class ZQPOOL_EXPORT Image_Pool_Manager {
 public:
  /// The pool `pool_uuid` of the service at `host`:`port`, over HTTPS if `ssl`. `access_key` is not
  /// sent if empty.
  Image_Pool_Manager(const std::string& host, unsigned short port, bool ssl,
                     const std::string& access_key, const std::string& pool_uuid);
  /// The same with the host, port and TLS of `url`. If `url` does not parse, that is logged and
  /// every operation fails.
  Image_Pool_Manager(const std::string& url, const std::string& access_key,
                     const std::string& pool_uuid);

  // --- Filesystems ------------------------------------------------------------------------------

  /// Creates a filesystem from `*snapshot_id` (null: empty) and mounts it at `*mount_point` (null:
  /// not mounted). Empty texts are sent, too. Logs nothing itself.
  bool create_filesystem(const std::string& name, const std::string* snapshot_id,
                         const std::string* mount_point) const;

  /// Deletes a filesystem. `status`, if not null, receives the HTTP status, also on failure (0: no
  /// answer). Logs nothing itself.
  bool delete_filesystem(const std::string& name, int* status) const;

  /// Rolls a filesystem back to its newest snapshot. Logs nothing itself.
  bool rollback_filesystem(const std::string& name) const;

  /// Gets the description of a filesystem. If the service does not know exactly one, nothing is
  /// logged here, and `status`, if not null, receives the HTTP status; otherwise `status` is not
  /// written.
  bool list_filesystem_info(const std::string& name, Object& info, int* status) const;

  /// Mounts a filesystem and gets its mount point. Fails without a log message when the answer
  /// lacks it.
  bool mount_filesystem(const std::string& name, std::string& mount_point) const;

  /// Gets the mounts of filesystem `*name`, or of all filesystems of the pool (null or ""). The
  /// entries are not checked.
  bool list_mounted_filesystem(Array& info, const std::string* name) const;

  /// Moves a filesystem's mount point. Never returns true. An answer that is a string, as the
  /// reference service sends after a successful move, throws std::runtime_error; any other answer
  /// is a failure. `mount_point` is not written. Call list_mounted_filesystem() to see what
  /// happened.
  bool update_filesystem_mountpoint(const std::string& name, const std::string& new_mount_point,
                                    std::string& mount_point) const;

  /// Unmounts a filesystem. Logs nothing itself.
  bool umount_filesystem(const std::string& name) const;

  // --- Snapshots --------------------------------------------------------------------------------

  /// Takes a snapshot of filesystem `name`. The service may delete a `recyclable` one when it needs
  /// space.
  bool create_snapshot(const std::string& name, std::string& snapshot_id, bool recyclable) const;

  /// Deletes a snapshot, and with `delete_empty_fs` also its filesystem if nothing else is left of
  /// it. Logs nothing itself.
  bool delete_snapshot(const std::string& snapshot_id, const bool delete_empty_fs) const;

  /// Gets the description of a snapshot. Fails also when the service does not know exactly one.
  bool get_snapshot_info(const std::string& snapshot_id, Object& info) const;

  /// Gets the predecessor of a snapshot: the snapshot of the same filesystem with the largest "seq"
  /// below its own; the last one listed if several have it.
  ///
  /// Pass an empty `info` and look at it, not at the result, which is true only if there is no
  /// predecessor. Found: false, `info` filled. None: true, `info` empty. Failure: false, `info`
  /// empty; but if the list holds a bad entry, `info` may hold the best snapshot before it. A
  /// non-empty `info` is unchanged when no predecessor is found.
  bool get_previous_snapshot(const std::string& snapshot_id, Object& info) const;

  /// Computes the size that a snapshot adds to its predecessor: the difference of their "rfer_size"
  /// plus the predecessor's "excl_size"; if that is negative, 0, and a warning is logged. Without a
  /// predecessor, or if it cannot be determined: the snapshot's own "rfer_size" plus "excl_size".
  bool cal_snapshot_size(const std::string& snapshot_id, std::uint64_t& size) const;

  // --- Members ----------------------------------------------------------------------------------

  std::string host_;
  unsigned short port_ = 0;
  bool ssl_ = false;
  std::string access_key_;
  std::string pool_uuid_;
};
