#pragma once

#include <optional>
#include <string>

#include "service/store/database.h"
#include "service/volumes/volumes.h"

namespace zqpool::service {

/// A pool whose volumes are LUNs.
struct SCSI_Pool {
  Volume_Pool volumes;
  std::string transport;              ///< "iSCSI" or "FC"
  std::string target;                 ///< for exports that name none
  std::optional<std::string> portal;  ///< where the target is reached
};

/// Throws Request_Error like need_volume_pool().
SCSI_Pool need_scsi_pool(Connection& db, const std::string& uuid, Access access);

}  // namespace zqpool::service
