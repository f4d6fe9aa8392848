#include "cli/nouns/nouns.h"
#include "utils/pool/utils.h"

namespace zqpool::cli {

namespace {

Exit_Code show(Command_Context& context) {
  const Target& at = context.target();
  return context.show({at.url}, [&](const std::string&, Object& record) {
    return context.call({Effect::reads}, [&] {
      return get_storaged_space_info(at.host, at.port, at.ssl, at.access_key, record);
    });
  });
}

}  // namespace

void add_space(Command_Line& commands) {
  Noun space = commands.noun("space", "The space of a storage server");
  space.verb("show", "Shows the size and free space of the server's data root",
             {"", "--endpoint https://store1:8443 -o json"}, &show);
  space.alone(&show);
}

}  // namespace zqpool::cli
