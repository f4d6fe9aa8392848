#pragma once

#include "service/api/resources.h"
#include "service/app/dispatcher.h"

namespace zqpool::service {

/// Adds the paths under /zq/lab/, which are for tests and demonstrations, not part of the protocol:
/// scenarios, scripted faults, guests' writes, a check of the state, and the health of the process.
/// Both arguments must outlive the router's use.
void add_lab(Resources& resources, Dispatcher& dispatcher);

}  // namespace zqpool::service
