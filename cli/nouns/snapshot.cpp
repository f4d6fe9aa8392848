#include <limits>
#include <utility>

#include "cli/command/command_line.h"
#include "cli/command/confirm.h"
#include "cli/command/raw_request.h"
#include "cli/nouns/pool_verbs.h"
#include "cli/nouns/snapshot_tree.h"

namespace zqpool::cli {

namespace {

constexpr const char* snapshot_path = "/zq/r/scsipool/snapshot";
constexpr const char* only_one = ", and only one that has at most one can be compared";

struct Arguments {
  SCSI_Pool pool;
  std::vector<std::string> names;  ///< snapshots, or the LUNs of which there are or will be some
  std::string lun_id;
  int lun_num = -1;
  bool recyclable = false;
  bool delete_empty_lun = false;
  bool yes = false;
};

/// The descriptions that the service lists for a "lun_id" or a "snapshot_id"; the library only
/// looks snapshots up one by one.
Outcome list_snapshots(Session& session, const SCSI_Pool& pool, const char* by,
                       const std::string& id, Array& snapshots) {
  return list_objects(session, snapshot_path, {{"pool_id", pool.uuid}, {by, id}}, snapshots);
}

Exit_Code create(Session& session, const Arguments& arguments) {
  check_names({arguments.pool.uuid});
  return session.show(
      expand_names(arguments.names),
      [&](const Target& target, const std::string& lun_id, Object& record) {
        std::string snapshot_id;
        Outcome outcome =
            arguments.pool.call(session, target, {Effect::changes}, [&](SCSI_Target_Manager& pool) {
              return pool.create_snapshot(lun_id, snapshot_id, arguments.recyclable);
            });
        if (outcome.done()) record = {{"lun_id", lun_id}, {"snapshot_id", snapshot_id}};
        return outcome;
      });
}

Exit_Code list(Session& session, const Arguments& arguments) {
  check_names({arguments.pool.uuid, arguments.lun_id});
  Array snapshots;
  const Outcome outcome =
      list_snapshots(session, arguments.pool, "lun_id", arguments.lun_id, snapshots);
  return outcome.done() ? session.print_list(snapshots, "snapshot_id") : session.report(outcome);
}

/// Asks about each snapshot.
using Ask = std::function<Outcome(const Target&, const std::string& snapshot_id, Object& record)>;
Exit_Code ask_each(Session& session, const Arguments& arguments, const Ask& ask) {
  check_names({arguments.pool.uuid});
  return session.show(expand_names(arguments.names), ask);
}

/// What the library keeps silent about: whether there is no such snapshot, or several descriptions
/// of it, of which none has the number that was asked for.
Outcome why_not_described(Session& session, const SCSI_Pool& pool, const std::string& snapshot_id,
                          int lun_num, const char* what_to_do) {
  Array descriptions;
  Outcome outcome = list_snapshots(session, pool, "snapshot_id", snapshot_id, descriptions);
  if (outcome.code != Exit_Code::done) return outcome;
  if (descriptions.empty()) return {Exit_Code::not_found, "not found: there is no such snapshot"};
  if (lun_num >= 0) {
    return {Exit_Code::not_found,
            "not found: it is not shared under number " + std::to_string(lun_num)};
  }
  if (descriptions.size() == 1) {
    return {Exit_Code::failed, "the answer is not what the operation needs"};
  }
  return {Exit_Code::conflict,
          "it is shared under " + std::to_string(descriptions.size()) + " numbers" + what_to_do};
}

Exit_Code show(Session& session, const Arguments& arguments) {
  return ask_each(
      session, arguments, [&](const Target& target, const std::string& id, Object& record) {
        Said said;
        const Outcome outcome = arguments.pool.call(
            session, target, {Effect::reads, nullptr, &said}, [&](SCSI_Target_Manager& pool) {
              return pool.get_snapshot_info(id, record, arguments.lun_num);
            });
        const bool silent =
            outcome.code != Exit_Code::done && outcome.answered && said.errors.empty();
        return silent ? why_not_described(session, arguments.pool, id, arguments.lun_num,
                                          ": say which one with --lun-num")
                      : outcome;
      });
}

Exit_Code previous(Session& session, const Arguments& arguments) {
  return ask_each(
      session, arguments, [&](const Target& target, const std::string& id, Object& record) {
        Said said;
        const Outcome outcome = arguments.pool.call(
            session, target, {Effect::reads, no_current_snapshot, &said},
            [&](SCSI_Target_Manager& pool) { return pool.get_previous_snapshot(id, record); });
        if (outcome.code == Exit_Code::not_found && outcome.answered) {
          return why_not_described(session, arguments.pool, id, -1, only_one);
        }
        return judge_previous(outcome, record, said);
      });
}

Outcome size_of(Session& session, const Target& target, const SCSI_Pool& pool,
                const std::string& id, std::uint64_t& size) {
  Said said;
  ACE_UINT64 bytes = 0;
  Outcome outcome = pool.call(
      session, target, {Effect::reads, no_snapshot_to_measure, &said, Way::an_error_spoils_it},
      [&](SCSI_Target_Manager& manager) { return manager.cal_snapshot_size(id, bytes, true); });
  size = bytes;
  if (outcome.code == Exit_Code::not_found && outcome.answered) {
    return why_not_described(session, pool, id, -1, only_one);
  }
  return judge_size(std::move(outcome), said, id);
}

Exit_Code show_size(Session& session, const Arguments& arguments) {
  return ask_each(session, arguments,
                  [&](const Target& target, const std::string& id, Object& record) {
                    std::uint64_t size = 0;
                    Outcome outcome = size_of(session, target, arguments.pool, id, size);
                    if (outcome.done()) record["size"] = size;
                    return outcome;
                  });
}

Exit_Code tree(Session& session, const Arguments& arguments) {
  check_names({arguments.pool.uuid, arguments.lun_id});
  Array snapshots;
  const Outcome outcome =
      list_snapshots(session, arguments.pool, "lun_id", arguments.lun_id, snapshots);
  if (!outcome.done()) return session.report(outcome);
  return show_chain(session, arguments.lun_id, snapshots,
                    [&](const Target& target, const std::string& id, std::uint64_t& size) {
                      return size_of(session, target, arguments.pool, id, size);
                    });
}

Exit_Code share(Session& session, const Arguments& arguments) {
  return ask_each(
      session, arguments, [&](const Target& target, const std::string& id, Object& record) {
        const SCSI_Pool& way = arguments.pool;
        int lun_num = 0;
        Outcome outcome =
            way.call(session, target, {Effect::changes}, [&](SCSI_Target_Manager& pool) {
              return pool.share_snapshot(id, way.type_or_null(), way.target_or_null(), lun_num);
            });
        if (outcome.done()) record = {{"snapshot_id", id}, {"lun_num", lun_num}};
        return outcome;
      });
}

/// Changes something of each snapshot.
using Change = bool (*)(SCSI_Target_Manager& pool, const std::string& id, const Arguments&);
Exit_Code change_each(Session& session, const Arguments& arguments,
                      const std::vector<std::string>& snapshots, Change change) {
  check_names({arguments.pool.uuid});
  return session.change(snapshots, [&](const Target& target, const std::string& id) {
    return arguments.pool.call(session, target, {Effect::changes}, [&](SCSI_Target_Manager& pool) {
      return change(pool, id, arguments);
    });
  });
}

Exit_Code unshare(Session& session, const Arguments& arguments) {
  return change_each(session, arguments, expand_names(arguments.names),
                     [](SCSI_Target_Manager& pool, const std::string& id, const Arguments& how) {
                       return pool.unexport_snapshot(id, how.lun_num);
                     });
}

Exit_Code allow(Session& session, const Arguments& arguments) {
  return change_each(session, arguments, expand_names(arguments.names),
                     [](SCSI_Target_Manager& pool, const std::string& id, const Arguments& how) {
                       return pool.add_snapshot_acls(id, how.lun_num);
                     });
}

Exit_Code delete_each(Session& session, const Arguments& arguments) {
  const std::vector<std::string> snapshots = expand_names(arguments.names);
  confirm(arguments.yes || session.is_dry_run(), "Delete", snapshots, "snapshots");
  return change_each(session, arguments, snapshots,
                     [](SCSI_Target_Manager& pool, const std::string& id, const Arguments& how) {
                       return pool.delete_snapshot(id, how.delete_empty_lun);
                     });
}

using Verb = std::pair<CLI::App&, Arguments&>;
using Action_Of = Exit_Code (*)(Session&, const Arguments&);

Verb add_verb(Command_Line& commands, CLI::App& noun, const std::string& name,
              const std::string& what, const std::vector<std::string>& examples, Action_Of action) {
  auto [verb, arguments] = commands.verb<Arguments>(noun, name, what, examples, action);
  arguments.pool.add_to(verb);
  return {verb, arguments};
}

Verb with_lun(Verb verb) {
  add_argument(verb.first, "LUN_ID", verb.second.lun_id, "The LUN");
  return verb;
}

Verb with_snapshots(Verb verb) {
  add_objects(verb.first, "SNAPSHOT_ID", verb.second.names, "The snapshots");
  return verb;
}

CLI::Option& lun_num_of(Verb verb, const char* help) {
  return *verb.first.add_option("--lun-num", verb.second.lun_num, help)
              ->type_name("N")
              ->check(CLI::Range(0, std::numeric_limits<int>::max()));
}

void add_reads(Command_Line& commands, CLI::App& noun) {
  with_lun(add_verb(commands, noun, "list", "Shows the descriptions of all snapshots of a LUN",
                    {"zqpool snapshot list POOL_UUID LUN_ID"}, &list));
  lun_num_of(with_snapshots(add_verb(commands, noun, "show", "Shows the descriptions of snapshots",
                                     {"zqpool snapshot show POOL_UUID SNAPSHOT_ID"}, &show)),
             "The share of one that is shared several times");
  with_snapshots(add_verb(commands, noun, "previous", "Shows the snapshot right before another",
                          {"zqpool snapshot previous POOL_UUID SNAPSHOT_ID"}, &previous));
  with_snapshots(add_verb(commands, noun, "size", "Shows what snapshots add over those before them",
                          {"zqpool snapshot size POOL_UUID SNAPSHOT_ID"}, &show_size));
  with_lun(add_verb(commands, noun, "tree",
                    "Draws the chain of a LUN's snapshots with what each adds",
                    {"zqpool snapshot tree POOL_UUID LUN_ID",
                     "zqpool snapshot tree POOL_UUID LUN_ID -o json --jobs 16"},
                    &tree));
}

void add_changes(Command_Line& commands, CLI::App& noun) {
  const Verb create_verb =
      add_verb(commands, noun, "create", "Takes snapshots of LUNs",
               {"zqpool snapshot create POOL_UUID LUN_ID",
                "zqpool snapshot create POOL_UUID --recyclable -o tsv - < luns.txt"},
               &create);
  add_objects(create_verb.first, "LUN_ID", create_verb.second.names, "The LUNs");
  create_verb.first.add_flag("--recyclable", create_verb.second.recyclable,
                             "The service may reclaim them when it needs the room");

  const Verb share_verb =
      with_snapshots(add_verb(commands, noun, "share", "Exports snapshots to this host",
                              {"zqpool snapshot share POOL_UUID SNAPSHOT_ID"}, &share));
  share_verb.second.pool.add_way_to(share_verb.first);

  lun_num_of(with_snapshots(add_verb(commands, noun, "unshare", "Withdraws the share of a snapshot",
                                     {"zqpool snapshot unshare POOL_UUID SNAPSHOT_ID --lun-num 3"},
                                     &unshare)),
             "The number under which it is shared")
      .required();

  const Verb allow_verb = with_snapshots(
      add_verb(commands, noun, "allow", "Lets this host, too, reach the share of a snapshot",
               {"zqpool snapshot allow POOL_UUID SNAPSHOT_ID --lun-num 3"}, &allow));
  lun_num_of(allow_verb, "The number under which it is shared").required();
  allow_verb.second.pool.add_access_to(allow_verb.first);

  const Verb delete_verb =
      with_snapshots(add_verb(commands, noun, "delete", "Deletes snapshots",
                              {"zqpool snapshot delete POOL_UUID SNAPSHOT_ID",
                               "zqpool snapshot delete --yes POOL_UUID - < snapshots.txt"},
                              &delete_each));
  delete_verb.first.add_flag("--delete-empty-lun", delete_verb.second.delete_empty_lun,
                             "The LUN, too, if nothing is left of it");
  add_yes(delete_verb.first, delete_verb.second.yes);
}

}  // namespace

void add_snapshot(Command_Line& commands) {
  CLI::App& noun = commands.noun("snapshot", "Snapshots of LUNs");
  add_changes(commands, noun);
  add_reads(commands, noun);
}

}  // namespace zqpool::cli
