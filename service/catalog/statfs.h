#pragma once

#include "service/api/router.h"

namespace zqpool::service {

/// Adds the path /zq/r/file_uri/statfs: the size and free space of the storage server's data root.
/// The data root of this service is the file system of its state.
void add_storage_server(Router& router);

}  // namespace zqpool::service
