#pragma once

#include <string>

#include "service/api/request_fields.h"
#include "service/api/router.h"
#include "service/api/scenario.h"

namespace zqpool::service {

// How the management service describes a pool to a host. The storages of a pool are its devices,
// with what a host needs to reach them.

/// Reads from a pool's scenario entry the keys and cipher of its data, and who may ask for it.
Object read_pool_attributes(Request_Fields& fields);

/// Reads from a device's entry its node, attached hosts, and what its kind of URL needs. The secret
/// key of an object store is sealed for this URL with the process's shared secret.
Object read_storage_attributes(Request_Fields& fields, const std::string& url);

/// Adds the paths /zq/r/storages/pool and /zq/jr, and the scenario section "replicas".
void add_resolution(Router& router, Scenario& scenario);

}  // namespace zqpool::service
