#include "cli/command/command_context.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "cli/calls/dry_run.h"
#include "cli/command/batch.h"
#include "cli/support/credentials.h"
#include "cli/support/duration.h"
#include "cli/support/endpoint.h"
#include "cli/support/messages.h"
#include "platform/host/initiators.h"
#include "platform/http/http_message.h"
#include "platform/http/http_options.h"

namespace zqpool::cli {

namespace {

constexpr std::size_t max_jobs = 64;

/// Reads a setting with `parse` and puts the source of the value in front of its errors.
template <typename Parse>
auto parsed(const Setting_Value& value, Parse parse) {
  try {
    return parse(value.text);
  } catch (const Usage_Error& error) {
    throw Usage_Error(value.source + ": " + error.what());
  }
}

std::size_t parse_jobs(const std::string& text) {
  std::size_t jobs = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, jobs);
  if (error != std::errc() || stop != end || jobs == 0 || jobs > max_jobs) {
    throw Usage_Error("'" + text + "' is not a number from 1 to " + std::to_string(max_jobs));
  }
  return jobs;
}

std::chrono::milliseconds parse_timeout(const std::string& text) {
  const std::chrono::milliseconds time = parse_duration(text);
  if (time.count() == 0) throw Usage_Error("'" + text + "' is too short");
  return time;
}

/// Whole seconds, as the library counts them, rounded up.
int parse_retry(const std::string& text) {
  return static_cast<int>((parse_duration(text).count() + 999) / 1000);
}

void set_trust(const Setting_Value& cacert, HTTP_Options& options) {
  if (!cacert.given) return;
  struct stat status = {};
  if (stat(cacert.text.c_str(), &status) != 0) {
    throw Usage_Error(cacert.source + ": " + cacert.text + ": " + std::strerror(errno));
  }
  (S_ISDIR(status.st_mode) ? options.ca_directory : options.ca_file) = cacert.text;
}

/// The width of standard output's terminal in columns, 0 when it is not a terminal.
std::size_t output_width() {
  winsize size = {};
  if (isatty(STDOUT_FILENO) == 0 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

}  // namespace

Command_Context::Command_Context(std::string command, const Settings& settings, const Flags& flags)
    : command_(std::move(command)),
      settings_(settings),
      flags_(flags),
      format_(parsed(settings[Setting_Id::output], parse_output_format)),
      log_(flags.verbose, [this] { report_retry(); }) {
  set_quiet(flags.quiet);
  const Setting_Value& host_root = settings[Setting_Id::host_root];
  if (host_root.given) set_host_root(host_root.text);
}

const Target& Command_Context::target() {
  if (target_) return *target_;
  const Setting_Value& endpoint = settings_[Setting_Id::endpoint];
  if (!endpoint.given) {
    throw Usage_Error(
        "no endpoint: give --endpoint https://HOST:PORT, set ZQPOOL_ENDPOINT or write endpoint = "
        "... into " +
        (config_files().user.empty() ? config_files().system : config_files().user));
  }
  Target target;
  const Endpoint at = parsed(endpoint, parse_endpoint);
  target.url = at.text();
  target.host = at.host;
  target.port = at.port;
  target.ssl = at.ssl;
  target.retry_seconds = parsed(settings_[Setting_Id::retry], parse_retry);
  if (flags_.dry_run) target.retry_seconds = 0;

  HTTP_Options options = HTTP_Options::get();
  options.exchange_timeout = timeout();
  options.user_agent = "zqpool/" ZQPOOL_VERSION;
  set_trust(settings_[Setting_Id::cacert], options);
  if (flags_.insecure) {
    options.verify = false;
    say("WARNING: --insecure: the certificate of " + target.url +
        " is not checked, whoever answers there gets the access key");
  }
  if (flags_.dry_run) options.may_send = &Dry_Run::may_send;
  HTTP_Options::set(options);

  const Setting_Value& key_file = settings_[Setting_Id::access_key_file];
  target.access_key = obtain_access_key(key_file.text, target.url);
  return target_.emplace(std::move(target));
}

std::chrono::milliseconds Command_Context::timeout() const {
  return parsed(settings_[Setting_Id::timeout], parse_timeout);
}

Exit_Code Command_Context::report(const Outcome& outcome) {
  explain(outcome, "");
  if (outcome.held_back) print_request("request", *outcome.held_back);
  return outcome.code;
}

void Command_Context::explain(const Outcome& outcome, const std::string& object) const {
  if (outcome.code == Exit_Code::done) return;
  say(command_ + ": " + (object.empty() ? "" : object + ": ") +
      (target_ ? target_->url + ": " : "") + outcome.cause);
}

Exit_Code Command_Context::show(const std::vector<std::string>& objects, const Work& work) {
  const std::size_t at_once = jobs();
  target();
  Exit_Code code = Exit_Code::done;
  print(run_all(objects, at_once, work, code));
  return code;
}

Exit_Code Command_Context::change(const std::vector<std::string>& objects, const Work& work) {
  const std::size_t at_once = jobs();
  target();
  Exit_Code code = Exit_Code::done;
  run_all(objects, at_once, work, code);
  return code;
}

Exit_Code Command_Context::derive(const std::vector<std::string>& objects, const Work& work) {
  Exit_Code code = Exit_Code::done;
  print(run_all(objects, jobs(), work, code));
  return code;
}

std::size_t Command_Context::jobs() const {
  return parsed(settings_[Setting_Id::jobs], parse_jobs);
}

std::vector<Record> Command_Context::run_all(const std::vector<std::string>& objects,
                                             std::size_t jobs, const Work& work, Exit_Code& code) {
  std::vector<Outcome> outcomes(objects.size());
  std::vector<Object> answers(objects.size());
  std::vector<Record> records;
  const bool many = objects.size() > 1;
  run_batch(
      objects.size(), jobs, [&](std::size_t i) { outcomes[i] = work(objects[i], answers[i]); },
      [&](std::size_t i) {
        explain(outcomes[i], many ? objects[i] : "");
        code = worse(code, outcomes[i].code);
        if (outcomes[i].held_back) {
          print_request(objects[i], *outcomes[i].held_back);
        } else if (outcomes[i].code == Exit_Code::done) {
          records.push_back({objects[i], std::move(answers[i])});
        }
      },
      [&](std::size_t done) {
        if (many) show_progress(done, objects.size());
      });
  clear_progress();
  return records;
}

void Command_Context::print_request(const std::string& object, const std::string& request) {
  if (!is_table()) return print({{object, request_record(request)}});
  if (!output_.empty()) output_ += '\n';
  print_text(shown_request(request));
}

Exit_Code Command_Context::print_list(Array& list, const std::string& name) {
  std::vector<Record> records;
  for (json_spirit::Value& element : list) {
    if (element.type() != json_spirit::obj_type) {
      say(command_ + ": the list contains something that is not a record");
      return Exit_Code::failed;
    }
    Object& object = element.get_obj();
    const auto found = object.find(name);
    std::string text = std::to_string(records.size());
    if (found != object.end() && found->second.type() == json_spirit::str_type) {
      text = found->second.get_str();
    } else if (found != object.end() && found->second.type() == json_spirit::int_type) {
      text = json_spirit::write(found->second);
    }
    records.push_back({std::move(text), std::move(object)});
  }
  print(records);
  return Exit_Code::done;
}

void Command_Context::print(const std::vector<Record>& records) {
  output_ += render(records, format_, output_width());
}

/// Tells the user why the library pauses before it tries again.
void Command_Context::report_retry() const {
  const HTTP_Exchange_Report report = last_http_exchange();
  if (flags_.trace) say(trace_line(report));
  const std::string cause =
      report.ok() ? "the answer is unusable" : judge_exchange(report, Effect::reads).cause;
  note(command_ + ": " + target_->url + ": " + cause + "; retrying");
}

}  // namespace zqpool::cli
