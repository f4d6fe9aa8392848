#include "cli/nouns/nouns.h"

namespace zqpool::cli {

namespace {

Exit_Code show(Command_Context& context) {
  std::vector<Record> records;
  for (const Setting& setting : all_settings()) {
    const Setting_Value& value = context.settings()[setting.id];
    records.push_back(
        {setting.key,
         {{"setting", setting.key},
          {"source", value.given ? json_spirit::Value(value.source) : json_spirit::Value()},
          {"value", value.given ? json_spirit::Value(value.text) : json_spirit::Value()}}});
  }
  context.print(records);
  return Exit_Code::done;
}

}  // namespace

void add_config(Command_Line& commands) {
  commands.noun("config", "The settings of this program")
      .verb("show", "Shows each setting in force and where it came from", {"", "--output json"},
            &show);
}

}  // namespace zqpool::cli
