#pragma once

#include "service/router.h"

namespace zqpool::service {

/// The paths /zq/r/scsipool/snapshot and /zq/r/scsipool/snapshot/export.
void add_snapshot_paths(Router& router);

}  // namespace zqpool::service
