#pragma once

#include <string>

#include "platform/json/json_spirit.h"
#include "service/store/database.h"

namespace zqpool::service {

// Rows of the catalog as JSON objects.

/// The columns of catalog_pool p, and of catalog_device d, that the functions below read.
inline const std::string pool_columns =
    "p.uuid AS uuid, p.name AS name, p.type AS type, p.state AS state, "
    "p.description AS description, p.created AS created, p.attributes AS attributes";
inline const std::string device_columns =
    "d.uuid AS uuid, d.pool_uuid AS pool_uuid, d.name AS name, d.type AS type, d.role AS role, "
    "d.state AS state, d.url AS url, d.path_prefix AS path_prefix, d.size AS size, "
    "d.used AS used, d.bound_host_id AS bound_host_id, d.bound_sysname AS bound_sysname, "
    "d.created AS created, d.attributes AS attributes";
inline const std::string devices_select = "SELECT " + device_columns + " FROM catalog_device d ";

/// A pool as a scenario describes it, without its attributes.
Object pool_description(const Statement& row);
/// A device as a scenario describes it, without its attributes.
Object device_description(const Statement& row);
/// The attributes of a pool or device.
Object attributes_of(const Statement& row);

/// A device as responses describe it.
Object device_record(const Statement& row);

/// Throws Request_Error (404) when there is no such pool.
void need_pool(Connection& db, const std::string& uuid);

}  // namespace zqpool::service
