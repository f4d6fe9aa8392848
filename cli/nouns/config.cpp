#include "cli/command/command_line.h"

namespace zqpool::cli {

namespace {

Exit_Code show(Session& session) {
  std::vector<Record> records;
  for (const Setting& setting : all_settings()) {
    const Setting_Value& value = session.settings()[setting.id];
    records.push_back(
        {setting.key,
         {{"setting", setting.key},
          {"source", value.given ? json_spirit::Value(value.source) : json_spirit::Value()},
          {"value", value.given ? json_spirit::Value(value.text) : json_spirit::Value()}}});
  }
  session.print(records);
  return Exit_Code::done;
}

}  // namespace

void add_config(Command_Line& commands) {
  CLI::App& config = commands.noun("config", "The settings of this program");
  commands.verb(config, "show", "Shows each setting in force and where it came from",
                {"zqpool config show", "zqpool config show --output json"}, &show);
}

}  // namespace zqpool::cli
