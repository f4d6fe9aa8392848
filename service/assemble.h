#pragma once

#include <chrono>

#include "service/api/resources.h"

namespace zqpool::service {

/// Puts the resource families together. `nfs_delay`: how long an NFS record stays pending.
Resources assemble(std::chrono::milliseconds nfs_delay = std::chrono::milliseconds(50));

}  // namespace zqpool::service
