#include <functional>
#include <utility>

#include "cli/command/batch.h"
#include "cli/command/command_line.h"
#include "cli/nouns/pool_verbs.h"
#include "cli/support/credentials.h"
#include "cli/support/redact.h"
#include "platform/crypto/s3_key.h"
#include "platform/host/host_id.h"
#include "platform/host/host_manager.h"
#include "platform/host/websocket_options.h"
#include "platform/http/rest_client.h"
#include "utils/pool/pool_metadata_manager.h"
#include "utils/pool/storage_pool_helpers.h"

namespace zqpool::cli {

namespace {

/// Which storage of which pools, and for whom.
struct Resolution {
  std::vector<std::string> pools;
  std::string device;
  std::string host_uuid;
  std::string backupd;
  bool restore = false;
  bool replica = false;
  bool show_secrets = false;

  const char* device_or_null() const { return device.empty() ? nullptr : device.c_str(); }
};

/// Tells the process what the library asks it for when it resolves a pool.
void introduce_host(Session& session, const Resolution& wanted) {
  Endpoint backupd;
  if (!wanted.backupd.empty()) {
    try {
      backupd = parse_endpoint(wanted.backupd);
    } catch (const Usage_Error& error) {
      throw Usage_Error(std::string("--backupd: ") + error.what());
    }
  }
  const Setting_Value& secret = session.settings()[Setting_Id::s3_secret_file];
  if (secret.given) set_s3_key_secret(read_secret_file(secret.text, "S3 secret"));

  const Target& target = session.target();
  if (wanted.backupd.empty()) backupd = target.endpoint;
  const auto& [ssl, host, port] = target.endpoint;
  Upstream_JSON_RESTful_Client::configure(host.c_str(), port, ssl, target.access_key.c_str());
  Host_Manager::instance()->access_key(target.access_key);
  WebSocket_Options::configure(backupd.host.c_str(), backupd.port, backupd.ssl);
  if (!wanted.host_uuid.empty()) Host_ID::instance()->set(wanted.host_uuid);
}

/// The host that storages are chosen for, or null when nothing says which one this is.
const char* this_host() {
  const char* const uuid = Host_ID::instance()->c_str();
  return *uuid != '\0' ? uuid : nullptr;
}

/// Resolves one pool and says what came of it.
Outcome resolve(Session& session, const Resolution& wanted,
                const std::function<bool()>& operation) {
  Said said;
  Outcome outcome = session.call({Effect::reads, nullptr, &said}, operation);
  if (outcome.code == Exit_Code::done || said.errors.empty()) return outcome;
  const std::string& last = said.errors.back();
  const auto begins = [&last](const char* words) { return last.rfind(words, 0) == 0; };
  if (begins("Failed to get device with uuid ")) {
    return {Exit_Code::not_found, "not found: the pool has no device " + wanted.device};
  }
  if (begins("Failed to decrypt s3 keys of pool info") &&
      !session.settings()[Setting_Id::s3_secret_file].given) {
    outcome.cause += "; give the secret that seals them with --s3-secret-file";
  }
  if (begins("Failed to extract replicate pool info response(")) {
    // That message shows the whole answer, which may hold keys. Only the service's words are told.
    const Object answer = object_within(last);
    std::string words;
    int code = 0;
    if (const Object* const error = json_spirit::object_get_object(answer, "error")) {
      json_spirit::object_get(*error, "message", words);
      json_spirit::object_get(*error, "code", code);
    }
    // The service's own refusals have the status that they would have elsewhere, made negative.
    if (-599 <= code && code <= -400) {
      outcome.code = judge_status(static_cast<unsigned>(-code), Effect::reads);
    }
    outcome.cause = words.empty() ? "the answer holds no pool" : "the service says: " + words;
  }
  return outcome;
}

Exit_Code resolve_pools(Session& session, const Resolution& wanted) {
  const std::vector<std::string> pools = expand_objects(wanted.pools);
  introduce_host(session, wanted);
  return session.show(pools, [&](const Target& target, const std::string& uuid, Object& record) {
    Pool_Info info;
    Outcome outcome = resolve(session, wanted, [&] {
      if (!wanted.replica) {
        return get_pool_info(uuid.c_str(), wanted.device_or_null(), info, wanted.restore,
                             target.retry_seconds, this_host(), true, nullptr, nullptr);
      }
      const auto& [ssl, host, port] = target.endpoint;
      return get_replicate_pool_info(uuid.c_str(), host.c_str(), port, ssl, true, info,
                                     target.retry_seconds);
    });
    if (!outcome.done()) return outcome;
    info >> record;
    if (!wanted.show_secrets) hide_keys(record);
    return outcome;
  });
}

Exit_Code show_urls(Session& session, const Resolution& wanted) {
  const std::vector<std::string> pools = expand_objects(wanted.pools);
  introduce_host(session, wanted);
  return session.show(pools, [&](const Target&, const std::string& uuid, Object& record) {
    std::string url;
    Outcome outcome = resolve(session, wanted, [&] {
      return get_url_by_pool_uuid(uuid.c_str(), wanted.device_or_null(), url, wanted.restore,
                                  this_host());
    });
    if (outcome.done()) record["url"] = std::move(url);
    return outcome;
  });
}

/// Describes one SCSI pool, with what is known of the way to its LUNs.
Outcome describe_scsi(Session& session, const Target& service, const SCSI_Pool& pool,
                      Object& record) {
  Object description;
  std::string portal;
  std::string transport;
  Outcome outcome = pool.call(session, service, {Effect::reads, "Invalid value [] of scsi pool '"},
                              [&](SCSI_Target_Manager& manager) {
                                if (!manager.get_scsi_pool_info(description)) return false;
                                transport = manager.scsi_type_;
                                if (transport == "iSCSI") portal = manager.get_scsi_pool_portal();
                                return true;
                              });
  if (!outcome.done()) return outcome;
  std::string target;
  ACE_UINT64 size = 0;
  Said said;
  outcome = pool.call(session, service, {Effect::reads, nullptr, &said},
                      [&](SCSI_Target_Manager& manager) {
                        return manager.get_scsi_pool_target_size(target, size);
                      });
  const bool known = outcome.done();
  if (!known && !said.has_error("Invalid value from SCSI pool: ")) return outcome;
  using json_spirit::Value;
  record = {{"pool_uuid", pool.uuid},
            {"transport", transport.empty() ? Value() : Value(transport)},
            {"portal", portal.empty() ? Value() : Value(portal)},
            {"target", known ? Value(target) : Value()},
            {"size", known ? Value(size) : Value()},
            {"description", std::move(description)}};
  return {};
}

Exit_Code show_scsi(Session& session, const std::vector<std::string>& pools) {
  return session.show(expand_names(pools),
                      [&](const Target& target, const std::string& uuid, Object& record) {
                        SCSI_Pool pool;
                        pool.uuid = uuid;
                        return describe_scsi(session, target, pool, record);
                      });
}

/// The options by which a storage is chosen.
void add_choice(CLI::App& verb, Resolution& wanted) {
  verb.add_option("--device", wanted.device, "This storage, not the one meant for the host")
      ->type_name("UUID");
  verb.add_option("--host-uuid", wanted.host_uuid, "As this host would (this one)")
      ->type_name("UUID");
  verb.add_flag("--restore", wanted.restore, "With the settings of a restore");
  verb.add_option("--backupd", wanted.backupd,
                  "Socket of the backup service, for pools that need it (the endpoint)")
      ->type_name("https://HOST:PORT");
}

Exit_Code show(Session& session, const std::vector<std::string>& uuids) {
  return session.show(
      expand_objects(uuids), [&](const Target& target, const std::string& uuid, Object& record) {
        return session.call({Effect::reads, "Failed to get pool '"}, [&] {
          const auto& [ssl, host, port] = target.endpoint;
          return Pool_Metadata_Manager::get_pool_info(host, port, ssl, target.access_key, uuid,
                                                      record, target.retry_seconds);
        });
      });
}

void add_show(Command_Line& commands, CLI::App& pool) {
  auto [verb, uuids] = commands.verb<std::vector<std::string>>(
      pool, "show", "Shows the catalog's record of pools",
      {"zqpool pool show 5f0c8a52-3c1b-4c3f-9a34-6f6a2d1f0b11",
       "zqpool pool show --output json --jobs 16 - < uuids.txt"},
      &show);
  add_objects(verb, "UUID", uuids, "Pools to show");
}

void add_resolve(Command_Line& commands, CLI::App& pool) {
  auto [verb, wanted] = commands.verb<Resolution>(
      pool, "resolve", "Finds out where the data of pools is reached, and what that takes",
      {"zqpool pool resolve 5f0c8a52-3c1b-4c3f-9a34-6f6a2d1f0b11",
       "zqpool pool resolve --host-uuid HOST_UUID --show-secrets POOL_UUID -o json",
       "zqpool pool resolve --replica REPLICA_UUID"},
      &resolve_pools);
  add_objects(verb, "UUID", wanted.pools, "Pools to resolve");
  add_choice(verb, wanted);
  CLI::Option* const of_replicas =
      verb.add_flag("--replica", wanted.replica, "The UUIDs are those of replicas");
  for (const char* const name : {"--device", "--host-uuid", "--restore"})
    of_replicas->excludes(verb.get_option(name));
  verb.add_flag("--show-secrets", wanted.show_secrets, "Show keys as they are");
}

void add_url(Command_Line& commands, CLI::App& pool) {
  auto [verb, wanted] =
      commands.verb<Resolution>(pool, "url", "Shows the URL by which the data of pools is reached",
                                {"zqpool pool url 5f0c8a52-3c1b-4c3f-9a34-6f6a2d1f0b11",
                                 "zqpool pool url --host-uuid HOST_UUID -o tsv - < uuids.txt"},
                                &show_urls);
  add_objects(verb, "UUID", wanted.pools, "The pools");
  add_choice(verb, wanted);
}

void add_scsi(Command_Line& commands, CLI::App& pool) {
  auto [verb, pools] = commands.verb<std::vector<std::string>>(
      pool, "scsi", "Shows SCSI pools: transport, portal, target, size, description",
      {"zqpool pool scsi POOL_UUID", "zqpool pool scsi -o json - < uuids.txt"}, &show_scsi);
  add_objects(verb, "UUID", pools, "The pools");
}

}  // namespace

void add_pool(Command_Line& commands) {
  CLI::App& pool =
      commands.noun("pool", "Storage pools, in the catalog and where they are reached");
  add_show(commands, pool);
  add_resolve(commands, pool);
  add_url(commands, pool);
  add_scsi(commands, pool);
}

}  // namespace zqpool::cli
