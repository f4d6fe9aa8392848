#include "cli/nouns/nouns.h"
#include "cli/nouns/snapshot_verbs.h"

namespace zqpool::cli {

namespace {

using Pool = SCSI_Target_Manager;

constexpr Snapshot_Words words = {"/zq/r/scsipool/snapshot",
                                  "lun_id",
                                  "LUN",
                                  "LUN_ID",
                                  "LUN_ID",
                                  "--delete-empty-lun",
                                  "",  // nothing is logged
                                  ": say which one with --lun-num",
                                  ", and a snapshot with several cannot be compared"};

struct LUN_Snapshots {
  using Manager = Pool;

  static bool create(const Pool& pool, const std::string& lun_id, std::string& snapshot_id,
                     bool recyclable) {
    return pool.create_snapshot(lun_id, snapshot_id, recyclable);
  }
  static bool describe(const Pool& pool, const std::string& id, Object& info, int lun_num) {
    return pool.get_snapshot_info(id, info, lun_num);
  }
  static bool previous(const Pool& pool, const std::string& id, Object& info) {
    return pool.get_previous_snapshot(id, info);
  }
  static bool size(const Pool& pool, const std::string& id, std::uint64_t& size) {
    ACE_UINT64 bytes = size;
    const bool good = pool.cal_snapshot_size(id, bytes, true);
    size = bytes;
    return good;
  }
  static bool remove(const Pool& pool, const std::string& id, bool delete_empty_lun) {
    return pool.delete_snapshot(id, delete_empty_lun);
  }
};

Exit_Code share(Command_Context& context, const Snapshot_Arguments& arguments) {
  return show_each<Pool>(context, arguments.pool,
                         [&](Pool& pool, const std::string& id, Object& record) {
                           int lun_num = 0;
                           Outcome outcome = context.call(change_of_access(), [&] {
                             return pool.share_snapshot(id, arguments.pool.type_or_null(),
                                                        arguments.pool.target_or_null(), lun_num);
                           });
                           if (outcome.done()) record = {{"snapshot_id", id}, {"lun_num", lun_num}};
                           return outcome;
                         });
}

Exit_Code unshare(Command_Context& context, const Snapshot_Arguments& arguments) {
  return change_each<Pool>(context, arguments.pool, [&](Pool& pool, const std::string& id) {
    return pool.unexport_snapshot(id, arguments.lun_num);
  });
}

Exit_Code allow(Command_Context& context, const Snapshot_Arguments& arguments) {
  return change_each<Pool>(context, arguments.pool, [&](Pool& pool, const std::string& id) {
    return pool.add_snapshot_acls(id, arguments.lun_num);
  });
}

}  // namespace

void add_snapshot(Command_Line& commands) {
  Snapshot_Noun noun(commands.noun("snapshot", "Snapshots of LUNs"), Snapshot_Arguments{words});
  add_snapshot_verbs<LUN_Snapshots>(noun);
  Snapshot_Arguments& a = noun.arguments();
  const char* const number = "The number under which it is shared";
  Verb sharing =
      noun.verb("share", "Exports snapshots to this host", {"POOL_UUID SNAPSHOT_ID"}, &share)
          .objects("SNAPSHOT_ID", a.pool.names, "The snapshots");
  add_export(sharing, a.pool);
  Verb unsharing = noun.verb("unshare", "Withdraws the share of a snapshot",
                             {"POOL_UUID SNAPSHOT_ID --lun-num 3"}, &unshare)
                       .objects("SNAPSHOT_ID", a.pool.names, "The snapshots");
  add_lun_num(unsharing, a, number).required();
  Verb allowing = noun.verb("allow", "Grants this host access to a shared snapshot",
                            {"POOL_UUID SNAPSHOT_ID --lun-num 3"}, &allow)
                      .objects("SNAPSHOT_ID", a.pool.names, "The snapshots");
  add_initiators(add_lun_num(allowing, a, number).required(), a.pool);
}

}  // namespace zqpool::cli
