#include "utils/pool/storage_pool_helpers.h"

#include <algorithm>
#include <limits>
#include <sstream>
#include <utility>

#include "platform/crypto/encryption.h"
#include "platform/crypto/s3_key.h"
#include "platform/host/host_id.h"
#include "platform/host/host_manager.h"
#include "platform/host/websocket_options.h"
#include "platform/json/json_dump.h"
#include "platform/net/uri.h"
#include "platform/rpc/json_rpc.h"
#include "utils/pool/detail/parse_url.h"
#include "utils/pool/detail/read_base64.h"
#include "utils/support/json_util.h"
#include "utils/support/log.h"
#include "utils/support/retry.h"
#include "utils/support/service_call.h"
#include "utils/support/uri_util.h"

using json_spirit::object_get;
using json_spirit::object_get_object;
using json_spirit::object_get_str;
using std::string;
using zqpool::detail::Attempt;
using zqpool::detail::parse_url;
using zqpool::detail::Service_Call;

namespace {

bool is_supplied(const char* uuid) {
  return uuid != nullptr && *uuid != '\0';
}

bool is_text(const Object& object, const char* key, const char* wanted) {
  const string* text = object_get_str(object, key);
  return text != nullptr && *text == wanted;
}

void read_pool_members(const Object& pool, Pool_Info& info) {
  zqpool::detail::read_base64(pool, "key", info.key);
  zqpool::detail::read_base64(pool, "iv", info.iv);
  if (const string* cipher = object_get_str(pool, "encryption")) {
    info.cipher = encryption_name_to_value(cipher->data(), cipher->size());
  }
  info.multidevice = object_get_or_default(pool, "multidevice", false);
  object_get(pool, "dedup_backend_type", info.dedup_backend_type);
  object_get(pool, "tenant_access_key", info.tenant_access_key);
  object_get(pool, "name", info.name);
  object_get(pool, "preferred_source_address", info.preferred_source_address);
}

bool is_eligible(const Object& storage, const char* host_uuid, const char* device_uuid) {
  if (is_supplied(device_uuid)) return is_text(storage, "uuid", device_uuid);
  const string* url = object_get_str(storage, "url");
  if (url != nullptr && is_lanfree_uri(url->c_str()) && is_supplied(host_uuid)) {
    return host_uuid_in_storage(storage, host_uuid);
  }
  return get_storage_role(storage) == "master";
}

/// Returns the storage to use, or logs why there is none and returns null.
const Object* pick_storage(const Array& storages, const char* host_uuid, const char* device_uuid) {
  const Object* first = nullptr;
  for (const json_spirit::Value& element : storages) {
    if (element.type() != json_spirit::obj_type) continue;
    const Object& storage = element.get_obj();
    if (is_eligible(storage, host_uuid, device_uuid)) return &storage;
    if (first == nullptr) first = &storage;
  }
  if (is_supplied(device_uuid)) {
    ZQ_ERROR("Failed to get device with uuid %s.\n", device_uuid);
    return nullptr;
  }
  // On purpose, whatever its URL, binding or role: any storage is better than none.
  if (first == nullptr) ZQ_ERROR("Failed to get storage.\n");
  return first;
}

/// Stores the address of the backup service, where credentials are fetched when they are needed.
bool take_backup_service(const Object& storage, const Object& attributes, Pool_Info& info) {
  string device_id;
  if (!object_get(storage, "uuid", device_id)) {
    return ZQ_ERROR("Failed to get device id from storage info.\n");
  }
  info.ext_attrs["device_id"] = std::move(device_id);
  if (is_hbr_url(info.url.c_str())) {
    string bucket;
    if (!object_get(attributes, "bucket", bucket)) {
      return ZQ_ERROR("Failed to get bucket from hbr extended attrs.\n");
    }
    info.ext_attrs["bucket"] = std::move(bucket);
  }
  const auto socket = WebSocket_Options::instance();
  if (socket == nullptr || socket->host() == nullptr) {
    return ZQ_ERROR("Failed to get server socket info.\n");
  }
  info.ext_attrs["backupd_host"] = socket->host();
  info.ext_attrs["backupd_port"] = std::to_string(socket->port());
  info.ext_attrs["backupd_access_key"] = Host_Manager::instance()->access_key();
  // TLS is marked by the key alone, its value is empty.
  if (socket->ssl()) {
    info.ext_attrs["backupd_ssl"].clear();
  } else {
    info.ext_attrs.erase("backupd_ssl");
  }
  return true;
}

bool take_s3_keys(const Object& attributes, Pool_Info& info) {
  const string* access_key = object_get_str(attributes, "access_key");
  if (access_key != nullptr) info.ext_attrs["access_key"] = *access_key;
  const string* secret_key =
      access_key != nullptr ? object_get_str(attributes, "secret_key") : nullptr;
  if (secret_key == nullptr) {
    return ZQ_ERROR(
        "Invalid storage info from backupd of s3 pool %s: no access_key or secret_key\n",
        info.uuid.c_str());
  }
  string& kept = info.ext_attrs["secret_key"] = *secret_key;
  if (decrypt_s3_key(info.url.c_str(), kept)) return true;
  return ZQ_ERROR("Failed to decrypt s3 keys of pool info\n");
}

bool complete_s3(const Object& storage, const Object* attributes, Pool_Info& info) {
  if (attributes == nullptr) return ZQ_ERROR("No 'extended_attrs' in storage.\n");
  for (const char* key : {"vendor", "region", "sign_method"}) {
    info.ext_attrs[key] = object_get_or_default(*attributes, key, "");
  }
  const bool use_sts = object_get_or_default(*attributes, "use_sts", false);
  return is_hbr_url(info.url.c_str()) || use_sts ? take_backup_service(storage, *attributes, info)
                                                 : take_s3_keys(*attributes, info);
}

bool complete_file(const Object* attributes, const char* host_uuid, Pool_Info& info) {
  if (attributes == nullptr) return ZQ_ERROR("No 'extended_attrs' in storage.\n");
  const Object* hosts = object_get_object(*attributes, "attached_hosts");
  if (hosts == nullptr) return ZQ_ERROR("No 'attached_hosts' in extended_attrs.\n");
  const string own_uuid = host_uuid == nullptr ? Host_ID::instance()->c_str() : host_uuid;
  const string* path = object_get_str(*hosts, own_uuid);
  if (path == nullptr) return ZQ_ERROR("No '%s' in attached_hosts.\n", own_uuid.c_str());
  info.url = path->compare(0, 1, "/") == 0 ? "file://" : "file:///";
  info.url += *path;
  return true;
}

/// Reads "node_id". Numbers of 2^31 and more may also be written as negative ones.
bool read_node_id(const Object& attributes, std::uint32_t& node) {
  std::int64_t value = 0;
  if (!object_get(attributes, "node_id", value) ||
      value < std::numeric_limits<std::int32_t>::min() ||
      value > std::numeric_limits<std::uint32_t>::max()) {
    return false;
  }
  node = static_cast<std::uint32_t>(value);
  return true;
}

bool take_node(const Object& storage, Pool_Info& info) {
  const Object* attributes = object_get_object(storage, "extended_attrs");
  if (attributes == nullptr) return ZQ_ERROR("No 'extended_attrs' in storage.\n");
  std::uint32_t node = 0;
  if (!read_node_id(*attributes, node)) return ZQ_ERROR("No 'node_id' in extended_attrs.\n");
  const string* url = object_get_str(storage, "url");
  if (url == nullptr) return ZQ_ERROR("No 'url' in storage object.\n");
  URI uri;
  if (!parse_url(ZQ_HERE, *url, uri)) return false;
  uri.path("", true);
  std::ostringstream base;
  uri.build(base);
  info.node_addrs[node] = base.str();
  return true;
}

bool take_nodes(const Array& storages, Pool_Info& info) {
  info.node_addrs.clear();
  return std::all_of(storages.begin(), storages.end(), [&](const json_spirit::Value& element) {
    return take_node(element.get_obj(), info);
  });
}

/// Whether the error code of `answer` permits a retry; `so_far` if there is none.
bool permits_retry(const json_spirit::Value& answer, bool so_far) {
  if (answer.type() != json_spirit::obj_type) return so_far;
  const Object* error = object_get_object(answer.get_obj(), "error");
  if (error == nullptr) return so_far;
  // Only the sign matters. Codes have up to 64 bits.
  return object_get_or_default(*error, "code", std::int64_t{0}) > 0 ||
         object_get_or_default(*error, "code", std::uint64_t{0}) > 0;
}

}  // namespace

bool host_uuid_in_storage(const Object& obj, const char* host_uuid) {
  if (host_uuid == nullptr) return false;
  const Object* attributes = object_get_object(obj, "extended_attrs");
  if (attributes == nullptr) return false;
  const Object* bound_host = object_get_object(*attributes, "bound_host");
  return bound_host != nullptr && is_text(*bound_host, "host_id", host_uuid);
}

string get_storage_role(const Object& storage) {
  const Object* attributes = object_get_object(storage, "extended_attrs");
  if (attributes == nullptr) return "master";
  string role = object_get_or_default(*attributes, "role", "master");
  if (role == "master" || role == "slave") return role;
  ZQ_ERROR("Failed to get storage role: %s\n", JSON_Dump(storage, false).c_str());
  return {};
}

bool parse_pool_info(const Object& pool, Pool_Info& info, const char* host_uuid,
                     const char* device_uuid) {
  read_pool_members(pool, info);
  const Array* storages = json_spirit::object_get_array(pool, "storages");
  if (storages == nullptr) return true;
  if (storages->empty()) return ZQ_ERROR("'storages' is empty.\n");
  const Object* storage = pick_storage(*storages, host_uuid, device_uuid);
  if (storage == nullptr) return false;
  if (!object_get(*storage, "url", info.url) || !object_get(*storage, "pool_uuid", info.uuid)) {
    return ZQ_ERROR("No 'url' or 'pool_uuid' in storage object.\n");
  }
  URI uri;
  if (!parse_url(ZQ_HERE, info.url, uri)) return false;

  const Object* attributes = object_get_object(*storage, "extended_attrs");
  if (is_s3_uri(info.url.c_str())) return complete_s3(*storage, attributes, info);
  if (uri.scheme() == "file") return complete_file(attributes, host_uuid, info);
  if (info.multidevice && storages->size() > 1 && is_dedup_uri(info.url.c_str())) {
    return take_nodes(*storages, info);
  }
  return true;
}

bool get_pool_info(JSON_RESTful_Client& client, const char* pool_uuid, const char* device_uuid,
                   Pool_Info& info, bool to_restore, const char* host_uuid, int timeout,
                   int network_id, bool is_agent, const char* server_uuid,
                   const char* account_uuid) {
  if (!is_supplied(pool_uuid)) {
    return ZQ_EMERGENCY("Unexpected error in %s:%d, pool_uuid is NULL or \"\":\n%s\n", __FILE__,
                        __LINE__, zqpool::detail::call_stack().c_str());
  }
  Service_Call call(client, HTTP_METHOD_GET, "/zq/r/storages/pool");
  call.field("uuid", pool_uuid);
  if (is_agent) call.field("agent_uuid", Host_ID::instance()->c_str());
  if (network_id >= 0) call.field("network_id", std::to_string(network_id));
  if (to_restore) call.field("restore_setting", "1");
  if (server_uuid != nullptr) call.field("server_uuid", server_uuid);
  if (account_uuid != nullptr) call.field("account_uuid", account_uuid);

  json_spirit::Value answer;
  bool may_retry = true;
  const auto attempt = [&] {
    if (call.send(&answer)) return Attempt::done;
    may_retry = permits_retry(answer, may_retry);
    return may_retry ? Attempt::again : Attempt::stop;
  };
  if (!zqpool::detail::retry(ZQ_HERE, timeout, attempt)) return false;
  if (answer.type() != json_spirit::obj_type) {
    return ZQ_EMERGENCY("Unexpected error in %s:%d, result is not object!\n", __FILE__, __LINE__);
  }
  info.uuid = pool_uuid;
  return parse_pool_info(answer.get_obj(), info, host_uuid, device_uuid);
}

bool get_pool_info(const char* host, u_short port, bool ssl, const char* pool_uuid,
                   const char* device_uuid, Pool_Info& info, bool to_restore, int timeout,
                   const char* host_uuid, bool is_agent, bool is_on_backupd,
                   const char* server_uuid, const char* account_uuid) {
  Common_JSON_RESTful_Client client(host, port, ssl, is_on_backupd, true);
  if (timeout != 0) client.retry_timeout(timeout);
  return get_pool_info(client, pool_uuid, device_uuid, info, to_restore, host_uuid, 0, -1, is_agent,
                       server_uuid, account_uuid);
}

bool get_pool_info(const char* pool_uuid, const char* device_uuid, Pool_Info& info, bool to_restore,
                   int timeout, const char* host_uuid, bool is_agent, const char* server_uuid,
                   const char* account_uuid) {
  return get_pool_info(Upstream_JSON_RESTful_Client::instance(), pool_uuid, device_uuid, info,
                       to_restore, host_uuid, timeout, -1, is_agent, server_uuid, account_uuid);
}

bool get_url_by_pool_uuid(const char* pool_uuid, const char* device_uuid, string& url,
                          bool to_restore, const char* host_uuid) {
  Pool_Info info;
  if (!get_pool_info(pool_uuid, device_uuid, info, to_restore, 0, host_uuid, true, nullptr,
                     nullptr)) {
    return false;
  }
  url = std::move(info.url);
  return true;
}

bool get_replicate_pool_info(const char* replicate_uuid, const char* host, u_short port, bool ssl,
                             bool is_on_backupd, Pool_Info& info, int timeout) {
  Common_JSON_RESTful_Client client(host, port, ssl, is_on_backupd, true);
  if (timeout != 0) client.retry_timeout(timeout);
  const json_spirit::Value request =
      Object_Maker()
          .insert("id", JSON_RPC_Id_Generator().get())
          .insert("jsonrpc", JSON_RPC_Request().version)
          .insert("method", "pool.replicate.endpoint.query")
          .insert("params", Object_Maker().insert("uuid", replicate_uuid).take())
          .take();
  json_spirit::Value answer;
  if (!client.post("/zq/jr", &request, &answer)) {
    return ZQ_ERROR("Failed to post replicate pool info request.\n");
  }
  if (answer.type() != json_spirit::obj_type) {
    return ZQ_EMERGENCY("Unexpected error in %s:%d, rsp_body is not object!\n", __FILE__, __LINE__);
  }
  if (const Object* result = object_get_object(answer.get_obj(), "result")) {
    return parse_pool_info(*result, info, nullptr, nullptr);
  }
  return ZQ_ERROR("Failed to extract replicate pool info response(%s)\n",
                  JSON_Dump(answer, false).c_str());
}
