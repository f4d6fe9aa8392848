#include "service/catalog/resolution.h"

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <optional>
#include <vector>

#include "platform/crypto/base64.h"
#include "platform/crypto/encryption.h"
#include "platform/crypto/s3_key.h"
#include "service/api/paths.h"
#include "service/api/text.h"
#include "service/catalog/records.h"

namespace zqpool::service {

using json_spirit::Value;

namespace {

// ---- attributes

/// Copies the text members that are present.
void take_texts(Request_Fields& fields, std::initializer_list<const char*> keys, Object& out) {
  for (const char* key : keys) {
    if (const std::optional<std::string> text = fields.optional_text(key)) out.emplace(key, *text);
  }
}

std::string read_text(Request_Fields& fields, const std::string& key) {
  return fields.text(key);
}

std::string read_network_url(Request_Fields& fields, const std::string& network) {
  const bool number =
      network == "0" || (network.find_first_not_of("0123456789") == std::string::npos &&
                         !network.empty() && network[0] != '0');
  if (!number) fields.refuse(network, "is not a network number");
  return read_url(fields, network);
}

/// Copies an object of texts, if there is one.
void take_table(Request_Fields& fields, const char* key, Object& out,
                std::string (*read)(Request_Fields&, const std::string&) = read_text) {
  Request_Fields* const table = fields.optional_object(key);
  if (!table) return;
  Object copy;
  for (const auto& [name, value] : table->whole())
    copy.emplace(name, read(*table, name));
  out.emplace(key, std::move(copy));
}

std::optional<std::string> read_base64(Request_Fields& fields, const char* key) {
  std::optional<std::string> text = fields.optional_text(key);
  Base64_Decoder decoder;
  if (text && !decoder.set(text->data(), text->size())) fields.refuse(key, "is not Base64");
  return text;
}

void take_base64(Request_Fields& fields, const char* key, Object& out) {
  if (const std::optional<std::string> text = read_base64(fields, key)) out.emplace(key, *text);
}

void refuse_any(Request_Fields& fields, std::initializer_list<const char*> keys, const char* why) {
  for (const char* key : keys) {
    if (fields.has(key)) fields.refuse(key, why);
  }
}

bool is_object_store(const std::string& url) {
  const std::string scheme = url.substr(0, url.find("://"));
  for (const char* plain :
       {"s3", "s3v4", "oss", "obs", "kss", "ufile", "cos", "scs", "blob", "hbr"}) {
    if (scheme == plain || scheme == std::string(plain) + 's') return true;
  }
  return false;
}

/// Stores the secret key encrypted: encrypts a clear one, copies an encrypted one.
void take_secret_key(Request_Fields& fields, const std::string& url, Object& out) {
  std::optional<std::string> sealed = read_base64(fields, "sealed_secret_key");
  if (fields.has("secret_key")) {
    if (sealed) fields.refuse("sealed_secret_key", "cannot be combined with secret_key");
    sealed = fields.text("secret_key");
    if (!encrypt_s3_key(url.c_str(), *sealed)) {
      fields.refuse("secret_key", "cannot be encrypted without --s3-secret-file");
    }
  } else if (sealed) {
    std::string probe;
    std::string clear = *sealed;
    const bool has_secret = encrypt_s3_key("", probe);
    if (has_secret && !decrypt_s3_key(url.c_str(), clear)) {
      fields.refuse("sealed_secret_key", "was not encrypted for this URL with this secret");
    }
  }
  if (sealed) out.emplace("sealed_secret_key", std::move(*sealed));
}

void take_object_store(Request_Fields& fields, const std::string& url, Object& out) {
  take_texts(fields, {"vendor", "region", "sign_method", "bucket", "access_key"}, out);
  if (fields.flag_or("use_sts", false)) out.emplace("use_sts", true);
  take_secret_key(fields, url, out);
  if (out.count("access_key") != out.count("sealed_secret_key")) {
    fields.refuse("access_key", "must be given together with secret_key");
  }
}

// ---- descriptions

/// A request for the description of a pool.
struct Question {
  std::optional<std::string> agent;    ///< the host
  std::optional<std::string> network;  ///< over which it reaches the storages
  std::optional<std::string> server;   ///< if set, only the storages of this server
  std::optional<std::string> account;
  bool to_restore = false;
};

bool same_identifier(const Value& value, const std::string& identifier) {
  return lower_case(value.get_str()) == lower_case(identifier);
}

/// Takes a member out of an object.
std::optional<Value> take(Object& object, const char* key) {
  const auto it = object.find(key);
  if (it == object.end()) return std::nullopt;
  Value value = std::move(it->second);
  object.erase(it);
  return value;
}

/// One storage; none when the requested server does not serve it.
std::optional<Object> describe_storage(Object device, Object attributes, const Question& ask) {
  const std::optional<Value> server = take(attributes, "server_uuid");
  if (server && ask.server && !same_identifier(*server, *ask.server)) return std::nullopt;
  const std::optional<Value> networks = take(attributes, "network_urls");
  if (networks && ask.network && networks->get_obj().count(*ask.network) != 0) {
    device["url"] = networks->get_obj().at(*ask.network);
  }
  if (std::optional<Value> sealed = take(attributes, "sealed_secret_key")) {
    attributes.emplace("secret_key", std::move(*sealed));
  }
  for (const char* key : {"role", "bound_host"}) {
    if (std::optional<Value> value = take(device, key)) attributes.emplace(key, std::move(*value));
  }
  Object out{{"extended_attrs", std::move(attributes)}};
  for (const char* key : {"uuid", "pool_uuid", "name", "state", "url"}) {
    out.emplace(key, std::move(device.at(key)));
  }
  if (server) out.emplace("server_uuid", *server);
  return out;
}

const Value& attribute(const Object& storage, const char* key) {
  static const Value none;
  const Object& attributes = storage.at("extended_attrs").get_obj();
  const auto it = attributes.find(key);
  return it == attributes.end() ? none : it->second;
}

bool is_slave(const Object& storage) {
  return attribute(storage, "role").get_str() == "slave";
}
bool is_offline(const Object& storage) {
  return storage.at("state").get_str() == "offline";
}

/// To restore, a copy is enough: a slave swaps roles with an offline master of its node.
void let_copies_stand_in(std::vector<Object>& storages) {
  for (Object& master : storages) {
    if (is_slave(master) || !is_offline(master)) continue;
    const auto copy = std::find_if(storages.begin(), storages.end(), [&](const Object& other) {
      return is_slave(other) && !is_offline(other) &&
             attribute(other, "node_id") == attribute(master, "node_id");
    });
    if (copy == storages.end()) continue;
    master["extended_attrs"].get_obj()["role"] = "slave";
    (*copy)["extended_attrs"].get_obj()["role"] = "master";
  }
}

Array describe_storages(Connection& db, const std::string& pool, const Question& ask) {
  std::vector<Object> storages;
  for (Statement row(db, devices_select + "WHERE d.pool_uuid = ? ORDER BY d.uuid", pool);
       row.next();) {
    std::optional<Object> storage =
        describe_storage(device_description(row), attributes_of(row), ask);
    if (storage) storages.push_back(std::move(*storage));
  }
  if (ask.to_restore) let_copies_stand_in(storages);
  // Masters last: clients use the last storage of a node.
  std::stable_partition(storages.begin(), storages.end(), is_slave);
  Array out;
  for (Object& storage : storages)
    out.emplace_back(std::move(storage));
  return out;
}

/// The description of a pool for one client. Throws Request_Error.
Object describe_pool(Connection& db, const std::string& uuid, const Question& ask) {
  Statement row(db, "SELECT " + pool_columns + " FROM catalog_pool p WHERE p.uuid = ?", uuid);
  if (!row.next()) throw Request_Error(404, "there is no pool '" + uuid + "'");
  Object out = attributes_of(row);
  const std::optional<Value> account = take(out, "account_uuid");
  if (account && ask.account && !same_identifier(*account, *ask.account)) {
    throw Request_Error(403, "pool '" + uuid + "' belongs to another account");
  }
  if (const std::optional<Value> addresses = take(out, "source_addresses");
      addresses && ask.agent) {
    for (const auto& [host, address] : addresses->get_obj()) {
      if (lower_case(host) == lower_case(*ask.agent)) out["preferred_source_address"] = address;
    }
  }
  out.emplace("multidevice", false);
  for (auto& [key, value] : pool_description(row)) {
    if (key == "uuid" || key == "name" || key == "type" || key == "state") out.emplace(key, value);
  }
  Array storages = describe_storages(db, uuid, ask);
  if (storages.empty() && ask.server) {
    throw Request_Error(404,
                        "server '" + *ask.server + "' serves no storage of pool '" + uuid + "'");
  }
  out.emplace("storages", std::move(storages));
  return out;
}

/// A query field; an empty one counts as absent.
std::optional<std::string> said(Query_Fields& query, const char* name) {
  std::optional<std::string> text = query.text(name);
  if (text && text->empty()) text.reset();
  return text;
}

Response get_pool(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const std::string uuid = query.needed_text("uuid");
  Question ask;
  ask.agent = said(query, "agent_uuid");
  if (const std::optional<std::int64_t> network = query.count("network_id")) {
    ask.network = std::to_string(*network);
  }
  ask.server = said(query, "server_uuid");
  ask.account = said(query, "account_uuid");
  const std::string restore = query.text("restore_setting").value_or("0");
  if (restore != "0" && restore != "1") {
    throw Request_Error(400, "query field 'restore_setting' must be 0 or 1");
  }
  ask.to_restore = restore == "1";
  return json_response(describe_pool(db, uuid, ask));
}

// ---- replicas

/// The pool behind a replica. Throws Request_Error.
Object describe_replica(Connection& db, const Object& parameters) {
  Request_Fields fields(parameters, "params");
  const std::string uuid = fields.text("uuid");
  fields.finish();
  Statement row(db, "SELECT pool_uuid FROM pool_replica WHERE uuid = ?", uuid);
  if (!row.next()) throw Request_Error(404, "there is no replica '" + uuid + "'");
  return describe_pool(db, row.text(0), {});
}

void clear_replicas(Connection& db) {
  db.execute("DELETE FROM pool_replica");
}

void load_replica(Connection& db, Request_Fields& fields) {
  const std::string uuid = fields.uuid("uuid");
  const std::string pool = fields.uuid("pool_uuid");
  if (!db.has_row("SELECT 1 FROM catalog_pool WHERE uuid = ?", pool)) {
    fields.refuse("pool_uuid", "there is no pool '" + pool + "'");
  }
  db.execute(
      "INSERT INTO pool_replica (uuid, pool_uuid) VALUES (?1, ?2) "
      "ON CONFLICT (uuid) DO UPDATE SET uuid = ?1, pool_uuid = ?2",
      uuid, pool);
}

Array dump_replicas(Connection& db) {
  Array out;
  for (Statement row(db, "SELECT uuid, pool_uuid FROM pool_replica ORDER BY uuid"); row.next();) {
    out.emplace_back(Object{{"uuid", row.text(0)}, {"pool_uuid", row.text(1)}});
  }
  return out;
}

// ---- JSON-RPC 2.0

constexpr int invalid_request = -32600;
constexpr int method_not_found = -32601;
constexpr int invalid_params = -32602;

Response rpc_answer(Value id, const char* key, Value value) {
  return json_response(Object{{"jsonrpc", "2.0"}, {"id", std::move(id)}, {key, std::move(value)}});
}

Response rpc_error(Value id, int code, const std::string& message) {
  return rpc_answer(std::move(id), "error",
                    Object{{"code", code}, {"message", printable(message)}});
}

Response call_method(Connection& db, Parsed_Request& request) {
  Request_Fields fields(request.body.whole(), "");
  Value id;
  std::string method;
  Object parameters;
  try {
    // A call without an id is a notification, which this service does not support.
    const Value* given = fields.optional_value("id");
    if (!given ||
        (given->type() != json_spirit::str_type && given->type() != json_spirit::int_type)) {
      fields.refuse("id", "must be a string or an integer", 400);
    }
    id = *given;
    if (fields.text("jsonrpc") != "2.0") fields.refuse("jsonrpc", "must be 2.0");
    method = fields.text("method");
    if (Request_Fields* const named = fields.optional_object("params")) {
      parameters = named->whole();
    }
    fields.finish();
  } catch (const Request_Error& error) {
    return rpc_error(std::move(id), invalid_request, error.what());
  }
  if (method != "pool.replicate.endpoint.query") {
    return rpc_error(std::move(id), method_not_found, "there is no method '" + method + "'");
  }
  try {
    return rpc_answer(id, "result", describe_replica(db, parameters));
  } catch (const Request_Error& error) {
    const bool unreadable = error.status() == 400 || error.status() == 422;
    return rpc_error(std::move(id), unreadable ? invalid_params : -static_cast<int>(error.status()),
                     error.what());
  }
}

}  // namespace

Object read_pool_attributes(Request_Fields& fields) {
  Object out;
  take_base64(fields, "key", out);
  take_base64(fields, "iv", out);
  take_texts(fields,
             {"encryption", "dedup_backend_type", "tenant_access_key", "preferred_source_address",
              "account_uuid"},
             out);
  if (const std::string* cipher = json_spirit::object_get_str(out, "encryption")) {
    if (encryption_name_to_value(cipher->data(), cipher->size()) == ENCRYPT_UNKNOWN) {
      fields.refuse("encryption", "\"" + *cipher + "\" is not a known cipher");
    }
  }
  if (fields.flag_or("multidevice", false)) out.emplace("multidevice", true);
  take_table(fields, "source_addresses", out);
  return out;
}

Object read_storage_attributes(Request_Fields& fields, const std::string& url) {
  Object out;
  if (const std::optional<std::int64_t> node = fields.optional_count("node_id")) {
    if (*node > std::numeric_limits<std::uint32_t>::max()) {
      fields.refuse("node_id", "is above 4294967295");
    }
    out.emplace("node_id", *node);
  }
  take_texts(fields, {"server_uuid"}, out);
  take_table(fields, "network_urls", out, read_network_url);
  if (url.rfind("file:", 0) == 0) {
    take_table(fields, "attached_hosts", out);
  } else {
    refuse_any(fields, {"attached_hosts"}, "is for devices with a file:// URL");
  }
  if (is_object_store(url)) {
    take_object_store(fields, url, out);
  } else {
    refuse_any(fields,
               {"vendor", "region", "sign_method", "bucket", "access_key", "use_sts", "secret_key",
                "sealed_secret_key"},
               "is for devices with the URL of an object store");
  }
  if (out.count("network_urls") != 0 && out.count("sealed_secret_key") != 0) {
    fields.refuse("network_urls",
                  "cannot be combined with a secret key, which is encrypted for one URL");
  }
  return out;
}

void add_resolution(Router& router, Scenario& scenario) {
  router.add(Method::get, "/zq/r/storages/pool", Access::read, get_pool);
  router.add(Method::post, "/zq/jr", Access::read, call_method);
  scenario.add({"replicas", clear_replicas, load_replica, identity_by_uuid, dump_replicas});
}

}  // namespace zqpool::service
