#pragma once

#include <cstdint>
#include <string>

#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// An image pool of the storage service: its filesystems, named within the pool, and their
/// snapshots.
///
/// Every operation makes one exchange with the service, or a few in a row, and blocks its thread
/// meanwhile. False means that the wanted answer did not come; the reason is in the log, except
/// where said otherwise, and outputs are as they were, except where said otherwise. Operations
/// throw nothing but std::bad_alloc, with the one exception of update_filesystem_mountpoint().
///
/// A request that changes something is sent once. When it returns false although it went out, the
/// change may have been made (HTTP_Exchange_Report::outcome_unknown()).
///
/// No operation changes the object, so any number of threads may use one at once. Nothing is kept
/// open between calls.
///
/// Names and identifiers go into the service's queries as they stand, so one must not hold "&", "="
/// or "+". Sizes are in the service's unit (bytes, as the reference service has it).
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
  /// The pool `pool_uuid` on the service at `host`:`port` (HTTPS when `ssl`), asked with
  /// `access_key` (none is sent when it is empty).
  Image_Pool_Manager(const std::string& host, unsigned short port, bool ssl,
                     const std::string& access_key, const std::string& pool_uuid);
  /// As above, host, port and TLS taken from `url`. One that does not parse is logged, and every
  /// operation of the object then fails.
  Image_Pool_Manager(const std::string& url, const std::string& access_key,
                     const std::string& pool_uuid);

  // --- Filesystems ------------------------------------------------------------------------------

  /// Creates a filesystem: empty, or with the content of `snapshot_id`; mounted at `mount_point`.
  /// Null stands for none; "" is sent. Logs nothing by itself.
  bool create_filesystem(const std::string& name, const std::string* snapshot_id,
                         const std::string* mount_point) const;

  /// Deletes a filesystem. `status`, where not null, receives the HTTP status, good or bad (0 when
  /// no answer came). Logs nothing by itself.
  bool delete_filesystem(const std::string& name, int* status) const;

  /// Takes a filesystem back to its newest snapshot. Logs nothing by itself.
  bool rollback_filesystem(const std::string& name) const;

  /// A filesystem's description, into `info`. When the service does not know exactly one, only the
  /// client logs (a failed exchange), and `status`, where not null, receives the HTTP status; it is
  /// written in no other case.
  bool list_filesystem_info(const std::string& name, Object& info, int* status) const;

  /// Mounts a filesystem; where goes into `mount_point`. Silent when the answer does not say where.
  bool mount_filesystem(const std::string& name, std::string& mount_point) const;

  /// The mounts of the pool's filesystems, or of the one that `name` points to (null or "": all),
  /// into `info`, unchecked.
  bool list_mounted_filesystem(Array& info, const std::string* name) const;

  /// Moves a filesystem's mount point to `new_mount_point`. Never returns true: an answer that is
  /// an object is refused with false, and one that is a string, as the reference service gives,
  /// throws std::runtime_error, although the move is done then. `mount_point` is not written. Read
  /// the mount back to know.
  bool update_filesystem_mountpoint(const std::string& name, const std::string& new_mount_point,
                                    std::string& mount_point) const;

  /// Unmounts a filesystem. Logs nothing by itself.
  bool umount_filesystem(const std::string& name) const;

  // --- Snapshots --------------------------------------------------------------------------------

  /// Takes a snapshot of filesystem `name`. The service may reclaim a `recyclable` one when it
  /// needs the room.
  bool create_snapshot(const std::string& name, std::string& snapshot_id, bool recyclable) const;

  /// Deletes a snapshot, and with `delete_empty_fs` also its filesystem if nothing is left of that.
  /// Logs nothing by itself.
  bool delete_snapshot(const std::string& snapshot_id, const bool delete_empty_fs) const;

  /// A snapshot's description, into `info`. False also when the service does not know exactly one.
  bool get_snapshot_info(const std::string& snapshot_id, Object& info) const;

  /// Looks for the snapshot right before `snapshot_id` among those of the same filesystem: the one
  /// with the largest "seq" below its own, the last listed of several alike.
  ///
  /// Judge by `info`, passed in empty, not by the result: found is a filled `info` and false; none
  /// is an empty `info` and true; anything else is an empty `info` and false (but a failure amid
  /// the list may leave the best one before it in `info`). An `info` passed in with content keeps
  /// it where no snapshot is found.
  bool get_previous_snapshot(const std::string& snapshot_id, Object& info) const;

  /// What a snapshot adds over the one before it: the growth of what it refers to ("rfer_size") and
  /// what its predecessor holds alone ("excl_size"), or 0 after a warning if that is negative; for
  /// a first snapshot both its own sizes. A predecessor that cannot be found out counts as none.
  bool cal_snapshot_size(const std::string& snapshot_id, std::uint64_t& size) const;

  // --- What it is made of -----------------------------------------------------------------------

  std::string host_;
  unsigned short port_ = 0;
  bool ssl_ = false;
  std::string access_key_;
  std::string pool_uuid_;
};
