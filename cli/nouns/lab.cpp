#include <memory>
#include <optional>

#include "cli/command/raw_request.h"
#include "cli/nouns/nouns.h"
#include "cli/support/duration.h"
#include "cli/support/json_file.h"
#include "cli/support/size.h"

namespace zqpool::cli {

namespace {

using json_spirit::Value;

constexpr const char* faults_path = "/zq/lab/faults";
constexpr const char* scenario_path = "/zq/lab/scenario";

/// Makes one exchange and prints the object that is its answer. With `list` only the objects of
/// that member are printed, each named by its member `name`.
Exit_Code ask(Command_Context& context, Effect effect, HTTP_Method method, const char* path,
              const Query& query, const Value* body, const std::string& list = "",
              const std::string& name = "") {
  Value answer;
  const Outcome outcome = exchange(context, effect, method, path, query, body, answer);
  if (!outcome.done() || answer.type() != json_spirit::obj_type) return context.report(outcome);
  Object& object = answer.get_obj();
  if (list.empty()) {
    context.print({{"lab", std::move(object)}});
    return Exit_Code::done;
  }
  Array* const records = json_spirit::object_get_array(object, list);
  return records == nullptr ? Exit_Code::done : context.print_list(*records, name);
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

Exit_Code add_fault(Command_Context& context, const Fault_Arguments& arguments) {
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
  return ask(context, Effect::changes, HTTP_METHOD_POST, faults_path, {}, &body);
}

struct Scenario_Arguments {
  std::string file;
  bool merge = false;
};

Exit_Code load_scenario(Command_Context& context, const Scenario_Arguments& arguments) {
  const Value document = read_document(arguments.file);
  return ask(context, Effect::changes, HTTP_METHOD_POST, scenario_path,
             {{"mode", arguments.merge ? "merge" : "replace"}}, &document);
}

Exit_Code list_faults(Command_Context& context) {
  return ask(context, Effect::reads, HTTP_METHOD_GET, faults_path, {}, nullptr, "faults", "id");
}

Exit_Code clear_faults(Command_Context& context) {
  return ask(context, Effect::changes, HTTP_METHOD_DELETE, faults_path, {}, nullptr);
}

struct Guest_Arguments {
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

Exit_Code write(Command_Context& context, const Guest_Arguments& arguments) {
  const int ways = !arguments.lun.empty() + !arguments.name.empty() + !arguments.initiator.empty();
  if (ways != 1 || arguments.pool.empty() == arguments.initiator.empty()) {
    throw Usage_Error(
        "give POOL_UUID with LUN_ID or --name, or --initiator with --target "
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
  return ask(context, Effect::changes, HTTP_METHOD_POST, "/zq/lab/write", {}, &value);
}

Exit_Code show_visible(Command_Context& context, const Guest_Arguments& arguments) {
  return ask(context, Effect::reads, HTTP_METHOD_GET, "/zq/lab/visible",
             {{"initiator", arguments.initiator}}, nullptr, "luns", "lun_id");
}

void add_fault_verb(Noun& lab) {
  const auto arguments = std::make_shared<Fault_Arguments>();
  Fault_Arguments& a = *arguments;
  lab.verb("fault", "Makes the service misbehave on requests to a path",
           {"status --status 503 --times 2 --path /zq/r/storage/catalog/pool",
            "delay --delay 2s --path '/zq/r/*' --every 10",
            "reset_after_commit --method PUT --path '/zq/r/*'"},
           &add_fault, arguments)
      .option(
          "KIND", a.kind,
          "status|delay|reset_before_commit|reset_after_commit|cut|drip|garbage|huge|wrong_type",
          "Kind of fault")
      .required()
      .option("--path", a.path, "PATH", "Path of the requests, or a prefix followed by *")
      .required()
      .option("--method", a.method, "GET|POST|PUT|DELETE", "Only requests of this method")
      .option("--query", a.query, "TEXT", "Only requests whose query contains this")
      .option("--times", a.times, "N", "At most this often")
      .option("--skip", a.skip, "N", "Leave out this many requests first")
      .option("--every", a.every, "N", "Only every Nth request")
      .option("--probability", a.probability, "P", "Only with this probability, from 0 to 1")
      .option("--seed", a.seed, "N", "Seed of probability and garbage")
      .option("--status", a.status, "N", "Status of the answer (status)")
      .option("--body", a.body, "TEXT", "Body of the answer (status)")
      .option("--delay", a.delay, "DURATION", "Wait this long, with any kind")
      .flag("--delay-after-commit", a.delay_after_commit, "Wait after the operation, not before")
      .option("--bytes", a.bytes, "SIZE", "Number of bytes (cut, drip, garbage, huge)")
      .flag("--whole-answer", a.whole_answer,
            "Replace the whole answer, not only its body (garbage)")
      .option("--interval", a.interval, "DURATION", "Time between pieces (drip)")
      .option("--member", a.member, "NAME", "Member of the answer (wrong_type)")
      .option("--type", a.type, "string|number|boolean|null|array|object",
              "Its new JSON type (wrong_type)");
}

void add_scenario_verb(Noun& lab) {
  const auto arguments = std::make_shared<Scenario_Arguments>();
  lab.verb("scenario", "Replaces the state of the service with a scenario",
           {"scenario.json", "--merge - < more.json"}, &load_scenario, arguments)
      .argument("FILE", arguments->file, "The scenario, JSON; - reads standard input")
      .flag("--merge", arguments->merge, "Keep what is not in the file");
}

void add_guest_verbs(Noun& lab) {
  const auto arguments = std::make_shared<Guest_Arguments>();
  Guest_Arguments& a = *arguments;
  lab.verb("write", "Writes to a LUN or a mounted filesystem as its user would",
           {"POOL_UUID LUN_ID --offset 1GiB --length 64MiB",
            "POOL_UUID --name daily --length 64MiB", "POOL_UUID LUN_ID --length 4KiB --discard",
            "--initiator iqn.2026-11.lab:host1 --target TARGET --lun-num 0 --length 4KiB"},
           &write, arguments)
      .option("POOL_UUID", a.pool, "", "The pool")
      .option("LUN_ID", a.lun, "", "The LUN")
      .option("--name", a.name, "NAME", "The filesystem")
      .option("--target", a.target, "NAME", "On this target")
      .option("--lun-num", a.lun_num, "N", "The LUN with this number")
      .option("--initiator", a.initiator, "NAME", "Write as this initiator")
      .needs({"--target", "--lun-num"})
      .option("--offset", a.offset, "SIZE", "Where to start (0)")
      .option("--length", a.length, "SIZE", "How much to write")
      .required()
      .flag("--discard", a.discard, "Discard blocks instead of writing");
  lab.verb("visible", "Lists the LUNs and snapshots that an initiator sees",
           {"iqn.2026-11.lab:host1"}, &show_visible, arguments)
      .argument("INITIATOR", a.initiator, "Its name");
}

}  // namespace

void add_lab(Command_Line& commands) {
  Noun lab = commands.noun("lab", "Trials with a service that was started with --lab");
  add_scenario_verb(lab);
  add_fault_verb(lab);
  lab.verb("faults", "Lists the scripted faults and how often each one happened", {"", "-o tsv"},
           &list_faults);
  lab.verb("clear", "Removes all scripted faults", {""}, &clear_faults);
  add_guest_verbs(lab);
}

}  // namespace zqpool::cli
