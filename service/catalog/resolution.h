#pragma once

#include <string>

#include "service/api/request_fields.h"
#include "service/api/router.h"
#include "service/api/scenario.h"

namespace zqpool::service {

// How a host comes from a pool's identifier to the storages behind it: the management service's
// part. The storages of a pool are its devices of the catalog, with what only who reaches them must
// know.

/// What a pool's scenario entry says of that: keys and cipher of its data, and who may ask.
Object read_pool_attributes(Request_Fields& fields);

/// What a device's entry says: node, attached hosts, and what its kind of URL asks for. The secret
/// key of an object store is sealed, for this URL, by the process's shared secret.
Object read_storage_attributes(Request_Fields& fields, const std::string& url);

/// Adds the paths /zq/r/storages/pool and /zq/jr, and the scenario section "replicas".
void add_resolution(Router& router, Scenario& scenario);

}  // namespace zqpool::service
