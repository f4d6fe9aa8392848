#include <memory>

#include "cli/command_line.h"
#include "utils/pool/pool_metadata_manager.h"

namespace zqpool::cli {

void add_pool(Command_Line& commands) {
  CLI::App& pool = commands.noun("pool", "Pools of the storage catalog");

  const auto uuids = std::make_shared<std::vector<std::string>>();
  commands
      .verb(pool, "show", "Shows the catalog's record of pools",
            {"zqpool pool show 5f0c8a52-3c1b-4c3f-9a34-6f6a2d1f0b11",
             "zqpool pool show --output json --jobs 16 - < uuids.txt"},
            [uuids](Session& session) {
              return session.show(*uuids, [&session](const Target& target, const std::string& uuid,
                                                     Object& record) {
                return session.call(Effect::reads, "Failed to get pool '", [&] {
                  const auto& [ssl, host, port] = target.endpoint;
                  return Pool_Metadata_Manager::get_pool_info(host, port, ssl, target.access_key,
                                                              uuid, record, target.retry_seconds);
                });
              });
            })
      .add_option("UUID", *uuids, "Pools to show; - reads them from standard input, one a line")
      ->type_name("")
      ->required();
}

}  // namespace zqpool::cli
