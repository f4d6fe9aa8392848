#include "cli/nouns/pool_verbs.h"

#include "cli/command/batch.h"
#include "cli/command/command_line.h"

namespace zqpool::cli {

void SCSI_Pool::add_to(CLI::App& verb) {
  add_argument(verb, "POOL_UUID", uuid, "The pool");
}

void SCSI_Pool::add_access_to(CLI::App& verb) {
  verb.add_option("--initiator", initiators,
                  "Let in these initiators, not those that this host has")
      ->type_name("NAME");
}

void SCSI_Pool::add_way_to(CLI::App& verb) {
  add_access_to(verb);
  CLI::Option* const transport =
      verb.add_option("--type", type, "SCSI transport, such as iSCSI (the pool's)");
  transport->type_name("TYPE");
  verb.add_option("--target", target, "Name of the target (the pool's)")
      ->type_name("NAME")
      ->needs(transport);
}

Outcome SCSI_Pool::call(Session& session, const Target& service, const Way& way,
                        const Operation& operation) const {
  const auto& [ssl, host, port] = service.endpoint;
  SCSI_Target_Manager pool(host, port, ssl, service.access_key, uuid,
                           initiators.empty() ? nullptr : &initiators);
  Said said;
  Way heard = way;
  if (heard.said == nullptr) heard.said = &said;
  Outcome outcome = session.call(heard, [&] { return operation(pool); });
  if (heard.said->has_error("Failed to get initiator name.")) {
    return {Exit_Code::failed,
            "this host has no SCSI initiator to let in, nothing was sent; name one with "
            "--initiator"};
  }
  return outcome;
}

void check_names(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (name.find_first_of("&=+%") != std::string::npos) {
      throw Usage_Error("'" + name + "': a name or identifier holds none of & = + %");
    }
  }
}

std::vector<std::string> expand_names(const std::vector<std::string>& arguments) {
  std::vector<std::string> names = expand_objects(arguments);
  check_names(names);
  return names;
}

}  // namespace zqpool::cli
