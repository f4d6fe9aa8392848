#include "cli/command/command_line.h"
#include "utils/pool/utils.h"

namespace zqpool::cli {

namespace {

Exit_Code show(Session& session) {
  return session.show({session.target().endpoint.text()}, [&](const Target& target,
                                                              const std::string&, Object& record) {
    return session.call({Effect::reads}, [&] {
      const auto& [ssl, host, port] = target.endpoint;
      return get_storaged_space_info(host, port, ssl, target.access_key, record);
    });
  });
}

}  // namespace

void add_space(Command_Line& commands) {
  CLI::App& space = commands.noun("space", "The space of a storage server");
  commands.verb(space, "show", "Shows how much the server's data root holds and has left",
                {"zqpool space show", "zqpool space show --endpoint https://store1:8443 -o json"},
                &show);
  commands.alone(space, &show);
}

}  // namespace zqpool::cli
