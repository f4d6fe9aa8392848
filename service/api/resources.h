#pragma once

#include <vector>

#include "service/api/consistency_check.h"
#include "service/api/router.h"
#include "service/api/scenario.h"

namespace zqpool::service {

/// What the service offers: the paths, scenario sections and checks of its resource families.
struct Resources {
  Router router;
  Scenario scenario;
  std::vector<Check> checks;
};

}  // namespace zqpool::service
