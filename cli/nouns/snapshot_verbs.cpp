#include "cli/nouns/snapshot_verbs.h"

#include <limits>

namespace zqpool::cli {

Outcome list_snapshots(Command_Context& context, const Snapshot_Arguments& arguments,
                       Array& snapshots) {
  check_names({arguments.pool.uuid, arguments.parent});
  return list_objects(
      context, arguments.words.path,
      {{"pool_id", arguments.pool.uuid}, {arguments.words.parent, arguments.parent}}, snapshots);
}

Exit_Code show_list(Command_Context& context, const Snapshot_Arguments& arguments) {
  Array snapshots;
  const Outcome outcome = list_snapshots(context, arguments, snapshots);
  return outcome.done() ? context.print_list(snapshots, "snapshot_id") : context.report(outcome);
}

Outcome explain_missing(Command_Context& context, const Snapshot_Arguments& arguments,
                        const std::string& snapshot_id, const char* if_several) {
  Array found;
  Outcome outcome =
      list_objects(context, arguments.words.path,
                   {{"pool_id", arguments.pool.uuid}, {"snapshot_id", snapshot_id}}, found);
  if (!outcome.done()) return outcome;
  if (found.empty()) return {Exit_Code::not_found, "not found: there is no such snapshot"};
  if (arguments.lun_num >= 0) {
    return {Exit_Code::not_found,
            "not found: it is not shared under number " + std::to_string(arguments.lun_num)};
  }
  if (found.size() > 1 && if_several != nullptr) {
    return {Exit_Code::conflict,
            "it is shared under " + std::to_string(found.size()) + " numbers" + if_several};
  }
  return {Exit_Code::failed, "the answer is unusable"};
}

Verb& add_lun_num(Verb& verb, Snapshot_Arguments& arguments, const char* help) {
  return verb.option("--lun-num", arguments.lun_num, "N", help)
      .range(0, std::numeric_limits<int>::max());
}

}  // namespace zqpool::cli
