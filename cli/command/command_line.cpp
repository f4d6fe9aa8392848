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

/// What stands on standard output must have arrived there, or the command has failed.
Exit_Code deliver(const std::string& output, Exit_Code code) {
  if (output.empty()) return code;
  // Closing is where a full remote disk shows.
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
  app_.add_flag("--insecure", flags_.insecure, "Take any certificate of any host");
  app_.add_flag("--dry-run", flags_.dry_run, "Print the request that would go out, change nothing");
  app_.add_flag("--trace", flags_.trace, "Phases and times of each exchange, on standard error");
  CLI::Option* const verbose =
      app_.add_flag("-v,--verbose", flags_.verbose, "Let the library's log through");
  app_.add_flag("-q,--quiet", flags_.quiet, "Errors only: no warnings, no progress")
      ->excludes(verbose);
  for (CLI::Option* const option : app_.get_options()) {
    if (option != app_.get_help_ptr()) option->group(common_options);
  }
}

CLI::App& Command_Line::noun(const std::string& name, const std::string& what) {
  return noun_below(app_, name, what);
}

CLI::App& Command_Line::noun_below(CLI::App& above, const std::string& name,
                                   const std::string& what) {
  CLI::App* const noun = above.add_subcommand(name, what);
  noun->require_subcommand(1);
  noun->group("Nouns");
  noun->footer("");
  return *noun;
}

CLI::App& Command_Line::verb(CLI::App& noun, const std::string& name, const std::string& what,
                             const std::vector<std::string>& examples, Action action) {
  CLI::App* const verb = noun.add_subcommand(name, what);
  verb->group("Verbs");
  std::string footer = "Examples:";
  for (const std::string& example : examples)
    footer += "\n  " + example;
  verb->footer(footer);
  actions_[verb] = std::move(action);
  return *verb;
}

void Command_Line::alone(CLI::App& noun, Action action) {
  noun.require_subcommand(0, 1);
  actions_[&noun] = std::move(action);
}

int Command_Line::run(int argc, const char* const* argv) {
  app_.footer(std::string("Examples:\n"
                          "  zqpool --endpoint https://pool1:8443 pool show UUID\n"
                          "  zqpool device show --url file:///vault/d1 --output json\n"
                          "  zqpool config show\n\n"
                          "zqpool NOUN VERB --help says more, man zqpool says all.\n\n") +
              exit_codes);
  std::string output;
  Exit_Code code = Exit_Code::failed;
  try {
    code = parse_and_run(argc, argv, output);
  } catch (const Command_Error& error) {
    const std::string name = chosen_name();
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
  Session session(chosen_name(), settings, flags_);
  const Exit_Code code = actions_.at(&chosen())(session);
  output = session.output();
  return code;
}

Exit_Code Command_Line::refuse(const CLI::ParseError& error) const {
  const std::string name = chosen_name();
  const std::vector<const CLI::App*> next = chosen().get_subcommands({});
  std::string message = error.what();
  if (!next.empty() && error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError)) {
    const std::vector<std::string> unknown = chosen().remaining();
    const std::string wanted = name.empty() ? "noun" : "verb";
    message = unknown.empty() ? "a " + wanted + " is needed:"
                              : "'" + unknown.front() + "' is no " + wanted + ", there are:";
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

std::string Command_Line::chosen_name() const {
  std::string name;
  for (const CLI::App* app = &chosen(); app->get_parent() != nullptr; app = app->get_parent()) {
    if (!name.empty()) name.insert(0, 1, ' ');
    name.insert(0, app->get_name());
  }
  return name;
}

void add_argument(CLI::App& verb, const char* name, std::string& value, const char* what) {
  verb.add_option(name, value, what)->type_name("")->required();
}

void add_objects(CLI::App& verb, const char* name, std::vector<std::string>& objects,
                 const std::string& what) {
  verb.add_option(name, objects, what + "; - reads them from standard input, one a line")
      ->type_name("")
      ->required();
}

void add_text(CLI::App& verb, const char* name, Given_Text& value, const char* type,
              const char* what) {
  const auto take = [&value](const std::string& text) { value = {text, true}; };
  verb.add_option_function<std::string>(name, take, what)->type_name(type);
}

void add_yes(CLI::App& verb, bool& yes) {
  verb.add_flag("--yes", yes, "Do not ask first");
}

}  // namespace zqpool::cli
