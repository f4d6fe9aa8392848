#pragma once

#include <string>

#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// Takes apart the path of a device that the storage service serves over HTTP, such as
/// "/zq/data/5f3a/dir/file": `device_uri` "zq/data/5f3a", `device_uuid` "5f3a", `prefix_path`
/// "dir/file". Where nothing follows the device, `prefix_path` keeps what it had. Null outputs are
/// skipped. False, with a message and all outputs untouched, when `uri` is no such path.
/// Thread-safe.
ZQPOOL_EXPORT bool parse_http_uri(const std::string& uri, std::string* device_uri,
                                  std::string* device_uuid, std::string* prefix_path);

/// Takes apart the path of a LAN-free device, such as "/p1/l7/zq/a/b": `device_uri` "p1/l7/zq",
/// `pool_uuid` "p1", `lun_id` "l7" (empty when the path has none), `prefix_path` "a/b". The rest as
/// in parse_http_uri().
ZQPOOL_EXPORT bool parse_lanfree_uri(const std::string& uri, std::string* device_uri,
                                     std::string* pool_uuid, std::string* lun_id,
                                     std::string* prefix_path);

/// Points the "url" of the device record `dev` at a backup server: `backupd_dev`'s "host"
/// (string), "port" (integer, an int; cut to 16 bits) and "ssl" (bool) replace those of the URL,
/// each where present. False, with `dev` untouched, when `dev` has no "url" that parses. Logs
/// nothing. Thread-safe.
ZQPOOL_EXPORT bool adjust_device_url_by_backupd_device(const Object& backupd_dev, Object& dev);

/// Whether a storage catalog belongs to one of the cd modules. The identity judged is `agent` when
/// it is not null, else the record's "agent"; certain "extended_attrs" of the record say no before
/// it is looked at. Logs nothing. Thread-safe.
ZQPOOL_EXPORT bool is_cd_modules(const Object& storage_catalog, const std::string* agent);

/// Asks a storage server for the file-system statistics of its data root. Blocks for one exchange:
/// at most 120 seconds for connecting, and as long again for the exchange. The low 16 bits of
/// `port` count. On success `info` is replaced by the server's answer; otherwise one line is
/// logged, `info` keeps what it had and the result is false. Thread-safe.
ZQPOOL_EXPORT bool get_storaged_space_info(const std::string& host, const unsigned int port,
                                           const bool ssl, const std::string& access_key,
                                           Object& info);
