#pragma once

#include "service/router.h"
#include "service/scenario.h"

namespace zqpool::service {

/// What the service offers: the paths and the scenario sections of every resource family.
struct Families {
  Families();

  Router router;
  Scenario scenario;
};

}  // namespace zqpool::service
