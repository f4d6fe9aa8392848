#pragma once

#include "service/api/resources.h"

namespace zqpool::service {

/// The paths /zq/r/pool, /zq/r/scsipool/lun and /zq/r/scsipool/snapshot with what is below them,
/// the scenario sections "scsi_pools" and "luns", and the check of exports.
void add_scsi_pools(Resources& resources);

}  // namespace zqpool::service
