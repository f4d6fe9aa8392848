#include <optional>

#include "cli/command/command_line.h"
#include "cli/command/raw_request.h"
#include "cli/support/duration.h"
#include "cli/support/json_file.h"
#include "cli/support/size.h"

namespace zqpool::cli {

namespace {

using json_spirit::Value;

constexpr const char* faults_path = "/zq/lab/faults";
constexpr const char* scenario_path = "/zq/lab/scenario";

/// Makes one exchange and prints its answer when that is an object; of one that has a list `list`,
/// the objects of that, each under its `name`.
Exit_Code ask(Session& session, Effect effect, HTTP_Method method, const char* path,
              const Query& query, const Value* body, const std::string& list = "",
              const std::string& name = "") {
  Value answer;
  const Outcome outcome = exchange(session, effect, method, path, query, body, answer);
  if (!outcome.done() || answer.type() != json_spirit::obj_type) return session.report(outcome);
  Object& object = answer.get_obj();
  if (list.empty()) {
    session.print({{"lab", std::move(object)}});
    return Exit_Code::done;
  }
  Array* const records = json_spirit::object_get_array(object, list);
  return records == nullptr ? Exit_Code::done : session.print_list(*records, name);
}

struct Fault_Arguments {
  std::string kind;
  std::string path;
  std::string method;
  std::string query;
  std::optional<std::int64_t> times, skip, every, seed, status;
  std::optional<double> probability;
  bool delay_after_commit = false;
  bool whole_answer = false;
  std::string delay, interval;
  std::string bytes;
  std::string body, member, type;
};

Value milliseconds(const std::string& text) {
  return std::int64_t{parse_duration(text).count()};
}

Exit_Code add_fault(Session& session, const Fault_Arguments& arguments) {
  Object fault = {{"kind", arguments.kind}, {"path", arguments.path}};
  const auto add_text = [&fault](const char* key, const std::string& text) {
    if (!text.empty()) fault[key] = text;
  };
  const auto add_value = [&fault](const char* key, const auto& value) {
    if (value) fault[key] = *value;
  };
  add_text("method", arguments.method);
  add_text("query", arguments.query);
  add_text("body", arguments.body);
  add_text("member", arguments.member);
  add_text("type", arguments.type);
  add_value("times", arguments.times);
  add_value("skip", arguments.skip);
  add_value("every", arguments.every);
  add_value("seed", arguments.seed);
  add_value("status", arguments.status);
  add_value("probability", arguments.probability);
  if (!arguments.delay.empty()) fault["delay_ms"] = milliseconds(arguments.delay);
  if (!arguments.interval.empty()) fault["interval_ms"] = milliseconds(arguments.interval);
  if (!arguments.bytes.empty()) fault["bytes"] = parse_size(arguments.bytes);
  if (arguments.delay_after_commit) fault["delay_after_commit"] = true;
  if (arguments.whole_answer) fault["whole_answer"] = true;
  const Value body = Object{{"faults", Array{std::move(fault)}}};
  return ask(session, Effect::changes, HTTP_METHOD_POST, faults_path, {}, &body);
}

void add_fault_verb(Command_Line& commands, CLI::App& lab) {
  auto [verb_added, arguments] = commands.verb<Fault_Arguments>(
      lab, "fault", "Makes the service misbehave on the requests of a path",
      {"zqpool lab fault status --status 503 --times 2 --path /zq/r/storage/catalog/pool",
       "zqpool lab fault delay --delay 2s --path '/zq/r/*' --every 10",
       "zqpool lab fault reset_after_commit --method PUT --path '/zq/r/*'"},
      &add_fault);
  CLI::App& verb = verb_added;
  const auto text = [&verb](const char* name, std::string& value, const char* type,
                            const char* help) {
    return verb.add_option(name, value, help)->type_name(type);
  };
  const auto number = [&verb](const char* name, std::optional<std::int64_t>& value,
                              const char* help) {
    verb.add_option(name, value, help)->type_name("N");
  };
  text("KIND", arguments.kind, "",
       "status, delay, reset_before_commit, reset_after_commit, cut, drip, garbage, huge or "
       "wrong_type")
      ->required();
  text("--path", arguments.path, "PATH", "Which path, or its beginning and *")->required();
  text("--method", arguments.method, "METHOD", "Only requests of this method");
  text("--query", arguments.query, "TEXT", "Only requests with this in their query");
  number("--times", arguments.times, "How often at most");
  number("--skip", arguments.skip, "Spare so many requests first");
  number("--every", arguments.every, "Only each Nth request");
  verb.add_option("--probability", arguments.probability, "By chance, from 0 to 1")->type_name("P");
  number("--seed", arguments.seed, "Which chance, which garbage");
  number("--status", arguments.status, "Status of the answer (status)");
  text("--body", arguments.body, "TEXT", "Body of the answer (status)");
  text("--delay", arguments.delay, "DURATION", "Wait so long, with any kind");
  verb.add_flag("--delay-after-commit", arguments.delay_after_commit,
                "Wait after the operation, not before");
  text("--bytes", arguments.bytes, "SIZE", "How much (cut, drip, garbage, huge)");
  verb.add_flag("--whole-answer", arguments.whole_answer,
                "Not only the body of the answer (garbage)");
  text("--interval", arguments.interval, "DURATION", "Time between pieces (drip)");
  text("--member", arguments.member, "NAME", "Member of the answer (wrong_type)");
  text("--type", arguments.type, "TYPE", "JSON type that it gets (wrong_type)");
}

struct Scenario_Arguments {
  std::string file;
  bool merge = false;
};

Exit_Code load_scenario(Session& session, const Scenario_Arguments& arguments) {
  const Value document = read_document(arguments.file);
  return ask(session, Effect::changes, HTTP_METHOD_POST, scenario_path,
             {{"mode", arguments.merge ? "merge" : "replace"}}, &document);
}

void add_scenario_verb(Command_Line& commands, CLI::App& lab) {
  auto [verb, arguments] = commands.verb<Scenario_Arguments>(
      lab, "scenario",
      "Puts what a scenario file describes into the service, in place of what it holds",
      {"zqpool lab scenario scenario.json", "zqpool lab scenario --merge - < more.json"},
      &load_scenario);
  add_argument(verb, "FILE", arguments.file, "The scenario, JSON; - reads standard input");
  verb.add_flag("--merge", arguments.merge,
                "Keep what the service holds and the file does not name");
}

void add_list_verb(Command_Line& commands, CLI::App& lab) {
  commands.verb(lab, "faults", "Lists the scripted faults and how often each one happened",
                {"zqpool lab faults", "zqpool lab faults -o tsv"}, [](Session& session) {
                  return ask(session, Effect::reads, HTTP_METHOD_GET, faults_path, {}, nullptr,
                             "faults", "id");
                });
}

void add_clear_verb(Command_Line& commands, CLI::App& lab) {
  commands.verb(
      lab, "clear", "Removes all scripted faults", {"zqpool lab clear"}, [](Session& session) {
        return ask(session, Effect::changes, HTTP_METHOD_DELETE, faults_path, {}, nullptr);
      });
}

struct Write_Arguments {
  std::string pool;
  std::string lun;
  std::string name;
  std::string initiator;
  std::string target;
  std::optional<std::int64_t> lun_num;
  std::string offset = "0";
  std::string length;
  bool discard = false;
};

Exit_Code write(Session& session, const Write_Arguments& arguments) {
  const int ways = !arguments.lun.empty() + !arguments.name.empty() + !arguments.initiator.empty();
  if (ways != 1 || arguments.pool.empty() == arguments.initiator.empty()) {
    throw Usage_Error(
        "what is written to? Give POOL_UUID with LUN_ID or --name, or --initiator with --target "
        "and --lun-num");
  }
  Object body = {{"offset", parse_size(arguments.offset)},
                 {"length", parse_size(arguments.length)}};
  if (!arguments.initiator.empty()) {
    body["initiator"] = arguments.initiator;
    body["target"] = arguments.target;
    body["lun_num"] = *arguments.lun_num;
  } else {
    body["pool_id"] = arguments.pool;
    body[arguments.lun.empty() ? "name" : "lun_id"] =
        arguments.lun.empty() ? arguments.name : arguments.lun;
  }
  if (arguments.discard) body["discard"] = true;
  const Value value = std::move(body);
  return ask(session, Effect::changes, HTTP_METHOD_POST, "/zq/lab/write", {}, &value);
}

void add_write_verb(Command_Line& commands, CLI::App& lab) {
  auto [verb, arguments] = commands.verb<Write_Arguments>(
      lab, "write", "Writes to a LUN or a mounted filesystem as its user would",
      {"zqpool lab write POOL_UUID LUN_ID --offset 1GiB --length 64MiB",
       "zqpool lab write POOL_UUID --name daily --length 64MiB",
       "zqpool lab write POOL_UUID LUN_ID --length 4KiB --discard",
       "zqpool lab write --initiator iqn.2026-11.lab:host1 --target TARGET --lun-num 0 --length "
       "4KiB"},
      &write);
  verb.add_option("POOL_UUID", arguments.pool, "The pool")->type_name("");
  verb.add_option("LUN_ID", arguments.lun, "The LUN")->type_name("");
  verb.add_option("--name", arguments.name, "The filesystem")->type_name("NAME");
  CLI::Option* const target = verb.add_option("--target", arguments.target, "On this target");
  target->type_name("NAME");
  CLI::Option* const number =
      verb.add_option("--lun-num", arguments.lun_num, "The LUN with this number");
  number->type_name("N");
  verb.add_option("--initiator", arguments.initiator, "What this initiator sees")
      ->type_name("NAME")
      ->needs(target)
      ->needs(number);
  verb.add_option("--offset", arguments.offset, "From here on (0)")->type_name("SIZE");
  verb.add_option("--length", arguments.length, "So much")->type_name("SIZE")->required();
  verb.add_flag("--discard", arguments.discard, "Discard instead");
}

Exit_Code show_visible(Session& session, const std::string& initiator) {
  return ask(session, Effect::reads, HTTP_METHOD_GET, "/zq/lab/visible", {{"initiator", initiator}},
             nullptr, "luns", "lun_id");
}

void add_visible_verb(Command_Line& commands, CLI::App& lab) {
  auto [verb, initiator] = commands.verb<std::string>(
      lab, "visible", "Lists the LUNs and snapshots that an initiator sees",
      {"zqpool lab visible iqn.2026-11.lab:host1"}, &show_visible);
  add_argument(verb, "INITIATOR", initiator, "Its name");
}

}  // namespace

void add_lab(Command_Line& commands) {
  CLI::App& lab = commands.noun("lab", "Trials with a service that was started with --lab");
  add_scenario_verb(commands, lab);
  add_fault_verb(commands, lab);
  add_list_verb(commands, lab);
  add_clear_verb(commands, lab);
  add_write_verb(commands, lab);
  add_visible_verb(commands, lab);
}

}  // namespace zqpool::cli
