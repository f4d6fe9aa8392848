#include <limits>
#include <utility>

#include "cli/nouns/nouns.h"
#include "cli/nouns/pool_verbs.h"
#include "cli/support/size.h"

namespace zqpool::cli {

namespace {

using json_spirit::Value;
using Pool = SCSI_Target_Manager;

struct Arguments {
  Pool_Arguments pool;
  std::string size;
  std::string block_size;
  std::string retention = "normal";
  bool newest = false;
  bool to_export = false;
  bool nobody = false;
  bool force = false;
};

/// Marks a LUN number that the answer lacks.
constexpr int no_number = std::numeric_limits<int>::min();

Pool::Retention_Type retention_type(const std::string& name) {
  for (const Pool::Retention_Type type : {Pool::TYPE_NORMAL, Pool::TYPE_NEWEST}) {
    if (name == Pool::type_to_name(type)) return type;
  }
  throw Usage_Error("'" + name + "' is not a retention type: use normal or newest");
}

int block_size(const std::string& text) {
  if (text.empty()) return -1;
  const std::uint64_t size = parse_size(text);
  if (size == 0 || size > std::numeric_limits<int>::max()) {
    throw Usage_Error("'" + text + "' is not a block size");
  }
  return static_cast<int>(size);
}

/// Creates a LUN by an operation that returns its identifier and its number.
template <typename Operation>
Outcome make_lun(const Command_Context& context, Object& record, const Operation& operation) {
  std::string lun_id;
  int lun_num = no_number;
  Outcome outcome = context.call(change_of_access(), [&] { return operation(lun_id, lun_num); });
  if (outcome.done()) {
    record = {{"lun_id", lun_id}, {"lun_num", lun_num == no_number ? Value() : Value(lun_num)}};
  } else if (!lun_id.empty()) {
    outcome.cause += "; it is LUN " + lun_id;
  }
  return outcome;
}

Exit_Code create(Command_Context& context, const Arguments& arguments) {
  check_names({arguments.pool.uuid});
  const std::uint64_t size = parse_size(arguments.size);
  const int block = block_size(arguments.block_size);
  const Pool::Retention_Type retention = retention_type(arguments.retention);
  if (arguments.nobody && !arguments.to_export) {
    throw Usage_Error("--nobody needs --export");
  }
  return context.show({arguments.pool.uuid}, [&](const std::string&, Object& record) {
    auto pool = open_pool<Pool>(context.target(), arguments.pool);
    return make_lun(context, record, [&](std::string& lun_id, int& lun_num) {
      if (arguments.newest) return pool.create_newest_lun(size, lun_id, lun_num);
      return pool.create_lun(size, lun_id, lun_num, block, arguments.to_export,
                             arguments.to_export && !arguments.nobody, retention);
    });
  });
}

Exit_Code create_from(Command_Context& context, const Arguments& arguments) {
  return show_each<Pool>(
      context, arguments.pool, [&](Pool& pool, const std::string& snapshot_id, Object& record) {
        return make_lun(context, record, [&](std::string& lun_id, int& lun_num) {
          return pool.create_lun(snapshot_id, lun_id, lun_num, arguments.to_export);
        });
      });
}

Exit_Code list(Command_Context& context, const Arguments& arguments) {
  check_names({arguments.pool.uuid});
  Array luns;
  const auto pool = open_pool<Pool>(context.target(), arguments.pool);
  const Outcome outcome =
      context.call({Effect::reads}, [&] { return pool.list_scsi_pool_luns(luns); });
  return outcome.done() ? context.print_list(luns, "lun_id") : context.report(outcome);
}

const Known_Failure no_such_lun = {"Invalid value [] of lun '"};

Exit_Code show(Command_Context& context, const Arguments& arguments) {
  return show_each<Pool>(
      context, arguments.pool, [&](const Pool& pool, const std::string& id, Object& record) {
        return context.call({Effect::reads, {no_such_lun}},
                            [&] { return pool.get_scsi_pool_lun_info(id, record); });
      });
}

Exit_Code show_number(Command_Context& context, const Arguments& arguments) {
  return show_each<Pool>(
      context, arguments.pool, [&](const Pool& pool, const std::string& id, Object& record) {
        const Known_Failure not_exported = {
            "Failed to get lun(" + id + ") info: ", Exit_Code::not_found,
            "not found: the LUN has no number, it is not exported"};
        int lun_num = 0;
        Outcome outcome = context.call({Effect::reads, {no_such_lun, not_exported}},
                                       [&] { return pool.get_lun_num(id, lun_num); });
        if (outcome.done()) record["lun_num"] = lun_num;
        return outcome;
      });
}

Exit_Code show_serial(Command_Context& context, const Arguments& arguments) {
  const Known_Failure no_serial = {"", Exit_Code::not_found,
                                   "not found: the LUN has no serial number"};
  return show_each<Pool>(
      context, arguments.pool, [&](const Pool& pool, const std::string& id, Object& record) {
        std::string serial_number;
        Outcome outcome = context.call({Effect::reads, {no_such_lun, no_serial}},
                                       [&] { return pool.get_serial_number(id, serial_number); });
        if (outcome.done()) record["serial_number"] = std::move(serial_number);
        return outcome;
      });
}

Exit_Code export_each(Command_Context& context, const Arguments& arguments) {
  return show_each<Pool>(context, arguments.pool,
                         [&](Pool& pool, const std::string& id, Object& record) {
                           int lun_num = 0;
                           Outcome outcome = context.call(change_of_access(), [&] {
                             return pool.export_lun(id, lun_num, arguments.pool.type_or_null(),
                                                    arguments.pool.target_or_null());
                           });
                           if (outcome.done()) record = {{"lun_id", id}, {"lun_num", lun_num}};
                           return outcome;
                         });
}

Exit_Code unexport_each(Command_Context& context, const Arguments& arguments) {
  return change_each<Pool>(context, arguments.pool, [&](Pool& pool, const std::string& id) {
    return pool.unexport_lun(id, arguments.force);
  });
}

Exit_Code allow_each(Command_Context& context, const Arguments& arguments) {
  return change_each<Pool>(context, arguments.pool, [&](Pool& pool, const std::string& id) {
    return pool.add_lun_acls(id, arguments.pool.type_or_null());
  });
}

Exit_Code rollback_each(Command_Context& context, const Arguments& arguments) {
  return change_each<Pool>(
      context, arguments.pool,
      [&](Pool& pool, const std::string& id) { return pool.rollback_lun(id, arguments.force); },
      "Discard what was written since the newest snapshot of", "LUNs");
}

Exit_Code delete_each(Command_Context& context, const Arguments& arguments) {
  return change_each<Pool>(
      context, arguments.pool,
      [&](Pool& pool, const std::string& id) {
        return pool.delete_lun(id, arguments.force, nullptr);
      },
      "Delete", "LUNs");
}

}  // namespace

void add_lun(Command_Line& commands) {
  Pool_Noun<Arguments> lun(commands.noun("lun", "LUNs of SCSI pools"));
  Arguments& a = lun.arguments();
  const std::vector<std::string> example = {"POOL_UUID LUN_ID"};

  Verb creating =
      lun.verb("create", "Creates an empty LUN",
               {"POOL_UUID --size 10GiB", "POOL_UUID --size 10GiB --newest -o json",
                "POOL_UUID --size 1TiB --export --initiator iqn.2026-11.lab:host1"},
               &create)
          .option("--size", a.size, "SIZE", "How large")
          .required()
          .option("--block-size", a.block_size, "SIZE", "Size of a block (the service's)")
          .option("--retention", a.retention, "normal|newest", "Retention type (normal)")
          .flag("--export", a.to_export, "Export it at once, to this host")
          .flag("--nobody", a.nobody, "Grant no access yet (with --export)");
  add_initiators(creating, a.pool)
      .flag("--newest", a.newest, "For a backup: --retention newest --export")
      .excludes({"--block-size", "--retention", "--export", "--nobody"});
  lun.verb("create-from", "Creates LUNs with the content of snapshots",
           {"POOL_UUID SNAPSHOT_ID", "POOL_UUID --export SNAPSHOT_ID"}, &create_from)
      .objects("SNAPSHOT_ID", a.pool.names, "The snapshots")
      .flag("--export", a.to_export, "Export them at once, granting no access yet");

  lun.verb("list", "Shows the descriptions of all LUNs of a pool",
           {"POOL_UUID", "POOL_UUID -o tsv"}, &list);
  lun.verb("show", "Shows the descriptions of LUNs", example, &show)
      .objects("LUN_ID", a.pool.names, "The LUNs");
  lun.verb("number", "Shows the numbers of LUNs on their target", example, &show_number)
      .objects("LUN_ID", a.pool.names, "The LUNs");
  lun.verb("serial", "Shows the SCSI serial numbers of LUNs", example, &show_serial)
      .objects("LUN_ID", a.pool.names, "The LUNs");

  Verb exporting =
      lun.verb("export", "Exports LUNs to this host",
               {"POOL_UUID LUN_ID", "POOL_UUID LUN_ID --type iSCSI --target iqn.2026-11.lab:t1"},
               &export_each)
          .objects("LUN_ID", a.pool.names, "The LUNs");
  add_export(exporting, a.pool);
  lun.verb("unexport", "Withdraws the exports of LUNs", example, &unexport_each)
      .objects("LUN_ID", a.pool.names, "The LUNs")
      .flag("--force", a.force, "Even if one is in use");
  Verb allowing =
      lun.verb("allow", "Grants this host access to exported LUNs",
               {"POOL_UUID LUN_ID", "POOL_UUID LUN_ID --initiator iqn.2026-11.lab:host2"},
               &allow_each)
          .objects("LUN_ID", a.pool.names, "The LUNs");
  add_initiators(allowing, a.pool)
      .option("--type", a.pool.type, "iSCSI|FC", "SCSI transport (the pool's)");
  lun.verb("rollback", "Takes LUNs back to their newest snapshot", example, &rollback_each)
      .objects("LUN_ID", a.pool.names, "The LUNs")
      .flag("--force", a.force, "Even if one is in use")
      .yes(a.pool.yes);
  lun.verb("delete", "Deletes LUNs", {"POOL_UUID LUN_ID", "--yes --force POOL_UUID - < luns.txt"},
           &delete_each)
      .objects("LUN_ID", a.pool.names, "The LUNs")
      .flag("--force", a.force, "Even if one is exported")
      .yes(a.pool.yes);
}

}  // namespace zqpool::cli
