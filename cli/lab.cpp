#include <memory>
#include <optional>

#include "cli/command_line.h"
#include "cli/document.h"
#include "cli/duration.h"
#include "cli/size.h"
#include "platform/http/rest_client.h"

namespace zqpool::cli {

namespace {

using json_spirit::Value;

constexpr const char* faults_path = "/zq/lab/faults";
constexpr const char* scenario_path = "/zq/lab/scenario";

/// One exchange with the lab, which is no part of what the library speaks.
Exit_Code exchange(Session& session, Effect effect, HTTP_Method method, const char* path,
                   const std::string& query, const Value* body, Value& answer) {
  const Target& target = session.target();
  const Outcome outcome = session.call(effect, nullptr, [&] {
    HTTP_Request request(method, path, false);
    request.query_string(query.c_str());
    request.headers().put(HTTP_HEAD_X_ACCESS_KEY, target.access_key.c_str(), true);
    const auto& [ssl, host, port] = target.endpoint;
    JSON_RESTful_Client client(host.c_str(), port, ssl, true);
    switch (method) {
      case HTTP_METHOD_GET:
        return client.get(request, &answer);
      case HTTP_METHOD_DELETE:
        return client.del(request);
      default:
        return client.post(request, body, &answer);
    }
  });
  session.explain(outcome);
  return outcome.code;
}

/// Prints an answer that is an object, or each object of the list that is its member `list`.
void print_answer(Session& session, Value& answer, const std::string& list = "") {
  if (answer.type() != json_spirit::obj_type) return;
  Object& object = answer.get_obj();
  if (list.empty()) return session.print({{"lab", std::move(object)}});
  std::vector<Record> records;
  if (Array* const array = json_spirit::object_get_array(object, list)) {
    for (Value& element : *array) {
      if (element.type() != json_spirit::obj_type) continue;
      std::int64_t id = 0;
      json_spirit::object_get(element.get_obj(), "id", id);
      records.push_back({std::to_string(id), std::move(element.get_obj())});
    }
  }
  session.print(records);
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
  Value answer;
  const Exit_Code code =
      exchange(session, Effect::changes, HTTP_METHOD_POST, faults_path, "", &body, answer);
  if (code == Exit_Code::done) print_answer(session, answer);
  return code;
}

void add_fault_verb(Command_Line& commands, CLI::App& lab) {
  const auto arguments = std::make_shared<Fault_Arguments>();
  CLI::App& verb = commands.verb(
      lab, "fault", "Makes the service misbehave on the requests of a path",
      {"zqpool lab fault status --status 503 --times 2 --path /zq/r/storage/catalog/pool",
       "zqpool lab fault delay --delay 2s --path '/zq/r/*' --every 10",
       "zqpool lab fault reset_after_commit --method PUT --path '/zq/r/*'"},
      [arguments](Session& session) { return add_fault(session, *arguments); });
  const auto text = [&verb](const char* name, std::string& value, const char* type,
                            const char* help) {
    return verb.add_option(name, value, help)->type_name(type);
  };
  const auto number = [&verb](const char* name, std::optional<std::int64_t>& value,
                              const char* help) {
    verb.add_option(name, value, help)->type_name("N");
  };
  text("KIND", arguments->kind, "",
       "status, delay, reset_before_commit, reset_after_commit, cut, drip, garbage, huge or "
       "wrong_type")
      ->required();
  text("--path", arguments->path, "PATH", "Which path, or its beginning and *")->required();
  text("--method", arguments->method, "METHOD", "Only requests of this method");
  text("--query", arguments->query, "TEXT", "Only requests with this in their query");
  number("--times", arguments->times, "How often at most");
  number("--skip", arguments->skip, "Spare so many requests first");
  number("--every", arguments->every, "Only each Nth request");
  verb.add_option("--probability", arguments->probability, "By chance, from 0 to 1")
      ->type_name("P");
  number("--seed", arguments->seed, "Which chance, which garbage");
  number("--status", arguments->status, "Status of the answer (status)");
  text("--body", arguments->body, "TEXT", "Body of the answer (status)");
  text("--delay", arguments->delay, "DURATION", "Wait so long, with any kind");
  verb.add_flag("--delay-after-commit", arguments->delay_after_commit,
                "Wait after the operation, not before");
  text("--bytes", arguments->bytes, "SIZE", "How much (cut, drip, garbage, huge)");
  verb.add_flag("--whole-answer", arguments->whole_answer,
                "Not only the body of the answer (garbage)");
  text("--interval", arguments->interval, "DURATION", "Time between pieces (drip)");
  text("--member", arguments->member, "NAME", "Member of the answer (wrong_type)");
  text("--type", arguments->type, "TYPE", "JSON type that it gets (wrong_type)");
}

void add_scenario_verb(Command_Line& commands, CLI::App& lab) {
  const auto file = std::make_shared<std::string>();
  const auto merge = std::make_shared<bool>(false);
  CLI::App& verb = commands.verb(
      lab, "scenario",
      "Puts what a scenario file describes into the service, in place of what it holds",
      {"zqpool lab scenario scenario.json", "zqpool lab scenario --merge - < more.json"},
      [file, merge](Session& session) {
        const Value document = read_document(*file);
        Value answer;
        const Exit_Code code = exchange(session, Effect::changes, HTTP_METHOD_POST, scenario_path,
                                        *merge ? "mode=merge" : "mode=replace", &document, answer);
        if (code == Exit_Code::done) print_answer(session, answer);
        return code;
      });
  verb.add_option("FILE", *file, "The scenario, JSON; - reads standard input")
      ->type_name("")
      ->required();
  verb.add_flag("--merge", *merge, "Keep what the service holds and the file does not name");
}

void add_list_verb(Command_Line& commands, CLI::App& lab) {
  commands.verb(lab, "faults", "Lists the scripted faults and how often each one happened",
                {"zqpool lab faults", "zqpool lab faults --output json"}, [](Session& session) {
                  Value answer;
                  const Exit_Code code = exchange(session, Effect::reads, HTTP_METHOD_GET,
                                                  faults_path, "", nullptr, answer);
                  if (code == Exit_Code::done) print_answer(session, answer, "faults");
                  return code;
                });
}

void add_clear_verb(Command_Line& commands, CLI::App& lab) {
  commands.verb(lab, "clear", "Removes all scripted faults", {"zqpool lab clear"},
                [](Session& session) {
                  Value answer;
                  return exchange(session, Effect::changes, HTTP_METHOD_DELETE, faults_path, "",
                                  nullptr, answer);
                });
}

}  // namespace

void add_lab(Command_Line& commands) {
  CLI::App& lab = commands.noun("lab", "Trials with a service that was started with --lab");
  add_scenario_verb(commands, lab);
  add_fault_verb(commands, lab);
  add_list_verb(commands, lab);
  add_clear_verb(commands, lab);
}

}  // namespace zqpool::cli
