#pragma once

#include <vector>

#include "service/check.h"
#include "service/router.h"
#include "service/scenario.h"

namespace zqpool::service {

/// What the service offers: the paths, the scenario sections and the checks of every resource
/// family.
struct Families {
  Families();

  Router router;
  Scenario scenario;
  std::vector<Check> checks;
};

}  // namespace zqpool::service
