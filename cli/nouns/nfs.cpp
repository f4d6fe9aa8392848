#include <memory>
#include <utility>

#include "cli/command/batch.h"
#include "cli/command/raw_request.h"
#include "cli/nouns/nouns.h"
#include "cli/nouns/pool_verbs.h"
#include "cli/support/duration.h"
#include "utils/pool/nfs_operator.h"

namespace zqpool::cli {

namespace {

struct Arguments {
  std::string uuid;
  std::vector<std::string> uuids;
  std::string path;
  std::string pool;
  std::string sub_dir;
  std::string wait;
  NFS_Operator::Record record;
};

/// An operator that repeats requests which never reached the service, as the library's other
/// operations do by default.
NFS_Operator open(const Target& at) {
  constexpr int retries = 2;
  constexpr int retry_timeout = 30;
  return NFS_Operator(at.host.c_str(), at.port, at.ssl, at.access_key.c_str(), retries,
                      retry_timeout);
}

NFS_Operator::Record record_of(const Arguments& arguments) {
  NFS_Operator::Record record = arguments.record;
  if (arguments.path.empty() == arguments.pool.empty()) {
    throw Usage_Error("give --path or --pool");
  }
  record.type = arguments.pool.empty() ? NFS_Operator::TYPE_PATH : NFS_Operator::TYPE_POOL;
  record.path = arguments.pool.empty() ? arguments.path : arguments.sub_dir;
  record.pool_uuid = arguments.pool;
  return record;
}

/// How long the service is to wait, in whole seconds, rounded up. Must be less than --timeout, or
/// the exchange would end first.
unsigned int wait_seconds(const Command_Context& context, const std::string& text) {
  if (text.empty()) return 0;
  const std::chrono::milliseconds wait = parse_duration(text);
  if (wait >= context.timeout()) {
    throw Usage_Error("--wait: '" + text + "' must be less than --timeout, " +
                      context.settings()[Setting_Id::timeout].text);
  }
  return static_cast<unsigned int>((wait.count() + 999) / 1000);
}

/// Looks up a record whose export failed or is in doubt: if it was exported after all, the command
/// succeeded; otherwise adds its state to the cause.
Outcome look_for(Command_Context& context, const std::string& uuid, Outcome outcome) {
  if (outcome.code != Exit_Code::outcome_unknown && outcome.code != Exit_Code::unreachable) {
    return outcome;
  }
  Array records;
  const Outcome found = list_objects(context, "/zq/r/nfs", {{"uuid", uuid}}, records);
  std::string state;
  const bool is_there = found.done() && records.size() == 1 &&
                        records[0].type() == json_spirit::obj_type &&
                        json_spirit::object_get(records[0].get_obj(), "state", state);
  if (is_there && state == "exported") return {};
  if (is_there) {
    outcome.cause += "; record " + uuid + " is " + state;
  } else if (found.answered || found.code == Exit_Code::not_found) {
    outcome.cause += "; there is no record " + uuid;
  } else if (outcome.code == Exit_Code::outcome_unknown) {
    outcome.cause += "; its record would be " + uuid;
  }
  return outcome;
}

Exit_Code publish(Command_Context& context, const Arguments& arguments) {
  const NFS_Operator::Record record = record_of(arguments);
  const unsigned int wait = wait_seconds(context, arguments.wait);
  const std::string what = record.pool_uuid.empty() ? record.path : record.pool_uuid;
  return context.show({what}, [&](const std::string&, Object& shown) {
    std::string uuid;
    Outcome outcome = context.call({Effect::changes}, [&] {
      return open(context.target()).export_record(record, uuid, wait);
    });
    if (outcome.held_back) return outcome;
    outcome = look_for(context, uuid, std::move(outcome));
    if (outcome.done()) shown["uuid"] = uuid;
    return outcome;
  });
}

Exit_Code update(Command_Context& context, const Arguments& arguments) {
  const NFS_Operator::Record record = record_of(arguments);
  return context.change({arguments.uuid}, [&](const std::string& uuid, Object&) {
    return context.call({Effect::changes},
                        [&] { return open(context.target()).update_record(record, uuid); });
  });
}

Exit_Code withdraw(Command_Context& context, const Arguments& arguments) {
  const unsigned int wait = wait_seconds(context, arguments.wait);
  const std::vector<std::string> uuids = expand_names(arguments.uuids);
  return context.change(uuids, [&](const std::string& uuid, Object&) {
    return context.call({Effect::changes},
                        [&] { return open(context.target()).unexport_record(uuid, wait); });
  });
}

void add_record(Verb& verb, Arguments& a) {
  verb.option("--path", a.path, "PATH", "A directory on the server")
      .option("--pool", a.pool, "UUID", "A storage pool")
      .excludes({"--path"})
      .option("--sub-dir", a.sub_dir, "PATH", "Only this directory of the pool")
      .needs({"--pool"})
      .option("--pseudo", a.record.pseudo, "PATH", "NFSv4 pseudo path (the path)")
      .option("--fsal", a.record.fsal, "NAME",
              "File-system abstraction layer (the service's choice)")
      .option("--squash", a.record.squash, "root_squash|no_root_squash|all_squash",
              "Which users are squashed (the service's choice)")
      .flag("--nfsv3", a.record.nfsv3, "NFSv3, not v4")
      .flag("--readonly", a.record.readonly, "Read-only")
      .option("--client", a.record.clients, "CLIENT",
              "Only this client, or network; may be repeated");
}

}  // namespace

void add_nfs(Command_Line& commands) {
  const auto arguments = std::make_shared<Arguments>();
  Arguments& a = *arguments;
  Noun nfs = commands.noun("nfs", "NFS exports of directories and pools");

  Verb publishing =
      nfs.verb("export", "Publishes a directory or a pool, and shows the UUID of its record",
               {"--path /srv/backup --readonly --client 192.0.2.0/24",
                "--pool POOL_UUID --sub-dir jobs --wait 10s -o json"},
               &publish, arguments);
  add_record(publishing, a);
  publishing.option("--wait", a.wait, "DURATION", "How long to wait until it is exported");

  Verb updating = nfs.verb("update", "Replaces an export with another",
                           {"UUID --path /srv/backup --squash no_root_squash"}, &update, arguments)
                      .argument("UUID", a.uuid, "The record");
  add_record(updating, a);

  nfs.verb("unexport", "Withdraws exports", {"UUID --wait 10s"}, &withdraw, arguments)
      .objects("UUID", a.uuids, "The records")
      .option("--wait", a.wait, "DURATION", "How long to wait until they are gone");
}

}  // namespace zqpool::cli
