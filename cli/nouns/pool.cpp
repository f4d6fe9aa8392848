#include <functional>
#include <memory>
#include <utility>

#include "cli/command/batch.h"
#include "cli/nouns/nouns.h"
#include "cli/nouns/pool_verbs.h"
#include "cli/support/credentials.h"
#include "cli/support/endpoint.h"
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

/// The pools to resolve, and how.
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

/// Sets the process-wide facts that the library reads when it resolves a pool.
void introduce_host(Command_Context& context, const Resolution& wanted) {
  Endpoint backupd;
  if (!wanted.backupd.empty()) {
    try {
      backupd = parse_endpoint(wanted.backupd);
    } catch (const Usage_Error& error) {
      throw Usage_Error(std::string("--backupd: ") + error.what());
    }
  }
  const Setting_Value& secret = context.settings()[Setting_Id::s3_secret_file];
  if (secret.given) set_s3_key_secret(read_secret(secret.text, "S3 secret"));

  const Target& at = context.target();
  if (wanted.backupd.empty()) backupd = {at.ssl, at.host, at.port};
  Upstream_JSON_RESTful_Client::configure(at.host.c_str(), at.port, at.ssl, at.access_key.c_str());
  Host_Manager::instance()->access_key(at.access_key);
  WebSocket_Options::configure(backupd.host.c_str(), backupd.port, backupd.ssl);
  if (!wanted.host_uuid.empty()) Host_ID::instance()->set(wanted.host_uuid);
}

/// The host that storages are chosen for, or null when it has no known identity.
const char* this_host() {
  const char* const uuid = Host_ID::instance()->c_str();
  return *uuid != '\0' ? uuid : nullptr;
}

/// Resolves one pool by one operation of the library.
Outcome resolve(Command_Context& context, const Resolution& wanted,
                const std::function<bool()>& operation) {
  const Known_Failure no_device = {"Failed to get device with uuid ", Exit_Code::not_found,
                                   "not found: the pool has no device " + wanted.device};
  Outcome outcome = context.call({Effect::reads, {no_device}}, operation);
  if (outcome.code != Exit_Code::failed || outcome.log.errors.empty()) return outcome;
  const std::string& last = outcome.log.errors.back();
  const auto begins = [&last](const char* words) { return last.rfind(words, 0) == 0; };
  if (begins("Failed to decrypt s3 keys of pool info") &&
      !context.settings()[Setting_Id::s3_secret_file].given) {
    outcome.cause += "; give the file of their secret with --s3-secret-file";
  }
  if (begins("Failed to extract replicate pool info response(")) {
    // That line shows the whole answer, which may hold keys. Only the service's message is shown.
    const Service_Error error = service_error_in(last);
    // The service's error code is the negative HTTP status that it would have elsewhere.
    if (-599 <= error.code && error.code <= -400) {
      outcome.code = judge_status(static_cast<unsigned>(-error.code), Effect::reads);
    }
    outcome.cause = error.message.empty() ? "the answer contains no pool"
                                          : "the service says: " + error.message;
  }
  return outcome;
}

Exit_Code resolve_pools(Command_Context& context, const Resolution& wanted) {
  const std::vector<std::string> pools = expand_objects(wanted.pools);
  introduce_host(context, wanted);
  return context.show(pools, [&](const std::string& uuid, Object& record) {
    const Target& at = context.target();
    Pool_Info info;
    Outcome outcome = resolve(context, wanted, [&] {
      if (!wanted.replica) {
        return get_pool_info(uuid.c_str(), wanted.device_or_null(), info, wanted.restore,
                             at.retry_seconds, this_host(), true, nullptr, nullptr);
      }
      return get_replicate_pool_info(uuid.c_str(), at.host.c_str(), at.port, at.ssl, true, info,
                                     at.retry_seconds);
    });
    if (!outcome.done()) return outcome;
    info >> record;
    if (!wanted.show_secrets) hide_keys(record);
    return outcome;
  });
}

Exit_Code show_urls(Command_Context& context, const Resolution& wanted) {
  const std::vector<std::string> pools = expand_objects(wanted.pools);
  introduce_host(context, wanted);
  return context.show(pools, [&](const std::string& uuid, Object& record) {
    std::string url;
    Outcome outcome = resolve(context, wanted, [&] {
      return get_url_by_pool_uuid(uuid.c_str(), wanted.device_or_null(), url, wanted.restore,
                                  this_host());
    });
    if (outcome.done()) record["url"] = std::move(url);
    return outcome;
  });
}

/// Describes one SCSI pool, with the transport and portal of its LUNs as far as known.
Outcome describe_scsi(Command_Context& context, const std::string& uuid, Object& record) {
  Pool_Arguments arguments;
  arguments.uuid = uuid;
  auto pool = open_pool<SCSI_Target_Manager>(context.target(), arguments);
  Object description;
  std::string portal;
  std::string transport;
  Outcome outcome = context.call({Effect::reads, {{"Invalid value [] of scsi pool '"}}}, [&] {
    if (!pool.get_scsi_pool_info(description)) return false;
    transport = pool.scsi_type_;
    if (transport == "iSCSI") portal = pool.get_scsi_pool_portal();
    return true;
  });
  if (!outcome.done()) return outcome;
  std::string target;
  ACE_UINT64 size = 0;
  outcome =
      context.call({Effect::reads}, [&] { return pool.get_scsi_pool_target_size(target, size); });
  const bool known = outcome.done();
  if (!known && !outcome.log.has_error("Invalid value from SCSI pool: ")) return outcome;
  using json_spirit::Value;
  record = {{"pool_uuid", uuid},
            {"transport", transport.empty() ? Value() : Value(transport)},
            {"portal", portal.empty() ? Value() : Value(portal)},
            {"target", known ? Value(target) : Value()},
            {"size", known ? Value(size) : Value()},
            {"description", std::move(description)}};
  return {};
}

Exit_Code show_scsi(Command_Context& context, const Resolution& wanted) {
  return context.show(expand_names(wanted.pools), [&](const std::string& uuid, Object& record) {
    return describe_scsi(context, uuid, record);
  });
}

Exit_Code show(Command_Context& context, const Resolution& wanted) {
  return context.show(expand_objects(wanted.pools), [&](const std::string& uuid, Object& record) {
    const Target& at = context.target();
    return context.call({Effect::reads, {{"Failed to get pool '"}}}, [&] {
      return Pool_Metadata_Manager::get_pool_info(at.host, at.port, at.ssl, at.access_key, uuid,
                                                  record, at.retry_seconds);
    });
  });
}

/// The options that choose a storage.
Verb& add_choice(Verb& verb, Resolution& wanted) {
  return verb
      .option("--device", wanted.device, "UUID", "This storage instead of the one for the host")
      .option("--host-uuid", wanted.host_uuid, "UUID", "Resolve for this host (the local one)")
      .flag("--restore", wanted.restore, "With the settings of a restore")
      .option("--backupd", wanted.backupd, "https://HOST:PORT",
              "Socket of the backup service, for pools that need it (the endpoint)");
}

}  // namespace

void add_pool(Command_Line& commands) {
  const auto wanted = std::make_shared<Resolution>();
  Noun pool = commands.noun("pool", "Storage pools: their records, and how to reach their data");
  pool.verb("show", "Shows the catalog's record of pools",
            {"5f0c8a52-3c1b-4c3f-9a34-6f6a2d1f0b11", "--output json --jobs 16 - < uuids.txt"},
            &show, wanted)
      .objects("UUID", wanted->pools, "Pools to show");
  Verb resolving =
      pool.verb(
              "resolve", "Shows how to reach the data of pools: URL, keys, addresses",
              {"5f0c8a52-3c1b-4c3f-9a34-6f6a2d1f0b11",
               "--host-uuid HOST_UUID --show-secrets POOL_UUID -o json", "--replica REPLICA_UUID"},
              &resolve_pools, wanted)
          .objects("UUID", wanted->pools, "Pools to resolve");
  add_choice(resolving, *wanted)
      .flag("--replica", wanted->replica, "The UUIDs are those of replicas")
      .excludes({"--device", "--host-uuid", "--restore"})
      .flag("--show-secrets", wanted->show_secrets, "Show keys in clear");
  Verb showing_url = pool.verb("url", "Shows the URL by which the data of pools is reached",
                               {"5f0c8a52-3c1b-4c3f-9a34-6f6a2d1f0b11",
                                "--host-uuid HOST_UUID -o tsv - < uuids.txt"},
                               &show_urls, wanted)
                         .objects("UUID", wanted->pools, "The pools");
  add_choice(showing_url, *wanted);
  pool.verb("scsi", "Shows SCSI pools: transport, portal, target, size, description",
            {"POOL_UUID", "-o json - < uuids.txt"}, &show_scsi, wanted)
      .objects("UUID", wanted->pools, "The pools");
}

}  // namespace zqpool::cli
