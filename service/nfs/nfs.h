#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "service/api/resources.h"
#include "service/store/database.h"

namespace zqpool::service {

/// Adds the path /zq/r/nfs and the scenario section "nfs_exports". A record that is made, changed
/// or withdrawn is "pending" for `delay`; then the NFS server has applied it.
void add_nfs(Resources& resources, std::chrono::milliseconds delay);

/// The UUID of a record that exports a path on the filesystem mounted there, if there is one.
std::optional<std::string> nfs_export_of_mount(Connection& db, const std::string& mount_point);

}  // namespace zqpool::service
