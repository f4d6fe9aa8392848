#include "cli/nouns/pool_verbs.h"

#include "cli/command/batch.h"
#include "cli/command/confirm.h"

namespace zqpool::cli {

Verb& add_initiators(Verb& verb, Pool_Arguments& pool) {
  return verb.option("--initiator", pool.initiators, "NAME",
                     "Grant access to these initiators instead of this host's");
}

Verb& add_export(Verb& verb, Pool_Arguments& pool) {
  return add_initiators(verb, pool)
      .option("--type", pool.type, "iSCSI|FC", "SCSI transport (the pool's)")
      .option("--target", pool.target, "NAME", "Name of the target (the pool's)")
      .needs({"--type"});
}

Call_Policy change_of_access() {
  return {Effect::changes,
          {{"Failed to get initiator name.", Exit_Code::failed,
            "this host has no SCSI initiator, nothing was sent; name one with "
            "--initiator"}}};
}

void check_names(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (name.find_first_of("&=+%") != std::string::npos) {
      throw Usage_Error("'" + name + "': a name or identifier must not contain & = + %");
    }
  }
}

std::vector<std::string> expand_names(const std::vector<std::string>& arguments) {
  std::vector<std::string> names = expand_objects(arguments);
  check_names(names);
  return names;
}

std::vector<std::string> names_to_change(const Command_Context& context, const Pool_Arguments& pool,
                                         const char* destroying, const char* kind) {
  std::vector<std::string> names = expand_names(pool.names);
  if (destroying != nullptr) {
    confirm(pool.yes || context.is_dry_run(), destroying, names, kind);
  }
  return names;
}

}  // namespace zqpool::cli
