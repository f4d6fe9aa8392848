#pragma once

#include <ace/Basic_Types.h>

#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// A SCSI pool of the storage service: its LUNs, which are exported to this host over iSCSI or
/// Fibre Channel, its filesystems, and the snapshots of both.
///
/// Every operation sends one request to the service, or a few in a row, and blocks until the answer
/// is there. It returns true on success. On failure it logs the reason, returns false and leaves
/// its outputs unchanged, except where documented: "logs nothing itself" means that only the client
/// logs a failed request. Only std::bad_alloc is thrown, except by update_filesystem_mountpoint().
///
/// A request that changes something is sent only once. If an operation fails after that, the change
/// may still have been made: see HTTP_Exchange_Report::outcome_unknown().
///
/// Several threads may use an object at once as long as they call only const operations; the others
/// fill `scsi_type_` and `initiators_`. No connection is kept between calls. Copyable.
///
/// Names and identifiers go into query strings unescaped: they must not contain "&", "=", "+", "%"
/// or a zero byte. Sizes are in the service's unit; the reference service uses bytes.
///
/// @code
///   SCSI_Target_Manager pool("storage", 8443, true, key, pool_uuid, nullptr);
///   std::string lun_id, snapshot_id;
///   int lun_num = 0;
///   ACE_UINT64 added = 0;
///   if (!pool.create_newest_lun(10737418240, lun_id, lun_num)) return false;
///   // ... find the LUN by its number, write to it ...
///   return pool.create_snapshot(lun_id, snapshot_id, false) &&
///          pool.cal_snapshot_size(snapshot_id, added, true);
/// @endcode
class ZQPOOL_EXPORT SCSI_Target_Manager {
 public:
  /// How the service retains a LUN.
  enum Retention_Type : int { TYPE_NONE = 0, TYPE_NORMAL = 1, TYPE_NEWEST = 2 };

  /// The pool `pool_uuid` of the service at `host`:`port`, over HTTPS if `ssl`. `access_key` is not
  /// sent if empty. `initiators` are the names under which this host gets access; null: determined
  /// when they are first needed.
  SCSI_Target_Manager(const std::string& host, unsigned short port, bool ssl,
                      const std::string& access_key, const std::string& pool_uuid,
                      const std::vector<std::string>* initiators);
  /// The same with the host, port and TLS of `url`. If `url` does not parse, that is logged and
  /// every operation fails.
  SCSI_Target_Manager(const std::string& url, const std::string& access_key,
                      const std::string& pool_uuid, const std::vector<std::string>* initiators);

  /// Sets `host_uuid_` to this host's identity (Host_ID). The constructors call it.
  void init();

  /// "normal" or "newest"; null for any other value.
  static const char* type_to_name(int type);

  // --- The pool ---------------------------------------------------------------------------------

  /// Gets the pool's description, and stores its "type" in `scsi_type_`. The request is not
  /// repeated. Fails also when the service does not know exactly one such pool.
  bool get_scsi_pool_info(Object& info);

  /// Calls get_scsi_pool_info() unless `scsi_type_` is known already. `scsi_type_` may be empty
  /// after success, too: the description need not have a "type".
  bool get_scsi_type();

  /// Returns the iSCSI portal, port 3260 of the service's host: "192.0.2.1:3260",
  /// "[2001:db8::7]:3260". Sends no request, but resolves a host name, for as long as the system's
  /// resolver takes. A name that cannot be resolved gives an all-zero address.
  std::string get_scsi_pool_portal() const;

  /// Gets the pool's target name and total size. If only the size is missing, `target` is written.
  bool get_scsi_pool_target_size(std::string& target, ACE_UINT64& size);

  /// Returns a new iSCSI target name: "iqn.2026-11.org.zqpool:" and a UUID, in lower case. Sends no
  /// request.
  std::string generate_target_name() const;

  // --- LUNs -------------------------------------------------------------------------------------

  /// Creates an empty LUN of `size`, and exports it if `to_export`, to this host if `with_acls`.
  /// `block_size` is in bytes; not positive: the service's default. `lun_id` receives the LUN's
  /// identifier, `lun` its number on the target. A LUN that is not exported need not have a number;
  /// `lun` is unchanged then.
  ///
  /// Creates nothing if `retention` has no name, or if `with_acls` and this host has no initiators.
  /// Logs nothing itself when the request fails or its answer is not an object. If only the number
  /// is missing in the answer, the LUN exists and `lun_id` is written.
  bool create_lun(const ACE_UINT64 size, std::string& lun_id, int& lun, int block_size,
                  bool to_export, bool with_acls, Retention_Type retention);

  /// Creates a LUN from a snapshot, and exports it if `to_export`, with access for no host yet.
  /// Outputs and failures as above.
  bool create_lun(const std::string& snapshot_id, std::string& lun_id, int& lun,
                  bool to_export) const;

  /// Creates a LUN with retention TYPE_NEWEST and the default block size, exported to this host.
  bool create_newest_lun(const ACE_UINT64 size, std::string& lun_id, int& lun);

  /// Exports a LUN to this host, and gets its number on the target. `transport` ("iSCSI" or
  /// another) and `target` name where; unless both are given, the pool's own are used. Exports
  /// nothing if this host has no initiators. Logs nothing itself when the request fails or its
  /// answer is not an object.
  bool export_lun(const std::string& lun_id, int& lun_num, const char* transport,
                  const char* target);

  /// Withdraws a LUN's export, with `force` also one in use. Logs nothing itself.
  bool unexport_lun(const std::string& lun_id, bool force) const;

  /// Rolls a LUN back to its newest snapshot, with `force` also one in use. Logs nothing itself.
  bool rollback_lun(const std::string& lun_id, bool force) const;

  /// Deletes a LUN, with `force` also one that is exported. `status`, if not null, receives the
  /// HTTP status, also on failure (0: no answer). Logs nothing itself.
  bool delete_lun(const std::string& lun_id, bool force, int* status) const;

  /// Gets the description of a LUN. Fails also when the service does not know exactly one.
  bool get_scsi_pool_lun_info(const std::string& lun_id, Object& info) const;

  /// Gets the descriptions of all LUNs of the pool. The entries are not checked. A pool without
  /// LUNs gives an empty list.
  bool list_scsi_pool_luns(Array& luns) const;

  /// Gets a LUN's number on the target. Fails also when it has none.
  bool get_lun_num(const std::string& lun_id, int& lun_num) const;

  /// Gets a LUN's SCSI serial number. Fails without a log message when the LUN has none, and when
  /// `lun_id` is empty, which sends no request.
  bool get_serial_number(const std::string& lun_id, std::string& serial_number) const;

  // --- Snapshots of LUNs ------------------------------------------------------------------------

  /// Takes a snapshot of a LUN. The service may delete a `recyclable` one when it needs space. Logs
  /// nothing itself when the request fails or its answer is not an object.
  bool create_snapshot(const std::string& lun_id, std::string& snapshot_id, bool recyclable) const;

  /// Exports a snapshot to this host, and gets its number on the target. `transport`, `target` and
  /// failures as in export_lun().
  bool share_snapshot(const std::string& snapshot_id, const char* transport, const char* target,
                      int& lun);

  /// Withdraws the export of a snapshot under `lun_num`. Logs nothing itself.
  bool unexport_snapshot(const std::string& snapshot_id, int lun_num) const;

  /// Deletes a snapshot, and with `delete_empty_lun` also its LUN if nothing else is left of it.
  /// Logs nothing itself.
  bool delete_snapshot(const std::string& snapshot_id, const bool delete_empty_lun) const;

  /// Gets the description of a snapshot. A snapshot that is exported several times has one for each
  /// of its numbers, of which `lun` selects one; a single description is taken whatever its number.
  /// Fails without a log message when the service knows no such snapshot, or none under `lun`.
  bool get_snapshot_info(const std::string& snapshot_id, Object& info, int lun) const;

  /// Gets the SCSI serial number of a snapshot exported under `lun_num`. Fails without a log
  /// message when it has none.
  bool get_snapshot_serial_number(const std::string& snapshot_id, int lun_num,
                                  std::string& serial_number) const;

  /// Gets the predecessor of a snapshot: the snapshot of the same LUN with the largest "seq" below
  /// its own; the last one listed if several have it.
  ///
  /// Pass an empty `info` and look at it, not at the result, which is true only if there is no
  /// predecessor. Found: false, `info` filled. None: true, `info` empty. Failure: false, `info`
  /// empty; but if the list holds a bad entry, `info` may hold the best snapshot before it. A
  /// non-empty `info` is unchanged when no predecessor is found.
  ///
  /// @code
  ///   Object previous;
  ///   pool.get_previous_snapshot(snapshot_id, previous);
  ///   if (!previous.empty()) use(previous);
  /// @endcode
  bool get_previous_snapshot(const std::string& snapshot_id, Object& info) const;

  /// Computes the size that a snapshot of a LUN (`is_lun`) or filesystem adds to its predecessor:
  /// the difference of their "rfer_size" plus the predecessor's "excl_size"; if that is negative,
  /// 0, and a warning is logged. Without a predecessor, or if it cannot be determined: the
  /// snapshot's own "rfer_size" plus "excl_size".
  bool cal_snapshot_size(const std::string& snapshot_id, ACE_UINT64& size, bool is_lun) const;

  // --- Access -----------------------------------------------------------------------------------

  /// Sets "acls" of the request body `params` to this host's initiators. If `initiators_` is empty,
  /// fills it first: with the iSCSI name if `transport` is "iSCSI" (in upper or lower case) or
  /// `scsi_type_` is, else with the Fibre Channel ports. If `transport` is null, calls
  /// get_scsi_type() first, and fails if the type stays unknown.
  bool get_acls(Object& params, const char* transport);

  /// Adds this host to those with access to an exported LUN. `transport` as in get_acls(). Logs
  /// nothing itself when the request fails.
  bool add_lun_acls(const std::string& lun_id, const char* transport);

  /// Adds this host to those with access to a snapshot exported under number `lun`. Logs nothing
  /// itself when the request fails.
  bool add_snapshot_acls(const std::string& snapshot_id, int lun);

  // --- Filesystems ------------------------------------------------------------------------------

  /// Creates a filesystem from `*snapshot_id` (null or "": empty) and mounts it at `*mount_point`
  /// (null or "": not mounted). Logs nothing itself.
  bool create_filesystem(std::string name, const std::string* snapshot_id,
                         const std::string* mount_point) const;

  /// Deletes a filesystem. `status` as in delete_lun(). Logs nothing itself.
  bool delete_filesystem(const std::string& name, int* status) const;

  /// Rolls a filesystem back to its newest snapshot. Logs nothing itself.
  bool rollback_filesystem(std::string name) const;

  /// Gets the description of a filesystem. If the service does not know exactly one, nothing is
  /// logged here, and `status`, if not null, receives the HTTP status; otherwise `status` is not
  /// written. Without `logging_error` the client does not log a failed request either; use this to
  /// check whether a filesystem exists.
  bool list_filesystem_info(const std::string& name, Object& info, bool logging_error,
                            int* status) const;

  /// Mounts a filesystem and gets its mount point. Fails without a log message when the answer
  /// lacks it.
  bool mount_filesystem(const std::string& name, std::string& mount_point) const;

  /// Gets the mounts of filesystem `*name`, or of all filesystems of the pool (null or ""). The
  /// entries are not checked.
  bool list_mounted_filesystem(Array& info, const std::string* name) const;

  /// Moves a filesystem's mount point. Never returns true. An answer that is a string, as the
  /// reference service sends after a successful move, throws std::runtime_error; any other answer
  /// is a failure. `absolute_path` is not written. Call list_mounted_filesystem() to see what
  /// happened.
  bool update_filesystem_mountpoint(const std::string& name, const std::string& new_mount_point,
                                    std::string& absolute_path) const;

  /// Unmounts a filesystem. Logs nothing itself.
  bool umount_filesystem(const std::string& name) const;

  /// Takes a snapshot of a filesystem. The service may delete a `recyclable` one when it needs
  /// space.
  bool create_filesystem_snapshot(const std::string& name, std::string& snapshot_id,
                                  bool recyclable) const;

  /// Deletes a snapshot, and with `delete_empty_fs` also its filesystem if nothing else is left of
  /// it. Logs nothing itself.
  bool delete_filesystem_snapshot(const std::string& snapshot_id, const bool delete_empty_fs) const;

  /// Gets the description of a filesystem's snapshot. Fails also when the service does not know
  /// exactly one.
  bool get_filesystem_snapshot_info(const std::string& snapshot_id, Object& info) const;

  /// Gets the predecessor of a filesystem's snapshot. Look at `info`, not at the result, as with
  /// get_previous_snapshot().
  bool get_previous_filesystem_snapshot(const std::string& snapshot_id, Object& info) const;

  // --- Members ----------------------------------------------------------------------------------

  Retention_Type type = TYPE_NONE;  ///< used by no operation
  std::string host_;
  unsigned short port_ = 0;
  bool ssl_ = false;
  std::string access_key_;
  std::string pool_uuid_;
  std::string scsi_type_;                ///< SCSI transport, "iSCSI" or another; "": not known yet
  std::string host_uuid_;                ///< this host's
  std::vector<std::string> initiators_;  ///< this host's iSCSI names or Fibre Channel WWNs
};
