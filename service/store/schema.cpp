#include "service/store/schema.h"

#include <iterator>

namespace zqpool::service {

// Identifiers compare case-insensitively, because clients write UUIDs in either case.
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
    // 3: pools that keep volumes, LUNs and their exports
    R"sql(
CREATE TABLE volume_pool (
  uuid TEXT NOT NULL COLLATE NOCASE PRIMARY KEY REFERENCES catalog_pool (uuid) ON DELETE CASCADE,
  total_size INTEGER NOT NULL,
  used_size INTEGER NOT NULL DEFAULT 0 CHECK (used_size BETWEEN 0 AND total_size)
) WITHOUT ROWID;

CREATE TABLE volume (
  number INTEGER PRIMARY KEY,
  pool TEXT NOT NULL COLLATE NOCASE REFERENCES volume_pool (uuid) ON DELETE CASCADE,
  kind TEXT NOT NULL CHECK (kind IN ('lun', 'filesystem')),
  name TEXT NOT NULL,
  size INTEGER CHECK (size > 0), -- null: whatever the pool has
  next_seq INTEGER NOT NULL CHECK (next_seq > 0),
  origin INTEGER REFERENCES volume_snapshot (number),
  created TEXT NOT NULL,
  UNIQUE (pool, kind, name)
);
CREATE UNIQUE INDEX volume_lun ON volume (name) WHERE kind = 'lun';
CREATE INDEX volume_origin ON volume (origin);

CREATE TABLE volume_snapshot (
  number INTEGER PRIMARY KEY,
  id TEXT NOT NULL UNIQUE,
  volume INTEGER NOT NULL REFERENCES volume (number) ON DELETE CASCADE,
  seq INTEGER NOT NULL CHECK (seq > 0),
  recyclable INTEGER NOT NULL CHECK (recyclable IN (0, 1)),
  created TEXT NOT NULL,
  UNIQUE (volume, seq)
);
CREATE INDEX volume_snapshot_recyclable ON volume_snapshot (created) WHERE recyclable = 1;

CREATE TABLE volume_extent (
  number INTEGER PRIMARY KEY,
  volume INTEGER NOT NULL REFERENCES volume (number) ON DELETE CASCADE,
  start INTEGER NOT NULL CHECK (start >= 0),
  length INTEGER NOT NULL CHECK (length > 0),
  born INTEGER NOT NULL CHECK (born >= 0),
  died INTEGER CHECK (died > born), -- null: it lives
  data INTEGER NOT NULL,
  data_start INTEGER NOT NULL CHECK (data_start >= 0)
);
CREATE INDEX volume_extent_volume ON volume_extent (volume, died, start);
CREATE INDEX volume_extent_data ON volume_extent (data, data_start);

-- What was deleted, so that deleting it once more is no error.
CREATE TABLE volume_gone (
  pool TEXT NOT NULL COLLATE NOCASE REFERENCES volume_pool (uuid) ON DELETE CASCADE,
  what TEXT NOT NULL,
  name TEXT NOT NULL,
  PRIMARY KEY (pool, what, name)
) WITHOUT ROWID;

CREATE TABLE scsi_pool (
  uuid TEXT NOT NULL COLLATE NOCASE PRIMARY KEY REFERENCES volume_pool (uuid) ON DELETE CASCADE,
  transport TEXT NOT NULL CHECK (transport IN ('iSCSI', 'FC')),
  target TEXT NOT NULL COLLATE NOCASE UNIQUE,
  portal TEXT -- null: none
) WITHOUT ROWID;

CREATE TABLE scsi_lun (
  volume INTEGER PRIMARY KEY REFERENCES volume (number) ON DELETE CASCADE,
  block_size INTEGER NOT NULL CHECK (block_size > 0),
  retention TEXT NOT NULL
);

CREATE TABLE scsi_export (
  number INTEGER PRIMARY KEY,
  pool TEXT NOT NULL COLLATE NOCASE REFERENCES scsi_pool (uuid) ON DELETE CASCADE,
  target TEXT NOT NULL COLLATE NOCASE,
  transport TEXT NOT NULL,
  lun_num INTEGER NOT NULL CHECK (lun_num BETWEEN 1 AND 16383),
  volume INTEGER UNIQUE REFERENCES volume (number) ON DELETE CASCADE,
  snapshot INTEGER REFERENCES volume_snapshot (number) ON DELETE CASCADE,
  CHECK ((volume IS NULL) <> (snapshot IS NULL)),
  UNIQUE (target, lun_num),
  UNIQUE (snapshot, lun_num)
);

CREATE TABLE scsi_access (
  export INTEGER NOT NULL REFERENCES scsi_export (number) ON DELETE CASCADE,
  initiator TEXT NOT NULL COLLATE NOCASE,
  host_uuid TEXT NOT NULL,
  PRIMARY KEY (export, initiator)
) WITHOUT ROWID;
CREATE INDEX scsi_access_initiator ON scsi_access (initiator);

-- Who stands in the way of deleting a volume or snapshot; one of the two is null.
CREATE VIEW volume_use (volume, snapshot, how) AS
  SELECT volume, snapshot, iif(volume IS NULL, 'shared', 'exported') FROM scsi_export;
)sql",
    // 4: filesystems and NFS exports
    R"sql(
CREATE TABLE filesystem (
  volume INTEGER PRIMARY KEY REFERENCES volume (number) ON DELETE CASCADE,
  mount_point TEXT UNIQUE, -- null: none yet
  mounted INTEGER NOT NULL CHECK (mounted = 0 OR (mounted = 1 AND mount_point IS NOT NULL))
);

DROP VIEW volume_use;
CREATE VIEW volume_use (volume, snapshot, how) AS
  SELECT volume, snapshot, iif(volume IS NULL, 'shared', 'exported') FROM scsi_export
  UNION ALL SELECT volume, NULL, 'mounted' FROM filesystem WHERE mounted = 1;

CREATE TABLE nfs_export (
  uuid TEXT NOT NULL COLLATE NOCASE PRIMARY KEY,
  pseudo TEXT NOT NULL,
  fsal TEXT NOT NULL,
  squash TEXT NOT NULL,
  protocols TEXT NOT NULL,
  access_type TEXT NOT NULL,
  clients TEXT NOT NULL, -- a JSON array
  path TEXT,
  pool TEXT COLLATE NOCASE REFERENCES catalog_pool (uuid) ON DELETE CASCADE,
  sub_dir TEXT NOT NULL,
  withdrawn INTEGER NOT NULL CHECK (withdrawn IN (0, 1)), -- kept, so that it can be withdrawn again
  final_at INTEGER NOT NULL, -- milliseconds since 1970
  CHECK ((path IS NULL) <> (pool IS NULL))
) WITHOUT ROWID;
CREATE UNIQUE INDEX nfs_export_pseudo ON nfs_export (pseudo) WHERE withdrawn = 0;
)sql",
};
const std::size_t schema_version = std::size(schema_steps);

}  // namespace zqpool::service
