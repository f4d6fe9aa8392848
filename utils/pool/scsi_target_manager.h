#pragma once

#include <ace/Basic_Types.h>

#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// A SCSI pool of the storage service: its LUNs, which are exported to this host over iSCSI or
/// Fibre Channel, their snapshots, and its filesystems with theirs.
///
/// Every operation makes one exchange with the service, or a few in a row, and blocks its thread
/// meanwhile. False means that the wanted answer did not come; the reason is in the log, except
/// where said otherwise, and outputs are as they were, except where said otherwise. Operations
/// throw nothing but std::bad_alloc, with the one exception of update_filesystem_mountpoint().
///
/// A request that changes something is sent once. When it returns false although it went out, the
/// change may have been made (HTTP_Exchange_Report::outcome_unknown()).
///
/// An object is used by one thread at a time, because some operations fill `scsi_type_` and
/// `initiators_`; the const operations may run on several threads at once. Distinct objects are
/// independent. Nothing is kept open between calls. Copies are cheap and good.
///
/// Identifiers go into the service's queries as they stand, so one must not hold "&", "=" or "+".
/// Sizes are in the service's unit (bytes, as the reference service has it).
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
  /// What the service keeps a LUN for.
  enum Retention_Type : int { TYPE_NONE = 0, TYPE_NORMAL = 1, TYPE_NEWEST = 2 };

  /// The pool `pool_uuid` on the service at `host`:`port` (HTTPS when `ssl`), asked with
  /// `access_key` (none is sent when it is empty). `initiators` are the names under which this host
  /// is let in: copied, or with null found out when they are first needed.
  SCSI_Target_Manager(const std::string& host, unsigned short port, bool ssl,
                      const std::string& access_key, const std::string& pool_uuid,
                      const std::vector<std::string>* initiators);
  /// As above, host, port and TLS taken from `url`. One that does not parse is logged, and every
  /// operation of the object then fails.
  SCSI_Target_Manager(const std::string& url, const std::string& access_key,
                      const std::string& pool_uuid, const std::vector<std::string>* initiators);

  /// Takes this host's identity anew (Host_ID); the constructors have done so.
  void init();

  /// "normal" or "newest"; null for any other value.
  static const char* type_to_name(int type);

  // --- The pool ---------------------------------------------------------------------------------

  /// The pool's description, into `info`; its "type" is kept in `scsi_type_`. The client makes one
  /// attempt only. False also when the service does not know exactly one such pool.
  bool get_scsi_pool_info(Object& info);

  /// Makes sure that the pool's SCSI transport is in `scsi_type_`: asks the service until it has
  /// answered once. May be true with `scsi_type_` still empty, when the service does not say.
  bool get_scsi_type();

  /// The iSCSI portal, the service's host at port 3260: "192.0.2.1:3260", "[2001:db8::7]:3260".
  /// Looks a name up, which may take as long as the system's resolver likes; for one that is not
  /// found the text is that of an address of zeros. Asks no service.
  std::string get_scsi_pool_portal() const;

  /// The pool's target name and total size. When only the size is missing `target` is written.
  bool get_scsi_pool_target_size(std::string& target, ACE_UINT64& size);

  /// A new iSCSI target name: "iqn.2026-11.org.zqpool:" and a UUID, all lower case. Asks no
  /// service.
  std::string generate_target_name() const;

  // --- LUNs -------------------------------------------------------------------------------------

  /// Creates an empty LUN of `size`, kept for `retention`, and with `to_export` exports it at once:
  /// to this host when `with_acls`. `block_size` in bytes; the service's default when it is not
  /// positive. `lun_id` receives the LUN's identifier, `lun` its number on the target, which only
  /// an exported LUN must have (else `lun` may keep what it had).
  ///
  /// A retention without a name is refused, and so is a host without initiators when `with_acls`;
  /// nothing is sent then. Logs nothing when the exchange fails or brings no object. When the
  /// number is missing, `lun_id` is written and the LUN is there.
  bool create_lun(const ACE_UINT64 size, std::string& lun_id, int& lun, int block_size,
                  bool to_export, bool with_acls, Retention_Type retention);

  /// Creates a LUN with the content of a snapshot, and with `to_export` exports it, to nobody yet.
  /// Outputs and failures as above.
  bool create_lun(const std::string& snapshot_id, std::string& lun_id, int& lun,
                  bool to_export) const;

  /// create_lun() of a LUN of class TYPE_NEWEST, exported to this host, with the default block
  /// size.
  bool create_newest_lun(const ACE_UINT64 size, std::string& lun_id, int& lun);

  /// Exports a LUN to this host; its number on the target goes into `lun_num`. `transport`
  /// ("iSCSI" or another) and `target` name the way; unless both are given the pool's own is taken.
  /// Nothing is sent for a host without initiators. Logs nothing when the exchange fails or brings
  /// no object.
  bool export_lun(const std::string& lun_id, int& lun_num, const char* transport,
                  const char* target);

  /// Withdraws a LUN's export; with `force` also one in use. Logs nothing by itself.
  bool unexport_lun(const std::string& lun_id, bool force) const;

  /// Takes a LUN back to its newest snapshot; with `force` also one in use. Logs nothing by itself.
  bool rollback_lun(const std::string& lun_id, bool force) const;

  /// Deletes a LUN; with `force` also one that is exported. `status`, where not null, receives the
  /// HTTP status, good or bad (0 when no answer came). Logs nothing by itself.
  bool delete_lun(const std::string& lun_id, bool force, int* status) const;

  /// A LUN's description, into `info`. False also when the service does not know exactly one.
  bool get_scsi_pool_lun_info(const std::string& lun_id, Object& info) const;

  /// The descriptions of all LUNs of the pool, into `luns`, unchecked. None is a success.
  bool list_scsi_pool_luns(Array& luns) const;

  /// A LUN's number on the target. False also when it has none.
  bool get_lun_num(const std::string& lun_id, int& lun_num) const;

  /// A LUN's SCSI serial number. An empty `lun_id` is false without a request. Silent when the LUN
  /// is there but has no serial number.
  bool get_serial_number(const std::string& lun_id, std::string& serial_number) const;

  // --- Snapshots of LUNs ------------------------------------------------------------------------

  /// Takes a snapshot of a LUN. The service may reclaim a `recyclable` one when it needs the room.
  /// Logs nothing when the exchange fails or brings no object.
  bool create_snapshot(const std::string& lun_id, std::string& snapshot_id, bool recyclable) const;

  /// Exports a snapshot to this host; the number under which it is shared goes into `lun`.
  /// `transport` and `target` as in export_lun(), and the failures, too.
  bool share_snapshot(const std::string& snapshot_id, const char* transport, const char* target,
                      int& lun);

  /// Withdraws the share of a snapshot under `lun_num`. Logs nothing by itself.
  bool unexport_snapshot(const std::string& snapshot_id, int lun_num) const;

  /// Deletes a snapshot, and with `delete_empty_lun` also its LUN if nothing is left of that. Logs
  /// nothing by itself.
  bool delete_snapshot(const std::string& snapshot_id, const bool delete_empty_lun) const;

  /// A snapshot's description, into `info`. One that is shared several times has a description for
  /// each LUN number, of which `lun` selects; a single one is taken whatever its number. Silent
  /// when the service knows no such snapshot, or none under `lun`.
  bool get_snapshot_info(const std::string& snapshot_id, Object& info, int lun) const;

  /// The SCSI serial number of a snapshot shared under `lun_num`. Silent when it has none.
  bool get_snapshot_serial_number(const std::string& snapshot_id, int lun_num,
                                  std::string& serial_number) const;

  /// Looks for the snapshot right before `snapshot_id` among those of the same LUN: the one with
  /// the largest "seq" below its own, the last listed of several alike.
  ///
  /// Judge by `info`, passed in empty, not by the result: found is a filled `info` and false; none
  /// is an empty `info` and true; anything else is an empty `info` and false (but a failure amid
  /// the list may leave the best one before it in `info`). An `info` passed in with content keeps
  /// it where no snapshot is found.
  ///
  /// @code
  ///   Object previous;
  ///   pool.get_previous_snapshot(snapshot_id, previous);
  ///   if (!previous.empty()) use(previous);
  /// @endcode
  bool get_previous_snapshot(const std::string& snapshot_id, Object& info) const;

  /// What a snapshot adds over the one before it, of a LUN (`is_lun`) or of a filesystem: the
  /// growth of what it refers to ("rfer_size") and what its predecessor holds alone ("excl_size"),
  /// or 0 after a warning if that is negative; for a first snapshot both its own sizes. A
  /// predecessor that cannot be found out counts as none.
  bool cal_snapshot_size(const std::string& snapshot_id, ACE_UINT64& size, bool is_lun) const;

  // --- Who may reach them -----------------------------------------------------------------------

  /// Writes this host's initiators into the request body `params`, as "acls", in place of any that
  /// are there. When `initiators_` is empty they are found out first, and then kept: over iSCSI
  /// when `transport` says so (in any case of letters) or the pool's known one does, else the Fibre
  /// Channel ports. With null the pool's transport is asked for when it is not known, and not to
  /// get it is a failure. False leaves `params` as it was.
  bool get_acls(Object& params, const char* transport);

  /// Lets this host reach an exported LUN, beside those who may already. `transport` as in
  /// get_acls().
  /// Logs nothing when the exchange fails.
  bool add_lun_acls(const std::string& lun_id, const char* transport);

  /// Lets this host reach the share of a snapshot under number `lun`. Logs nothing when the
  /// exchange fails.
  bool add_snapshot_acls(const std::string& snapshot_id, int lun);

  // --- Filesystems, named within the pool -------------------------------------------------------

  /// Creates a filesystem: empty, or with the content of `snapshot_id`; mounted at `mount_point`
  /// when there is one. Null and "" stand for none. Logs nothing by itself.
  bool create_filesystem(std::string name, const std::string* snapshot_id,
                         const std::string* mount_point) const;

  /// Deletes a filesystem. `status` as in delete_lun(). Logs nothing by itself.
  bool delete_filesystem(const std::string& name, int* status) const;

  /// Takes a filesystem back to its newest snapshot. Logs nothing by itself.
  bool rollback_filesystem(std::string name) const;

  /// A filesystem's description, into `info`. When the service does not know exactly one, that is
  /// not logged, and `status`, where not null, receives the HTTP status; it is written in no other
  /// case. Without `logging_error` the client does not log a failed exchange either, so that one
  /// can probe for a filesystem.
  bool list_filesystem_info(const std::string& name, Object& info, bool logging_error,
                            int* status) const;

  /// Mounts a filesystem; where goes into `mount_point`. Silent when the answer does not say where.
  bool mount_filesystem(const std::string& name, std::string& mount_point) const;

  /// The mounts of the pool's filesystems, or of the one that `name` points to (null or "": all),
  /// into `info`, unchecked.
  bool list_mounted_filesystem(Array& info, const std::string* name) const;

  /// Moves a filesystem's mount point to `new_mount_point`. Never returns true: an answer that is
  /// an object is refused with false, and one that is a string, as the reference service gives,
  /// throws std::runtime_error, although the move is done then. `absolute_path` is not written.
  /// Read the mount back to know.
  bool update_filesystem_mountpoint(const std::string& name, const std::string& new_mount_point,
                                    std::string& absolute_path) const;

  /// Unmounts a filesystem. Logs nothing by itself.
  bool umount_filesystem(const std::string& name) const;

  /// Takes a snapshot of a filesystem. The service may reclaim a `recyclable` one.
  bool create_filesystem_snapshot(const std::string& name, std::string& snapshot_id,
                                  bool recyclable) const;

  /// Deletes a snapshot, and with `delete_empty_fs` also its filesystem if nothing is left of that.
  /// Logs nothing by itself.
  bool delete_filesystem_snapshot(const std::string& snapshot_id, const bool delete_empty_fs) const;

  /// A filesystem snapshot's description, into `info`. False also when the service does not know
  /// exactly one.
  bool get_filesystem_snapshot_info(const std::string& snapshot_id, Object& info) const;

  /// Looks for the snapshot right before `snapshot_id` among those of the same filesystem. Judge by
  /// `info`, as with get_previous_snapshot().
  bool get_previous_filesystem_snapshot(const std::string& snapshot_id, Object& info) const;

  // --- What it is made of -----------------------------------------------------------------------

  Retention_Type type = TYPE_NONE;  ///< of no meaning to any operation
  std::string host_;
  unsigned short port_ = 0;
  bool ssl_ = false;
  std::string access_key_;
  std::string pool_uuid_;
  std::string scsi_type_;  ///< "iSCSI" or another transport; "" until the service was asked
  std::string host_uuid_;  ///< of this host
  std::vector<std::string> initiators_;  ///< iSCSI names or Fibre Channel WWNs of this host
};
