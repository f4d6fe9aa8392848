#pragma once

#include <CLI/App.hpp>

#include <array>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cli/command/command_context.h"
#include "cli/command/settings.h"
#include "cli/support/exit_code.h"

namespace zqpool::cli {

/// What a verb does, with the arguments that its options were bound to.
using Action = std::function<Exit_Code(Command_Context&)>;

/// The value of an option that may be given with an empty text.
struct Given_Text {
  std::string text;
  bool given = false;

  const char* c_str_or_null() const { return given ? text.c_str() : nullptr; }
};

/// Adds arguments and options to a verb, in the order of its help. Shells complete the values of a
/// type such as "json|tsv", and paths for FILE and DIR.
class Verb {
 public:
  explicit Verb(CLI::App& app) : app_(app) {}

  /// A required argument.
  Verb& argument(const char* name, std::string& value, const std::string& help);

  /// One or more arguments; "-" stands for the lines of standard input.
  Verb& objects(const char* name, std::vector<std::string>& objects, const std::string& help);
  Verb& flag(const char* name, bool& value, const std::string& help);
  /// The flag that skips the confirmation.
  Verb& yes(bool& value) { return flag("--yes", value, "Do not ask first"); }
  template <typename Value>
  Verb& option(const char* name, Value& value, const char* type, const std::string& help) {
    last_ = app_.add_option(name, value, help)->type_name(type);
    return *this;
  }
  Verb& option(const char* name, Given_Text& value, const char* type, const std::string& help);

  // These apply to the option that was added last; `others` must have been added before.
  Verb& required();
  Verb& range(int min, int max);
  Verb& excludes(std::initializer_list<const char*> others);
  Verb& needs(std::initializer_list<const char*> others);

 private:
  CLI::App& app_;
  CLI::Option* last_ = nullptr;
};

class Command_Line;

/// Adds verbs to a noun.
class Noun {
 public:
  Noun(Command_Line& commands, CLI::App& app) : commands_(commands), app_(app) {}

  /// A noun below this one.
  Noun noun(const std::string& name, const std::string& help);

  /// `examples` are lines of the help, each without "zqpool NOUN VERB" in front.
  Verb verb(const std::string& name, const std::string& help,
            const std::vector<std::string>& examples, Action action);
  template <typename Arguments>
  Verb verb(const std::string& name, const std::string& help,
            const std::vector<std::string>& examples,
            Exit_Code (*action)(Command_Context&, const Arguments&),
            const std::shared_ptr<Arguments>& arguments) {
    return verb(name, help, examples, [arguments, action](Command_Context& context) {
      return action(context, *arguments);
    });
  }

  /// Makes the noun valid without a verb.
  void alone(Action action);

 private:
  Command_Line& commands_;
  CLI::App& app_;
};

/// The nouns, verbs and options of the program.
class Command_Line {
 public:
  Command_Line();

  Noun noun(const std::string& name, const std::string& help);

  /// The tree of nouns and verbs.
  const CLI::App& tree() const noexcept { return app_; }

  /// Runs the command that the arguments name and returns the process's exit code.
  int run(int argc, const char* const* argv);

 private:
  friend class Noun;

  Exit_Code parse_and_run(int argc, const char* const* argv, std::string& output);
  Exit_Code refuse(const CLI::ParseError& error) const;
  const CLI::App& chosen() const;

  CLI::App app_;
  std::map<const CLI::App*, Action> actions_;
  std::array<std::string, setting_count> arguments_;
  std::array<CLI::Option*, setting_count> options_{};
  Flags flags_;
};

/// The nouns and the verb that lead to `app`: "fs snapshot create"; "" for the program.
std::string command_path(const CLI::App& app);

}  // namespace zqpool::cli
