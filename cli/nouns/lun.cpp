#include <limits>
#include <utility>

#include "cli/command/command_line.h"
#include "cli/command/confirm.h"
#include "cli/nouns/pool_verbs.h"
#include "cli/support/size.h"

namespace zqpool::cli {

namespace {

using json_spirit::Value;
using Retention_Type = SCSI_Target_Manager::Retention_Type;

struct Arguments {
  SCSI_Pool pool;
  std::vector<std::string> luns;
  std::string size;
  std::string block_size;
  std::string retention = "normal";
  bool newest = false;
  bool to_export = false;
  bool nobody = false;
  bool force = false;
  bool yes = false;
};

/// No service gives a LUN this number.
constexpr int no_number = std::numeric_limits<int>::min();

Value number(int lun_num) {
  return lun_num == no_number ? Value() : Value(lun_num);
}

Retention_Type retention_type(const std::string& name) {
  for (const Retention_Type type :
       {SCSI_Target_Manager::TYPE_NORMAL, SCSI_Target_Manager::TYPE_NEWEST}) {
    if (name == SCSI_Target_Manager::type_to_name(type)) return type;
  }
  throw Usage_Error("'" + name + "' is no retention type: it is normal or newest");
}

int block_size(const std::string& text) {
  if (text.empty()) return -1;
  const std::uint64_t size = parse_size(text);
  if (size == 0 || size > std::numeric_limits<int>::max()) {
    throw Usage_Error("'" + text + "' is no size of a block");
  }
  return static_cast<int>(size);
}

/// One new LUN, by an operation that tells its identifier and its number.
template <typename Operation>
Outcome make_lun(Session& session, const Target& target, const SCSI_Pool& pool,
                 const Operation& operation, Object& record) {
  std::string lun_id;
  int lun_num = no_number;
  Outcome outcome =
      pool.call(session, target, {Effect::changes},
                [&](SCSI_Target_Manager& manager) { return operation(manager, lun_id, lun_num); });
  if (outcome.done()) {
    record = {{"lun_id", lun_id}, {"lun_num", number(lun_num)}};
  } else if (!lun_id.empty()) {
    outcome.cause += "; it is LUN " + lun_id;
  }
  return outcome;
}

Exit_Code create(Session& session, const Arguments& arguments) {
  check_names({arguments.pool.uuid});
  const std::uint64_t size = parse_size(arguments.size);
  const int block = block_size(arguments.block_size);
  const Retention_Type retention = retention_type(arguments.retention);
  if (arguments.nobody && !arguments.to_export) {
    throw Usage_Error("--nobody is about an export: give --export, too");
  }
  return session.show(
      {arguments.pool.uuid}, [&](const Target& target, const std::string&, Object& record) {
        return make_lun(
            session, target, arguments.pool,
            [&](SCSI_Target_Manager& pool, std::string& lun_id, int& lun_num) {
              if (arguments.newest) return pool.create_newest_lun(size, lun_id, lun_num);
              return pool.create_lun(size, lun_id, lun_num, block, arguments.to_export,
                                     arguments.to_export && !arguments.nobody, retention);
            },
            record);
      });
}

Exit_Code create_from(Session& session, const Arguments& arguments) {
  check_names({arguments.pool.uuid});
  return session.show(expand_names(arguments.luns),
                      [&](const Target& target, const std::string& snapshot_id, Object& record) {
                        return make_lun(
                            session, target, arguments.pool,
                            [&](SCSI_Target_Manager& pool, std::string& lun_id, int& lun_num) {
                              return pool.create_lun(snapshot_id, lun_id, lun_num,
                                                     arguments.to_export);
                            },
                            record);
                      });
}

Exit_Code list(Session& session, const Arguments& arguments) {
  check_names({arguments.pool.uuid});
  Array luns;
  const Outcome outcome = arguments.pool.call(
      session, session.target(), {Effect::reads},
      [&](SCSI_Target_Manager& pool) { return pool.list_scsi_pool_luns(luns); });
  if (!outcome.done()) return session.report(outcome);
  return session.print_list(luns, "lun_id");
}

/// Asks about each LUN. `lacks` tells of one whose description has not what was asked for.
using Ask = bool (*)(const SCSI_Target_Manager& pool, const std::string& lun_id, Object& record);
Exit_Code ask_each(Session& session, const Arguments& arguments, const char* lacks, Ask ask) {
  check_names({arguments.pool.uuid});
  return session.show(expand_names(arguments.luns), [&](const Target& target,
                                                        const std::string& lun_id, Object& record) {
    Said said;
    Outcome outcome =
        arguments.pool.call(session, target, {Effect::reads, "Invalid value [] of lun '", &said},
                            [&](SCSI_Target_Manager& pool) { return ask(pool, lun_id, record); });
    const bool described =
        !said.has_error("Failed to get lun '") && !said.has_error("Invalid value ");
    if (outcome.code == Exit_Code::done || !described) return outcome;
    return Outcome{Exit_Code::not_found, std::string("not found: ") + lacks};
  });
}

Exit_Code show(Session& session, const Arguments& arguments) {
  return ask_each(session, arguments, "it has no description",
                  [](const SCSI_Target_Manager& pool, const std::string& lun_id, Object& record) {
                    return pool.get_scsi_pool_lun_info(lun_id, record);
                  });
}

Exit_Code show_number(Session& session, const Arguments& arguments) {
  return ask_each(session, arguments, "the LUN has no number, it is not exported",
                  [](const SCSI_Target_Manager& pool, const std::string& lun_id, Object& record) {
                    int lun_num = 0;
                    if (!pool.get_lun_num(lun_id, lun_num)) return false;
                    record["lun_num"] = lun_num;
                    return true;
                  });
}

Exit_Code show_serial(Session& session, const Arguments& arguments) {
  return ask_each(session, arguments, "the LUN has no serial number",
                  [](const SCSI_Target_Manager& pool, const std::string& lun_id, Object& record) {
                    std::string serial_number;
                    if (!pool.get_serial_number(lun_id, serial_number)) return false;
                    record["serial_number"] = std::move(serial_number);
                    return true;
                  });
}

Exit_Code export_each(Session& session, const Arguments& arguments) {
  check_names({arguments.pool.uuid});
  const SCSI_Pool& way = arguments.pool;
  return session.show(expand_names(arguments.luns), [&](const Target& target,
                                                        const std::string& lun_id, Object& record) {
    int lun_num = 0;
    Outcome outcome = way.call(session, target, {Effect::changes}, [&](SCSI_Target_Manager& pool) {
      return pool.export_lun(lun_id, lun_num, way.type_or_null(), way.target_or_null());
    });
    if (outcome.done()) record = {{"lun_id", lun_id}, {"lun_num", lun_num}};
    return outcome;
  });
}

/// Changes something of each LUN; asks first where `destroying` says what would be destroyed.
using Change = bool (*)(SCSI_Target_Manager& pool, const std::string& lun_id, const Arguments&);
Exit_Code change_each(Session& session, const Arguments& arguments, const char* destroying,
                      Change change) {
  check_names({arguments.pool.uuid});
  const std::vector<std::string> luns = expand_names(arguments.luns);
  if (destroying != nullptr) {
    confirm(arguments.yes || session.is_dry_run(), destroying, luns, "LUNs");
  }
  return session.change(luns, [&](const Target& target, const std::string& lun_id) {
    return arguments.pool.call(session, target, {Effect::changes}, [&](SCSI_Target_Manager& pool) {
      return change(pool, lun_id, arguments);
    });
  });
}

Exit_Code unexport_each(Session& session, const Arguments& arguments) {
  return change_each(session, arguments, nullptr,
                     [](SCSI_Target_Manager& pool, const std::string& lun_id,
                        const Arguments& how) { return pool.unexport_lun(lun_id, how.force); });
}

Exit_Code allow_each(Session& session, const Arguments& arguments) {
  return change_each(
      session, arguments, nullptr,
      [](SCSI_Target_Manager& pool, const std::string& lun_id, const Arguments& how) {
        return pool.add_lun_acls(lun_id, how.pool.type_or_null());
      });
}

Exit_Code rollback_each(Session& session, const Arguments& arguments) {
  return change_each(session, arguments, "Lose what was written since the newest snapshot of",
                     [](SCSI_Target_Manager& pool, const std::string& lun_id,
                        const Arguments& how) { return pool.rollback_lun(lun_id, how.force); });
}

Exit_Code delete_each(Session& session, const Arguments& arguments) {
  return change_each(
      session, arguments, "Delete",
      [](SCSI_Target_Manager& pool, const std::string& lun_id, const Arguments& how) {
        return pool.delete_lun(lun_id, how.force, nullptr);
      });
}

void add_create(Command_Line& commands, CLI::App& lun) {
  auto [verb, arguments] = commands.verb<Arguments>(
      lun, "create", "Creates an empty LUN",
      {"zqpool lun create POOL_UUID --size 10GiB",
       "zqpool lun create POOL_UUID --size 10GiB --newest -o json",
       "zqpool lun create POOL_UUID --size 1TiB --export --initiator iqn.2026-11.lab:host1"},
      &create);
  arguments.pool.add_to(verb);
  verb.add_option("--size", arguments.size, "How large")->type_name("SIZE")->required();
  CLI::Option* const block =
      verb.add_option("--block-size", arguments.block_size, "Size of a block (the service's)");
  block->type_name("SIZE");
  CLI::Option* const retention =
      verb.add_option("--retention", arguments.retention, "What it is kept for (normal)");
  retention->type_name("normal|newest");
  CLI::Option* const to_export =
      verb.add_flag("--export", arguments.to_export, "Export it at once, to this host");
  CLI::Option* const nobody =
      verb.add_flag("--nobody", arguments.nobody, "Let nobody in yet (with --export)");
  arguments.pool.add_access_to(verb);
  verb.add_flag("--newest", arguments.newest, "For a backup: --retention newest --export")
      ->excludes(block)
      ->excludes(retention)
      ->excludes(to_export)
      ->excludes(nobody);
}

void add_create_from(Command_Line& commands, CLI::App& lun) {
  auto [verb, arguments] =
      commands.verb<Arguments>(lun, "create-from", "Creates LUNs with the content of snapshots",
                               {"zqpool lun create-from POOL_UUID SNAPSHOT_ID",
                                "zqpool lun create-from POOL_UUID --export SNAPSHOT_ID"},
                               &create_from);
  arguments.pool.add_to(verb);
  add_objects(verb, "SNAPSHOT_ID", arguments.luns, "The snapshots");
  verb.add_flag("--export", arguments.to_export, "Export them at once, to nobody yet");
}

using Verb = std::pair<CLI::App&, Arguments&>;

/// A verb on many LUNs of a pool.
Verb add_verb(Command_Line& commands, CLI::App& lun, const std::string& name,
              const std::string& what, const std::vector<std::string>& examples,
              Exit_Code (*action)(Session&, const Arguments&)) {
  auto [verb, arguments] = commands.verb<Arguments>(lun, name, what, examples, action);
  arguments.pool.add_to(verb);
  add_objects(verb, "LUN_ID", arguments.luns, "The LUNs");
  return {verb, arguments};
}

Verb with_force(Verb verb, const char* help) {
  verb.first.add_flag("--force", verb.second.force, help);
  return verb;
}

void with_yes(Verb verb) {
  add_yes(verb.first, verb.second.yes);
}

void add_reads(Command_Line& commands, CLI::App& lun) {
  auto [list_verb, arguments] = commands.verb<Arguments>(
      lun, "list", "Shows the descriptions of all LUNs of a pool",
      {"zqpool lun list POOL_UUID", "zqpool lun list POOL_UUID -o tsv"}, &list);
  arguments.pool.add_to(list_verb);
  add_verb(commands, lun, "show", "Shows the descriptions of LUNs",
           {"zqpool lun show POOL_UUID LUN_ID"}, &show);
  add_verb(commands, lun, "number", "Shows the numbers of LUNs on their target",
           {"zqpool lun number POOL_UUID LUN_ID"}, &show_number);
  add_verb(commands, lun, "serial", "Shows the SCSI serial numbers of LUNs",
           {"zqpool lun serial POOL_UUID LUN_ID"}, &show_serial);
}

void add_changes(Command_Line& commands, CLI::App& lun) {
  auto [export_verb, exported] =
      add_verb(commands, lun, "export", "Exports LUNs to this host",
               {"zqpool lun export POOL_UUID LUN_ID",
                "zqpool lun export POOL_UUID LUN_ID --type iSCSI --target iqn.2026-11.lab:t1"},
               &export_each);
  exported.pool.add_way_to(export_verb);
  with_force(add_verb(commands, lun, "unexport", "Withdraws the exports of LUNs",
                      {"zqpool lun unexport POOL_UUID LUN_ID"}, &unexport_each),
             "Also where one is in use");
  auto [allow_verb, allowed] =
      add_verb(commands, lun, "allow", "Lets this host, too, reach exported LUNs",
               {"zqpool lun allow POOL_UUID LUN_ID",
                "zqpool lun allow POOL_UUID LUN_ID --initiator iqn.2026-11.lab:host2"},
               &allow_each);
  allowed.pool.add_access_to(allow_verb);
  allow_verb.add_option("--type", allowed.pool.type, "SCSI transport, such as iSCSI (the pool's)")
      ->type_name("TYPE");
  with_yes(
      with_force(add_verb(commands, lun, "rollback", "Takes LUNs back to their newest snapshot",
                          {"zqpool lun rollback POOL_UUID LUN_ID"}, &rollback_each),
                 "Also where one is in use"));
  with_yes(with_force(add_verb(commands, lun, "delete", "Deletes LUNs",
                               {"zqpool lun delete POOL_UUID LUN_ID",
                                "zqpool lun delete --yes --force POOL_UUID - < luns.txt"},
                               &delete_each),
                      "Also where one is exported"));
}

}  // namespace

void add_lun(Command_Line& commands) {
  CLI::App& lun = commands.noun("lun", "LUNs of SCSI pools");
  add_create(commands, lun);
  add_create_from(commands, lun);
  add_reads(commands, lun);
  add_changes(commands, lun);
}

}  // namespace zqpool::cli
