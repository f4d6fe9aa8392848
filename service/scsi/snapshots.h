#pragma once

#include "service/api/router.h"

namespace zqpool::service {

/// The paths /zq/r/scsipool/snapshot and /zq/r/scsipool/snapshot/export.
void add_snapshot_paths(Router& router);

}  // namespace zqpool::service
