#pragma once

#include <optional>
#include <string>

#include "service/api/resources.h"
#include "service/store/database.h"
#include "service/volumes/volumes.h"

namespace zqpool::service {

// Named filesystems of a SCSI or image pool: volumes that can fill the pool, with snapshots and
// clones. Each can be mounted at one place.

struct Filesystem {
  Volume volume;
  std::optional<std::string> mount_point;  ///< absent: none yet; kept when it is unmounted
  bool mounted = false;
};

/// The functions throw Request_Error with a text for the client.

/// 404 when there is none.
Filesystem need_filesystem(Connection& db, const std::string& pool, const std::string& name);
std::optional<Filesystem> find_filesystem(Connection& db, const std::string& pool,
                                          const std::string& name);

/// None when it was deleted before, so that deleting or unmounting it again succeeds; 404 when it
/// never existed.
std::optional<Filesystem> find_undeleted_filesystem(Connection& db, const std::string& pool,
                                                    const std::string& name);

/// The name of a new filesystem: 1 to 255 bytes that paths and queries need not encode.
std::string read_filesystem_name(Request_Fields& fields, const std::string& key);
/// A mount point: an absolute path, tidy.
std::string read_mount_point(Request_Fields& fields, const std::string& key);

/// Makes an empty filesystem, or one with the content of a snapshot. One that is to be mounted
/// needs a mount point.
Filesystem make_filesystem(Connection& db, const Volume& wanted,
                           const std::optional<Snapshot>& origin,
                           const std::optional<std::string>& mount_point, bool mounted);
/// Gives it this mount point: 409 when another one has it.
void set_mount_point(Connection& db, const Filesystem& filesystem, const std::string& mount_point);
void set_mounted(Connection& db, const Filesystem& filesystem, bool mounted);

/// The description of a filesystem.
Object filesystem_record(Connection& db, const Filesystem& filesystem);

/// Adds the paths /zq/r/scsipool/fs, /fs/mount and /fs/snapshot, the scenario sections
/// "image_pools" and "filesystems", and the check of filesystems.
void add_filesystems(Resources& resources);

// Parts of it.
void add_filesystem_mount_path(Router& router);
void add_filesystem_snapshot_path(Router& router);
void add_filesystem_sections(Scenario& scenario);

}  // namespace zqpool::service
