#pragma once

#include <chrono>
#include <vector>

#include "service/api/consistency_check.h"
#include "service/api/router.h"
#include "service/api/scenario.h"

namespace zqpool::service {

/// What the service offers: the paths, the scenario sections and the checks of every resource
/// family.
struct Families {
  /// `nfs_delay`: how long the NFS server takes to take a record over.
  explicit Families(std::chrono::milliseconds nfs_delay = std::chrono::milliseconds(50));

  Router router;
  Scenario scenario;
  std::vector<Check> checks;
};

}  // namespace zqpool::service
