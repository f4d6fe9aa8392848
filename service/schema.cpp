#include "service/schema.h"

#include <iterator>

namespace zqpool::service {

// Identifiers compare without case: the two sides of the wire need not agree on it.
const char* const schema_steps[] = {
    // 1: the catalog
    R"sql(
CREATE TABLE catalog_pool (
  uuid TEXT NOT NULL COLLATE NOCASE PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  type TEXT NOT NULL,
  state TEXT NOT NULL,
  description TEXT NOT NULL,
  created TEXT NOT NULL
) WITHOUT ROWID;

CREATE TABLE catalog_device (
  uuid TEXT NOT NULL COLLATE NOCASE PRIMARY KEY,
  pool_uuid TEXT NOT NULL COLLATE NOCASE REFERENCES catalog_pool (uuid) ON DELETE CASCADE,
  name TEXT NOT NULL,
  type TEXT NOT NULL,
  role TEXT NOT NULL,
  state TEXT NOT NULL,
  url TEXT NOT NULL,
  path_prefix TEXT NOT NULL,
  size INTEGER NOT NULL CHECK (size >= 0),
  used INTEGER NOT NULL CHECK (used >= 0 AND used <= size),
  bound_host_id TEXT,
  bound_sysname TEXT,
  created TEXT NOT NULL,
  UNIQUE (pool_uuid, url)
) WITHOUT ROWID;
CREATE INDEX catalog_device_url ON catalog_device (url);

CREATE TABLE catalog_metadata (
  pool_uuid TEXT NOT NULL COLLATE NOCASE REFERENCES catalog_pool (uuid) ON DELETE CASCADE,
  path TEXT NOT NULL,
  grouping_name TEXT NOT NULL, -- empty: none
  device_uuid TEXT NOT NULL COLLATE NOCASE REFERENCES catalog_device (uuid) ON DELETE CASCADE,
  type TEXT NOT NULL,
  size INTEGER CHECK (size >= 0), -- null: not known
  PRIMARY KEY (pool_uuid, path, grouping_name, device_uuid)
) WITHOUT ROWID;
CREATE INDEX catalog_metadata_device ON catalog_metadata (device_uuid);
)sql",
    // 2: what resolving a pool needs
    R"sql(
-- JSON objects
ALTER TABLE catalog_pool ADD COLUMN attributes TEXT NOT NULL DEFAULT '{}';
ALTER TABLE catalog_device ADD COLUMN attributes TEXT NOT NULL DEFAULT '{}';

CREATE TABLE pool_replica (
  uuid TEXT NOT NULL COLLATE NOCASE PRIMARY KEY,
  pool_uuid TEXT NOT NULL COLLATE NOCASE REFERENCES catalog_pool (uuid) ON DELETE CASCADE
) WITHOUT ROWID;
CREATE INDEX pool_replica_pool ON pool_replica (pool_uuid);
)sql",
};
const std::size_t schema_version = std::size(schema_steps);

}  // namespace zqpool::service
