#include <algorithm>
#include <utility>

#include "cli/command/batch.h"
#include "cli/command/command_line.h"
#include "cli/support/json_file.h"
#include "utils/pool/catalog_agent.h"
#include "utils/pool/utils.h"

namespace zqpool::cli {

namespace {

Outcome parse(const std::string& text, Object& record) {
  Catalog_Agent agent;
  if (!agent.parse(text)) {
    return {Exit_Code::failed, "it is no module identity, FEATURE.TYPE.SYSTEM"};
  }
  record = {{"identity", agent.generate()},
            {"feature", agent.featrue},
            {"type", agent.type},
            {"system", agent.system}};
  return {};
}

Exit_Code parse_each(Session& session, const std::vector<std::string>& identities) {
  return session.derive(expand_objects(identities), &parse);
}

struct Is_CD_Arguments {
  std::vector<std::string> identities;
  std::string catalog;
};

Exit_Code is_cd(Session& session, const Is_CD_Arguments& arguments) {
  if (arguments.identities.empty() && arguments.catalog.empty()) {
    throw Usage_Error("which module? Give an identity, --catalog or both");
  }
  if (arguments.catalog == "-" &&
      std::find(arguments.identities.begin(), arguments.identities.end(), "-") !=
          arguments.identities.end()) {
    throw Usage_Error("standard input can be read once only: one '-'");
  }
  Object catalog;
  if (!arguments.catalog.empty()) {
    json_spirit::Value document = read_document(arguments.catalog);
    if (document.type() != json_spirit::obj_type) {
      throw Usage_Error(arguments.catalog + " is no record of a catalog");
    }
    catalog = std::move(document.get_obj());
  }
  if (!arguments.identities.empty()) {
    return session.derive(
        expand_objects(arguments.identities), [&](const std::string& identity, Object& record) {
          record = {{"identity", identity}, {"is_cd", is_cd_modules(catalog, &identity)}};
          return Outcome();
        });
  }
  const std::string* const identity = json_spirit::object_get_str(catalog, "agent");
  session.print(
      {{arguments.catalog,
        {{"identity", identity != nullptr ? json_spirit::Value(*identity) : json_spirit::Value()},
         {"is_cd", is_cd_modules(catalog, nullptr)}}}});
  return Exit_Code::done;
}

}  // namespace

void add_module(Command_Line& commands) {
  CLI::App& module = commands.noun("module", "Identities of agent modules; asks no service");

  auto [parse_verb, identities] = commands.verb<std::vector<std::string>>(
      module, "parse", "Takes module identities apart",
      {"zqpool module parse File.CDP.Linux", "zqpool module parse -o tsv - < agents.txt"},
      &parse_each);
  add_objects(parse_verb, "IDENTITY", identities, "FEATURE.TYPE.SYSTEM");

  auto [verb, arguments] = commands.verb<Is_CD_Arguments>(
      module, "is-cd", "Tells whether a storage catalog belongs to one of the cd modules",
      {"zqpool module is-cd file.cdp.linux", "zqpool module is-cd --catalog record.json",
       "zqpool module is-cd --catalog record.json db.os.windows-x86"},
      &is_cd);
  verb.add_option("IDENTITY", arguments.identities,
                  "Judge this identity, not the record's; - reads them from standard input")
      ->type_name("");
  verb.add_option("--catalog", arguments.catalog,
                  "The storage catalog's record, JSON; - reads standard input")
      ->type_name("FILE");
}

}  // namespace zqpool::cli
