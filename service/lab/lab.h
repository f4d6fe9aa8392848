#pragma once

#include "service/api/router.h"

namespace zqpool::service {

class Service;

/// The paths under /zq/lab/, which are for tests and demonstrations and no part of the protocol:
/// scenarios, scripted faults, what guests do and see, a check of the state, and how the process
/// is. `service` must outlive the router.
void add_lab(Router& router, Service& service);

}  // namespace zqpool::service
