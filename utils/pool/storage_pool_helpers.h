#pragma once

#include <sys/types.h>

#include <string>

#include "platform/http/rest_client.h"
#include "platform/json/json_spirit.h"
#include "utils/pool/pool_info.h"
#include "utils/support/export.h"

// Resolve pool identifiers to a Pool_Info. Thread-safe.
//
// Functions that send a request block until the answer is there or the transport's limits are
// reached. They return false if the pool cannot be resolved, and log why; a failed request is
// logged by the client. They throw std::bad_alloc and what parse_pool_info() throws.

/// Fills `info` from the management service's description of a pool: the members of the pool, then
/// those of the storage that this host is to use, as far as its URL's scheme needs them.
///
/// The storage is the one with `device_uuid`. If that is null or "", it is the first master (if
/// LAN-free: the first bound to `host_uuid`), or else the first storage. A description without
/// "storages" is valid. `host_uuid` (null: this host) also selects the path of a "file" storage.
///
/// If the description is not usable, logs one message and returns false; what was read before stays
/// in `info`. Throws std::runtime_error if a multi-device deduplication pool lists a storage that
/// is not an object.
ZQPOOL_EXPORT bool parse_pool_info(const Object& pool, Pool_Info& info, const char* host_uuid,
                                   const char* device_uuid);

/// Returns whether the storage `obj` is bound to the host `host_uuid` (null: false).
ZQPOOL_EXPORT bool host_uuid_in_storage(const Object& obj, const char* host_uuid);

/// Returns "master" (also if the storage has no role) or "slave". Logs any other role and returns
/// "".
ZQPOOL_EXPORT std::string get_storage_role(const Object& storage);

/// Gets the description of a pool from the management service, sets `info.uuid` to `pool_uuid` and
/// calls parse_pool_info() with `host_uuid` and `device_uuid`.
///
/// Repeats a failed request, with random pauses that grow up to a minute, until `timeout` seconds
/// have been slept (0: no repetition; -1: no limit), unless the service's error code rules it out.
/// With `is_agent` this host's identity is sent; with `to_restore` the settings of a restore are
/// requested. A negative `network_id`, a null `server_uuid` and a null `account_uuid` are not sent.
ZQPOOL_EXPORT bool get_pool_info(JSON_RESTful_Client& client, const char* pool_uuid,
                                 const char* device_uuid, Pool_Info& info, bool to_restore,
                                 const char* host_uuid, int timeout, int network_id, bool is_agent,
                                 const char* server_uuid, const char* account_uuid);

/// The same from the service at `host`:`port`. `timeout` limits the client's own repetitions, in
/// seconds (0: the client's default; negative: no repetition). With `is_on_backupd` this host's
/// access key is sent.
ZQPOOL_EXPORT bool get_pool_info(const char* host, u_short port, bool ssl, const char* pool_uuid,
                                 const char* device_uuid, Pool_Info& info, bool to_restore,
                                 int timeout, const char* host_uuid, bool is_agent,
                                 bool is_on_backupd, const char* server_uuid,
                                 const char* account_uuid);

/// The same from the upstream service of this process (Upstream_JSON_RESTful_Client). `timeout` as
/// in the first form.
ZQPOOL_EXPORT bool get_pool_info(const char* pool_uuid, const char* device_uuid, Pool_Info& info,
                                 bool to_restore, int timeout, const char* host_uuid, bool is_agent,
                                 const char* server_uuid, const char* account_uuid);

/// Gets the URL of the storage that this host is to use, from the upstream service, with a
/// `timeout` of 0. `url` is unchanged on failure.
ZQPOOL_EXPORT bool get_url_by_pool_uuid(const char* pool_uuid, const char* device_uuid,
                                        std::string& url, bool to_restore, const char* host_uuid);

/// Gets the description of the pool behind a replica from `host`:`port` by JSON-RPC, and calls
/// parse_pool_info() without a host or device. `timeout` and `is_on_backupd` as in get_pool_info()
/// with a host.
ZQPOOL_EXPORT bool get_replicate_pool_info(const char* replicate_uuid, const char* host,
                                           u_short port, bool ssl, bool is_on_backupd,
                                           Pool_Info& info, int timeout);
