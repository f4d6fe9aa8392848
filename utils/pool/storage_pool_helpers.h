#pragma once

#include <sys/types.h>

#include <string>

#include "platform/http/rest_client.h"
#include "platform/json/json_spirit.h"
#include "utils/pool/pool_info.h"
#include "utils/support/export.h"

// From a pool's identifier to its Pool_Info. The functions here may run on any number of threads at
// once. Those that ask a service block until it has answered or the transport's limits are reached;
// they return false when the pool could not be resolved, after a line that says why; that of a
// failed request is the client's own. What parse_pool_info() throws leaves them, too.

/// Fills `info` from the management service's description of a pool: the pool-wide members, then
/// the one storage that this host is to use and what its URL's scheme asks for.
///
/// With `device_uuid` (neither null nor "") that storage is taken; else the first that is a master,
/// or for LAN-free storages bound to `host_uuid`; else the first at all. A description without
/// "storages" is good. `host_uuid` (null: this host) also chooses the path of a "file" storage.
///
/// False, with one message, when the description does not do; `info` then keeps what was read
/// before. Throws std::runtime_error when a multi-device deduplication pool lists a storage that is
/// no object.
ZQPOOL_EXPORT bool parse_pool_info(const Object& pool, Pool_Info& info, const char* host_uuid,
                                   const char* device_uuid);

/// Whether the storage `obj` is bound to the host `host_uuid` (null: no).
ZQPOOL_EXPORT bool host_uuid_in_storage(const Object& obj, const char* host_uuid);

/// "master" (also when the storage does not say) or "slave"; "" after a message for anything else.
ZQPOOL_EXPORT std::string get_storage_role(const Object& storage);

/// Asks the management service behind `client` for the pool and fills `info` by parse_pool_info(),
/// which takes `host_uuid` and `device_uuid`; `info.uuid` is set to `pool_uuid` before.
///
/// A failed request is repeated with growing random delays until `timeout` seconds have been slept
/// (0: never, -1: no limit), unless the service's error code says that it will not help.
/// `is_agent` names this host to the service, `to_restore` asks for the settings of a restore;
/// `network_id` below 0, null `server_uuid` and null `account_uuid` are not sent.
ZQPOOL_EXPORT bool get_pool_info(JSON_RESTful_Client& client, const char* pool_uuid,
                                 const char* device_uuid, Pool_Info& info, bool to_restore,
                                 const char* host_uuid, int timeout, int network_id, bool is_agent,
                                 const char* server_uuid, const char* account_uuid);

/// As above, asking `host`:`port` with a client made for this call. `timeout` is the limit in
/// seconds of that client's own repetitions (0: its default; negative: it repeats nothing). With
/// `is_on_backupd` this host's access key is sent.
ZQPOOL_EXPORT bool get_pool_info(const char* host, u_short port, bool ssl, const char* pool_uuid,
                                 const char* device_uuid, Pool_Info& info, bool to_restore,
                                 int timeout, const char* host_uuid, bool is_agent,
                                 bool is_on_backupd, const char* server_uuid,
                                 const char* account_uuid);

/// As above, asking the process's upstream service (Upstream_JSON_RESTful_Client).
ZQPOOL_EXPORT bool get_pool_info(const char* pool_uuid, const char* device_uuid, Pool_Info& info,
                                 bool to_restore, int timeout, const char* host_uuid, bool is_agent,
                                 const char* server_uuid, const char* account_uuid);

/// The URL of the storage that this host is to use, from the upstream service, without repetitions
/// of its own. `url` is written on success alone.
ZQPOOL_EXPORT bool get_url_by_pool_uuid(const char* pool_uuid, const char* device_uuid,
                                        std::string& url, bool to_restore, const char* host_uuid);

/// Asks `host`:`port` by JSON-RPC for the pool behind a replica, and fills `info` by
/// parse_pool_info() for no particular host or device. `timeout` and `is_on_backupd` as in
/// get_pool_info() to a host.
ZQPOOL_EXPORT bool get_replicate_pool_info(const char* replicate_uuid, const char* host,
                                           u_short port, bool ssl, bool is_on_backupd,
                                           Pool_Info& info, int timeout);
