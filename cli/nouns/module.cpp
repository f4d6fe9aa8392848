#include <algorithm>
#include <memory>
#include <utility>

#include "cli/command/batch.h"
#include "cli/nouns/nouns.h"
#include "cli/support/json_file.h"
#include "utils/pool/catalog_agent.h"
#include "utils/pool/utils.h"

namespace zqpool::cli {

namespace {

Outcome parse(const std::string& text, Object& record) {
  Catalog_Agent agent;
  if (!agent.parse(text)) {
    return {Exit_Code::failed, "it is not a module identity, FEATURE.TYPE.SYSTEM"};
  }
  record = {{"identity", agent.generate()},
            {"feature", agent.featrue},
            {"type", agent.type},
            {"system", agent.system}};
  return {};
}

struct Arguments {
  std::vector<std::string> identities;
  std::string catalog;
};

Exit_Code parse_each(Command_Context& context, const Arguments& arguments) {
  return context.derive(expand_objects(arguments.identities), &parse);
}

Exit_Code is_cd(Command_Context& context, const Arguments& arguments) {
  if (arguments.identities.empty() && arguments.catalog.empty()) {
    throw Usage_Error("give an identity, --catalog or both");
  }
  if (arguments.catalog == "-" &&
      std::find(arguments.identities.begin(), arguments.identities.end(), "-") !=
          arguments.identities.end()) {
    throw Usage_Error("standard input can be read only once: give one '-'");
  }
  Object catalog;
  if (!arguments.catalog.empty()) {
    json_spirit::Value document = read_document(arguments.catalog);
    if (document.type() != json_spirit::obj_type) {
      throw Usage_Error(arguments.catalog + " is not a record of a catalog");
    }
    catalog = std::move(document.get_obj());
  }
  if (!arguments.identities.empty()) {
    return context.derive(
        expand_objects(arguments.identities), [&](const std::string& identity, Object& record) {
          record = {{"identity", identity}, {"is_cd", is_cd_modules(catalog, &identity)}};
          return Outcome();
        });
  }
  const std::string* const identity = json_spirit::object_get_str(catalog, "agent");
  context.print(
      {{arguments.catalog,
        {{"identity", identity != nullptr ? json_spirit::Value(*identity) : json_spirit::Value()},
         {"is_cd", is_cd_modules(catalog, nullptr)}}}});
  return Exit_Code::done;
}

}  // namespace

void add_module(Command_Line& commands) {
  const auto arguments = std::make_shared<Arguments>();
  Arguments& a = *arguments;
  Noun module = commands.noun("module", "Identities of agent modules; needs no service");
  module
      .verb("parse", "Shows the parts of module identities",
            {"File.CDP.Linux", "-o tsv - < agents.txt"}, &parse_each, arguments)
      .objects("IDENTITY", a.identities, "FEATURE.TYPE.SYSTEM");
  module
      .verb("is-cd", "Tells whether a storage catalog belongs to one of the cd modules",
            {"file.cdp.linux", "--catalog record.json", "--catalog record.json db.os.windows-x86"},
            &is_cd, arguments)
      .option("IDENTITY", a.identities, "",
              "Judge this identity instead of the record's; - reads them from standard input")
      .option("--catalog", a.catalog, "FILE",
              "The storage catalog's record, JSON; - reads standard input");
}

}  // namespace zqpool::cli
