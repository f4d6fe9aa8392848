#include <utility>

#include "cli/command/batch.h"
#include "cli/command/command_line.h"
#include "cli/command/raw_request.h"
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

/// An operator whose client repeats what provably never reached the service, as those of the other
/// commands do.
NFS_Operator open(const Target& target) {
  constexpr int retries = 2;
  constexpr int retry_timeout = 30;
  const auto& [ssl, host, port] = target.endpoint;
  return NFS_Operator(host.c_str(), port, ssl, target.access_key.c_str(), retries, retry_timeout);
}

NFS_Operator::Record record_of(const Arguments& arguments) {
  NFS_Operator::Record record = arguments.record;
  if (arguments.path.empty() == arguments.pool.empty()) {
    throw Usage_Error("what is exported? Give --path or --pool");
  }
  record.type = arguments.pool.empty() ? NFS_Operator::TYPE_PATH : NFS_Operator::TYPE_POOL;
  record.path = arguments.pool.empty() ? arguments.path : arguments.sub_dir;
  record.pool_uuid = arguments.pool;
  return record;
}

/// How long the service is to wait, in whole seconds, a part of one counting as one. The exchange
/// must be allowed to last longer.
unsigned int wait_seconds(const Session& session, const std::string& text) {
  if (text.empty()) return 0;
  const std::chrono::milliseconds wait = parse_duration(text);
  if (wait >= session.timeout()) {
    throw Usage_Error("--wait: '" + text + "' is not within --timeout, " +
                      session.settings()[Setting_Id::timeout].text);
  }
  return static_cast<unsigned int>((wait.count() + 999) / 1000);
}

/// Adds what the service holds of a record whose export did not end well. One that is there after
/// all is as good as done.
Outcome look_for(Session& session, const std::string& uuid, Outcome outcome) {
  if (outcome.code != Exit_Code::outcome_unknown && outcome.code != Exit_Code::unreachable) {
    return outcome;
  }
  Array records;
  const Outcome found = list_objects(session, "/zq/r/nfs", {{"uuid", uuid}}, records);
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
    outcome.cause += "; it would be record " + uuid;
  }
  return outcome;
}

Exit_Code publish(Session& session, const Arguments& arguments) {
  const NFS_Operator::Record record = record_of(arguments);
  const unsigned int wait = wait_seconds(session, arguments.wait);
  const std::string what = record.pool_uuid.empty() ? record.path : record.pool_uuid;
  return session.show({what}, [&](const Target& target, const std::string&, Object& shown) {
    std::string uuid;
    Outcome outcome = session.call({Effect::changes},
                                   [&] { return open(target).export_record(record, uuid, wait); });
    if (outcome.held_back) return outcome;
    outcome = look_for(session, uuid, std::move(outcome));
    if (outcome.done()) shown["uuid"] = uuid;
    return outcome;
  });
}

Exit_Code update(Session& session, const Arguments& arguments) {
  const NFS_Operator::Record record = record_of(arguments);
  return session.change({arguments.uuid}, [&](const Target& target, const std::string& uuid) {
    return session.call({Effect::changes},
                        [&] { return open(target).update_record(record, uuid); });
  });
}

Exit_Code withdraw(Session& session, const Arguments& arguments) {
  const unsigned int wait = wait_seconds(session, arguments.wait);
  const std::vector<std::string> uuids = expand_names(arguments.uuids);
  return session.change(uuids, [&](const Target& target, const std::string& uuid) {
    return session.call({Effect::changes},
                        [&] { return open(target).unexport_record(uuid, wait); });
  });
}

void add_wait(CLI::App& verb, Arguments& arguments, const char* help) {
  verb.add_option("--wait", arguments.wait, help)->type_name("DURATION");
}

void add_record(CLI::App& verb, Arguments& arguments) {
  NFS_Operator::Record& record = arguments.record;
  CLI::Option* const path = verb.add_option("--path", arguments.path, "A directory on the server");
  path->type_name("PATH");
  CLI::Option* const pool = verb.add_option("--pool", arguments.pool, "A storage pool");
  pool->type_name("UUID")->excludes(path);
  verb.add_option("--sub-dir", arguments.sub_dir, "Only this directory of the pool")
      ->type_name("PATH")
      ->needs(pool);
  verb.add_option("--pseudo", record.pseudo, "NFSv4 pseudo path (the path)")->type_name("PATH");
  verb.add_option("--fsal", record.fsal, "File-system abstraction layer (the service's choice)")
      ->type_name("NAME");
  verb.add_option("--squash", record.squash, "Which users are squashed (the service's choice)")
      ->type_name("NAME");
  verb.add_flag("--nfsv3", record.nfsv3, "NFSv3, not v4");
  verb.add_flag("--readonly", record.readonly, "For reading only");
  verb.add_option("--client", record.clients, "Only this client, or network; may be repeated")
      ->type_name("CLIENT");
}

}  // namespace

void add_nfs(Command_Line& commands) {
  CLI::App& nfs = commands.noun("nfs", "NFS exports of directories and pools");

  auto [export_verb, exported] = commands.verb<Arguments>(
      nfs, "export", "Publishes a directory or a pool, and shows the UUID of its record",
      {"zqpool nfs export --path /srv/backup --readonly --client 192.0.2.0/24",
       "zqpool nfs export --pool POOL_UUID --sub-dir jobs --wait 10s -o json"},
      &publish);
  add_record(export_verb, exported);
  add_wait(export_verb, exported, "Wait so long for the export to be there");

  auto [update_verb, updated] = commands.verb<Arguments>(
      nfs, "update", "Puts another export in the place of one",
      {"zqpool nfs update UUID --path /srv/backup --squash no_root_squash"}, &update);
  add_argument(update_verb, "UUID", updated.uuid, "The record");
  add_record(update_verb, updated);

  auto [unexport_verb, withdrawn] = commands.verb<Arguments>(
      nfs, "unexport", "Withdraws exports", {"zqpool nfs unexport UUID --wait 10s"}, &withdraw);
  add_objects(unexport_verb, "UUID", withdrawn.uuids, "The records");
  add_wait(unexport_verb, withdrawn, "Wait so long for them to be gone");
}

}  // namespace zqpool::cli
