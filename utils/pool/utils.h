#pragma once

#include <string>

#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

// The functions here are thread-safe.

/// Splits the path of a device that the storage service serves over HTTP. For
/// "/zq/data/5f3a/dir/file", `device_uri` is "zq/data/5f3a", `device_uuid` "5f3a" and `prefix_path`
/// "dir/file". `prefix_path` is unchanged if nothing follows the device. Null outputs are skipped.
/// If `uri` is not such a path, logs that and returns false with all outputs unchanged.
ZQPOOL_EXPORT bool parse_http_uri(const std::string& uri, std::string* device_uri,
                                  std::string* device_uuid, std::string* prefix_path);

/// Splits the path of a LAN-free device. For "/p1/l7/zq/a/b", `device_uri` is "p1/l7/zq",
/// `pool_uuid` "p1", `lun_id` "l7" (empty if the path has none) and `prefix_path` "a/b". Otherwise
/// as parse_http_uri().
ZQPOOL_EXPORT bool parse_lanfree_uri(const std::string& uri, std::string* device_uri,
                                     std::string* pool_uuid, std::string* lun_id,
                                     std::string* prefix_path);

/// Replaces host, port and TLS in the "url" of the device record `dev` by the "host" (string),
/// "port" (integer of 32 bits, cut to 16) and "ssl" (bool) of `backupd_dev`, each if present.
/// Returns false, with `dev` unchanged, if `dev` has no "url" that parses. Logs nothing.
ZQPOOL_EXPORT bool adjust_device_url_by_backupd_device(const Object& backupd_dev, Object& dev);

/// Returns whether a storage catalog belongs to one of the cd modules, by the module identity
/// `agent` (null: the catalog's "agent"; see Catalog_Agent). Catalogs with certain "extended_attrs"
/// do not, whatever their identity. Logs nothing.
ZQPOOL_EXPORT bool is_cd_modules(const Object& storage_catalog, const std::string* agent);

/// Gets the file-system statistics of a storage server's data root. Blocks for at most 120 seconds
/// to connect and 120 seconds for the request. Only the low 16 bits of `port` are used. On failure
/// logs one line and returns false with `info` unchanged.
ZQPOOL_EXPORT bool get_storaged_space_info(const std::string& host, const unsigned int port,
                                           const bool ssl, const std::string& access_key,
                                           Object& info);
