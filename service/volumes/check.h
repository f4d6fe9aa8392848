#pragma once

#include "service/api/consistency_check.h"

namespace zqpool::service {

/// Computes the sizes of all volumes, snapshots and pools anew, range by range, and compares.
Check volume_check();

}  // namespace zqpool::service
