#include "cli/command/command_line.h"

#include <unistd.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "cli/support/messages.h"

namespace zqpool::cli {

namespace {

constexpr const char* common_options = "Common options";
constexpr const char* exit_codes =
    "Exit codes: 0 done, 1 failed, 2 usage, 3 not found, 4 conflict, 5 no space,\n"
    "6 not allowed, 7 unreachable or too late, 8 outcome unknown.";

/// The help of a verb ends with the options that every verb takes.
class Help : public CLI::Formatter {
 public:
  std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const override {
    if (!app->get_subcommands({}).empty()) return CLI::Formatter::make_subcommands(app, mode);
    const CLI::App* root = app;
    while (root->get_parent() != nullptr)
      root = root->get_parent();
    return make_group(common_options, false, root->get_options([](const CLI::Option* option) {
      return option->get_group() == common_options;
    }));
  }
};

/// Writes the output; a command whose output does not arrive has failed.
Exit_Code deliver(const std::string& output, Exit_Code code) {
  if (output.empty()) return code;
  // A full remote disk may show only at close().
  if (write_all(STDOUT_FILENO, output) && close(STDOUT_FILENO) == 0) return code;
  if (errno == EPIPE) return Exit_Code::output_closed;
  say(std::string("the output cannot be written: ") + std::strerror(errno));
  return worse(code, Exit_Code::failed);
}

}  // namespace

Command_Line::Command_Line() : app_("Storage pools from the command line.", "zqpool") {
  app_.formatter(std::make_shared<Help>());
  app_.fallthrough();
  app_.require_subcommand(1);
  app_.get_formatter()->column_width(34);
  app_.set_help_flag("-h,--help", "This help");
  app_.set_version_flag("--version", "zqpool " ZQPOOL_VERSION, "The program's version");
  for (const Setting& setting : all_settings()) {
    const auto index = static_cast<std::size_t>(setting.id);
    std::string help = setting.help;
    if (setting.fallback != nullptr) help += std::string(" (") + setting.fallback + ")";
    const std::string names =
        setting.id == Setting_Id::output ? "-o,--output" : std::string(setting.option);
    options_[index] = app_.add_option(names, arguments_[index], help)->type_name(setting.type);
  }
  app_.add_flag("--insecure", flags_.insecure, "Accept any certificate of any host");
  app_.add_flag("--dry-run", flags_.dry_run, "Print the request instead of sending it");
  app_.add_flag("--trace", flags_.trace, "Phases and times of each exchange, on standard error");
  CLI::Option* const verbose =
      app_.add_flag("-v,--verbose", flags_.verbose, "Show the library's log");
  app_.add_flag("-q,--quiet", flags_.quiet, "Errors only: no warnings, no progress")
      ->excludes(verbose);
  for (CLI::Option* const option : app_.get_options()) {
    if (option != app_.get_help_ptr()) option->group(common_options);
  }
}

Verb& Verb::argument(const char* name, std::string& value, const std::string& help) {
  return option(name, value, "", help).required();
}

Verb& Verb::objects(const char* name, std::vector<std::string>& objects, const std::string& help) {
  return option(name, objects, "", help + "; - reads them from standard input, one per line")
      .required();
}

Verb& Verb::flag(const char* name, bool& value, const std::string& help) {
  last_ = app_.add_flag(name, value, help);
  return *this;
}

Verb& Verb::option(const char* name, Given_Text& value, const char* type, const std::string& help) {
  const auto take = [&value](const std::string& text) { value = {text, true}; };
  last_ = app_.add_option_function<std::string>(name, take, help)->type_name(type);
  return *this;
}

Verb& Verb::required() {
  last_->required();
  return *this;
}

Verb& Verb::range(int min, int max) {
  last_->check(CLI::Range(min, max));
  return *this;
}

Verb& Verb::excludes(std::initializer_list<const char*> others) {
  for (const char* const other : others)
    last_->excludes(app_.get_option(other));
  return *this;
}

Verb& Verb::needs(std::initializer_list<const char*> others) {
  for (const char* const other : others)
    last_->needs(app_.get_option(other));
  return *this;
}

Noun Noun::noun(const std::string& name, const std::string& help) {
  CLI::App* const noun = app_.add_subcommand(name, help);
  noun->require_subcommand(1);
  noun->group("Nouns");
  noun->footer("");
  return {commands_, *noun};
}

Verb Noun::verb(const std::string& name, const std::string& help,
                const std::vector<std::string>& examples, Action action) {
  CLI::App* const verb = app_.add_subcommand(name, help);
  verb->group("Verbs");
  std::string footer = "Examples:";
  for (const std::string& example : examples)
    footer += "\n  zqpool " + command_path(*verb) + (example.empty() ? "" : ' ' + example);
  verb->footer(footer);
  commands_.actions_[verb] = std::move(action);
  return Verb(*verb);
}

void Noun::alone(Action action) {
  app_.require_subcommand(0, 1);
  commands_.actions_[&app_] = std::move(action);
}

Noun Command_Line::noun(const std::string& name, const std::string& help) {
  return Noun(*this, app_).noun(name, help);
}

int Command_Line::run(int argc, const char* const* argv) {
  app_.footer(std::string("Examples:\n"
                          "  zqpool --endpoint https://pool1:8443 pool show UUID\n"
                          "  zqpool device show --url file:///vault/d1 --output json\n"
                          "  zqpool config show\n\n"
                          "See also zqpool NOUN VERB --help, and man zqpool.\n\n") +
              exit_codes);
  std::string output;
  Exit_Code code = Exit_Code::failed;
  try {
    code = parse_and_run(argc, argv, output);
  } catch (const Command_Error& error) {
    const std::string name = command_path(chosen());
    say((name.empty() ? "" : name + ": ") + error.what());
    code = error.code;
  } catch (const std::exception& error) {
    say(std::string("unexpected: ") + error.what());
  }
  return static_cast<int>(deliver(output, code));
}

Exit_Code Command_Line::parse_and_run(int argc, const char* const* argv, std::string& output) {
  try {
    app_.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    output = app_.help();
    return Exit_Code::done;
  } catch (const CLI::CallForVersion& version) {
    output = version.what() + std::string("\n");
    return Exit_Code::done;
  } catch (const CLI::ParseError& error) {
    return refuse(error);
  }
  const Settings settings(
      [this](const Setting& setting) -> const char* {
        const auto index = static_cast<std::size_t>(setting.id);
        return options_[index]->count() > 0 ? arguments_[index].c_str() : nullptr;
      },
      [](const Setting& setting) { return std::getenv(setting.variable); }, config_files());
  Command_Context context(command_path(chosen()), settings, flags_);
  const Exit_Code code = actions_.at(&chosen())(context);
  output = context.output();
  return code;
}

Exit_Code Command_Line::refuse(const CLI::ParseError& error) const {
  const std::string name = command_path(chosen());
  const std::vector<const CLI::App*> next = chosen().get_subcommands({});
  std::string message = error.what();
  if (!next.empty() && error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError)) {
    const std::vector<std::string> unknown = chosen().remaining();
    const std::string wanted = name.empty() ? "noun" : "verb";
    message = unknown.empty() ? "a " + wanted + " is needed:"
                              : "'" + unknown.front() + "' is not a " + wanted + "; choose from:";
    for (const CLI::App* const app : next)
      message += ' ' + app->get_name();
  }
  say((name.empty() ? "" : name + ": ") + message);
  say_plain("Try 'zqpool " + (name.empty() ? "" : name + ' ') + "--help'.");
  return Exit_Code::usage;
}

const CLI::App& Command_Line::chosen() const {
  const CLI::App* app = &app_;
  for (auto next = app->get_subcommands(); !next.empty(); next = app->get_subcommands()) {
    app = next.front();
  }
  return *app;
}

std::string command_path(const CLI::App& app) {
  if (app.get_parent() == nullptr) return "";
  const std::string above = command_path(*app.get_parent());
  return above + (above.empty() ? "" : " ") + app.get_name();
}

}  // namespace zqpool::cli
