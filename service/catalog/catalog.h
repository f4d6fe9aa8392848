#pragma once

#include "service/api/router.h"
#include "service/api/scenario.h"

namespace zqpool::service {

/// The storage catalog: pools, the devices that make them up, and metadata that says on which
/// devices a path of a pool lies. Adds the paths under /zq/r/storage/catalog/ and the scenario
/// sections "pools", "devices" and "metadata".
void add_catalog(Router& router, Scenario& scenario);

}  // namespace zqpool::service
