#pragma once

#include "service/api/scenario.h"

namespace zqpool::service {

/// The scenario sections "pools", "devices" and "metadata".
void add_catalog_sections(Scenario& scenario);

}  // namespace zqpool::service
