#pragma once

#include <CLI/App.hpp>

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/command/command_context.h"
#include "cli/command/settings.h"
#include "cli/support/exit_code.h"

namespace zqpool::cli {

/// What a verb does; its arguments are what its options were bound to.
using Action = std::function<Exit_Code(Session&)>;

/// The nouns, verbs and options of the program.
class Command_Line {
 public:
  Command_Line();

  CLI::App& noun(const std::string& name, const std::string& what);
  /// A noun of which `above` has verbs, too.
  CLI::App& noun_below(CLI::App& above, const std::string& name, const std::string& what);
  /// `examples` are the lines of the help that begin with "zqpool".
  CLI::App& verb(CLI::App& noun, const std::string& name, const std::string& what,
                 const std::vector<std::string>& examples, Action action);

  /// The same with options that are bound to an `Arguments` of its own, which `action` receives.
  template <typename Arguments>
  std::pair<CLI::App&, Arguments&> verb(CLI::App& noun, const std::string& name,
                                        const std::string& what,
                                        const std::vector<std::string>& examples,
                                        Exit_Code (*action)(Session&, const Arguments&)) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App& added = verb(noun, name, what, examples, [arguments, action](Session& session) {
      return action(session, *arguments);
    });
    return {added, *arguments};
  }

  /// Lets the noun stand alone, for `action`.
  void alone(CLI::App& noun, Action action);

  /// Runs what the arguments say and returns the process's exit code.
  int run(int argc, const char* const* argv);

 private:
  Exit_Code parse_and_run(int argc, const char* const* argv, std::string& output);
  Exit_Code refuse(const CLI::ParseError& error) const;
  const CLI::App& chosen() const;
  std::string chosen_name() const;

  CLI::App app_;
  std::map<const CLI::App*, Action> actions_;
  std::array<std::string, setting_count> arguments_;
  std::array<CLI::Option*, setting_count> options_{};
  Flags flags_;
};

/// A required argument.
void add_argument(CLI::App& verb, const char* name, std::string& value, const char* what);

/// Required arguments, "-" among them for the lines of standard input.
void add_objects(CLI::App& verb, const char* name, std::vector<std::string>& objects,
                 const std::string& what);

/// The value of an option that means something even when it is empty.
struct Given_Text {
  std::string text;
  bool given = false;

  const char* c_str_or_null() const { return given ? text.c_str() : nullptr; }
};
void add_text(CLI::App& verb, const char* name, Given_Text& value, const char* type,
              const char* what);

/// The option with which a verb that destroys does not ask first.
void add_yes(CLI::App& verb, bool& yes);

// One function a noun.
void add_config(Command_Line& commands);
void add_device(Command_Line& commands);
void add_fs(Command_Line& commands);
void add_image(Command_Line& commands);
void add_lab(Command_Line& commands);
void add_lun(Command_Line& commands);
void add_metadata(Command_Line& commands);
void add_module(Command_Line& commands);
void add_nfs(Command_Line& commands);
void add_pool(Command_Line& commands);
void add_snapshot(Command_Line& commands);
void add_space(Command_Line& commands);
void add_uri(Command_Line& commands);

}  // namespace zqpool::cli
