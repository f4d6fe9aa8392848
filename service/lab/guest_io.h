#pragma once

#include "service/api/router.h"

namespace zqpool::service {

/// Adds /zq/lab/write and /zq/lab/visible: what a guest or host does to a LUN or filesystem, and
/// which LUNs an initiator sees.
void add_guest_io(Router& router);

}  // namespace zqpool::service
