#include "cli/command/completion.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "cli/command/command_line.h"

namespace zqpool::cli {

namespace {

// Stand for paths in the scripts' lists of values.
constexpr std::string_view files = "<file>";
constexpr std::string_view directories = "<directory>";

struct Option {
  std::string name;        ///< "--output"
  std::string short_name;  ///< "-o", or ""
  std::string help;
  bool takes_value = false;
  std::string values;  ///< separated by blanks; "" when only the user knows
};

struct Command {
  std::string path;  ///< "zqpool fs snapshot"
  std::vector<const CLI::App*> subcommands;
  std::vector<Option> options;
  std::vector<std::string> arguments;  ///< the values of each
};

std::string values_of(const CLI::Option& option) {
  const std::string name = option.get_name(true);
  std::string type = option.get_type_name();
  if (type == "DIR") return std::string(directories);
  if (type == "FILE" || type == "FILE|DIR" || name == "FILE") return std::string(files);
  if (type.find('|') == std::string::npos) return "";
  std::replace(type.begin(), type.end(), '|', ' ');
  return type;
}

void add_commands(const CLI::App& app, std::vector<Command>& commands) {
  const std::string below = command_path(app);
  Command command = {
      "zqpool" + (below.empty() ? "" : ' ' + below), app.get_subcommands({}), {}, {}};
  for (const CLI::Option* const option : app.get_options()) {
    if (option->get_positional()) {
      command.arguments.push_back(values_of(*option));
    } else if (app.get_parent() == nullptr || option != app.get_help_ptr()) {
      const std::vector<std::string>& short_names = option->get_snames();
      command.options.push_back({"--" + option->get_lnames().front(),
                                 short_names.empty() ? "" : '-' + short_names.front(),
                                 option->get_description(), option->get_items_expected_max() > 0,
                                 values_of(*option)});
    }
  }
  commands.push_back(command);
  for (const CLI::App* const subcommand : command.subcommands)
    add_commands(*subcommand, commands);
}

/// All commands, the program's own options first.
std::vector<Command> all_commands(const CLI::App& root) {
  std::vector<Command> commands;
  add_commands(root, commands);
  return commands;
}

/// `text` as one word of a shell.
std::string shell_word(std::string_view text) {
  std::string out = "'";
  for (const char c : text)
    out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + '\'';
}

/// How a shell writes an entry of an associative array, and a word with its help in a list.
struct Syntax {
  std::string (*entry)(const std::string& key, const std::string& value);
  std::string (*word)(const std::string& word, const std::string& help);
};

/// Three associative arrays: the nouns and verbs below a command, its options, and the values of
/// options and arguments ("zqpool lun create --retention", "zqpool lab fault 1").
std::string arrays(const CLI::App& root, const Syntax& syntax) {
  std::string commands;
  std::string options;
  std::string values;
  for (const Command& command : all_commands(root)) {
    std::string list;
    for (const CLI::App* const subcommand : command.subcommands)
      list += syntax.word(subcommand->get_name(), subcommand->get_description());
    commands += syntax.entry(command.path, list);
    list.clear();
    for (const Option& option : command.options) {
      list += syntax.word(option.name, option.help);
      if (!option.takes_value) continue;
      values += syntax.entry(command.path + ' ' + option.name, option.values);
      if (option.short_name.empty()) continue;
      values += syntax.entry(command.path + ' ' + option.short_name, option.values);
    }
    options += syntax.entry(command.path, list);
    for (std::size_t i = 0; i < command.arguments.size(); ++i) {
      if (command.arguments[i].empty()) continue;
      values += syntax.entry(command.path + ' ' + std::to_string(i + 1), command.arguments[i]);
    }
  }
  return "  local -A commands=(\n" + commands + "  )\n  local -A options=(\n" + options +
         "  )\n  local -A values=(\n" + values + "  )\n";
}

std::string heading(const char* shell) {
  return std::string("# Completion of zqpool for ") + shell + ", made by \"zqpool completion " +
         shell + "\".\n\n";
}

// In each script a loop over the words before the cursor finds out which command they name, whether
// the last one is an option that wants a value, and how many arguments there are.

constexpr const char* bash_rest = R"(
  local word=${COMP_WORDS[COMP_CWORD]} command=zqpool key='' argument=1 before list i
  for ((i = 1; i < COMP_CWORD; i++)); do
    before=${COMP_WORDS[i]}
    if [[ -n $key ]]; then
      key=''
    elif [[ -n ${values[$command $before]+set} ]]; then
      key="$command $before"
    elif [[ -n ${values[zqpool $before]+set} ]]; then
      key="zqpool $before"
    elif [[ -n ${commands[$command $before]+set} ]]; then
      command+=" $before"
    elif [[ $before != -* ]]; then
      ((++argument))
    fi
  done

  if [[ -n $key ]]; then
    list=${values[$key]}
  elif [[ $word == -* ]]; then
    list=${options[zqpool]}
    [[ $command == zqpool ]] || list+=" ${options[$command]:-}"
  else
    list=${commands[$command]:-${values[$command $argument]:-}}
  fi
  COMPREPLY=()
  case $list in
    '<file>' | '<directory>')
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -A "${list//[<>]/}" -- "$word")
      ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$list" -- "$word") ;;
  esac
}

complete -F _zqpool zqpool
)";

/// The candidates for an option or argument, as fish wants them.
std::string fish_values(const std::string& list) {
  if (list == files) return " -F";
  if (list == directories) return " -x -a '(__fish_complete_directories)'";
  return list.empty() ? " -f" : " -f -a " + shell_word(list);
}

constexpr const char* zsh_rest = R"(
  local command=zqpool key= before
  local -i argument=1
  local -a list
  for before in "${(@)words[2,CURRENT-1]}"; do
    if [[ -n $key ]]; then
      key=
    elif (( ${+values[$command $before]} )); then
      key="$command $before"
    elif (( ${+values[zqpool $before]} )); then
      key="zqpool $before"
    elif (( ${+commands[$command $before]} )); then
      command+=" $before"
    elif [[ $before != -* ]]; then
      (( ++argument ))
    fi
  done

  if [[ -z $key && $PREFIX == -* ]]; then
    list=(${(f)options[zqpool]})
    [[ $command == zqpool ]] || list+=(${(f)options[$command]})
    _describe -o option list
    return
  fi
  if [[ -z $key && -n ${commands[$command]} ]]; then
    list=(${(f)commands[$command]})
    _describe command list
    return
  fi
  case ${values[${key:-$command $argument}]} in
    '<file>') _files ;;
    '<directory>') _files -/ ;;
    *) compadd -- ${=values[${key:-$command $argument}]} ;;
  esac
}

_zqpool "$@"
)";

constexpr const char* fish_rest = R"(
function __zqpool_at --description 'Whether the words before the cursor name this command'
  set -l command zqpool
  set -l value_of
  for before in (commandline -opc)[2..-1]
    if test -n "$value_of"
      set value_of
    else if contains -- "$command $before" $__zqpool_values
      set value_of $before
    else if contains -- "zqpool $before" $__zqpool_values
      set value_of $before
    else if contains -- "$command $before" $__zqpool_commands
      set command "$command $before"
    end
  end
  test "$command" = "$argv[1]"
end

complete -c zqpool -f
)";

}  // namespace

std::string bash_completion(const CLI::App& root) {
  const Syntax syntax = {[](const std::string& key, const std::string& value) {
                           return "    [" + shell_word(key) + "]=" + shell_word(value) + '\n';
                         },
                         [](const std::string& word, const std::string&) { return word + ' '; }};
  return heading("bash") + "_zqpool() {\n" + arrays(root, syntax) + bash_rest;
}

std::string zsh_completion(const CLI::App& root) {
  const Syntax syntax = {
      [](const std::string& key, const std::string& value) {
        return "    " + shell_word(key) + ' ' + shell_word(value) + '\n';
      },
      [](const std::string& word, const std::string& help) { return word + ':' + help + '\n'; }};
  return "#compdef zqpool\n" + heading("zsh") + "_zqpool() {\n" + arrays(root, syntax) + zsh_rest;
}

std::string fish_completion(const CLI::App& root) {
  std::string paths;
  std::string values;
  std::string lines;
  for (const Command& command : all_commands(root)) {
    paths += ' ' + shell_word(command.path);
    const bool is_root = command.path == "zqpool";
    const std::string here =
        "complete -c zqpool -n " + shell_word("__zqpool_at " + shell_word(command.path));
    for (const CLI::App* const subcommand : command.subcommands) {
      lines += here + " -a " + subcommand->get_name() + " -d " +
               shell_word(subcommand->get_description()) + '\n';
    }
    for (const Option& option : command.options) {
      lines += (is_root ? "complete -c zqpool" : here) + " -l " + option.name.substr(2);
      if (!option.short_name.empty()) lines += " -s " + option.short_name.substr(1);
      if (option.takes_value) {
        values += ' ' + shell_word(command.path + ' ' + option.name);
        lines += " -r" + fish_values(option.values);
      }
      lines += " -d " + shell_word(option.help) + '\n';
    }
    for (const std::string& list : command.arguments) {
      if (!list.empty()) lines += here + fish_values(list) + '\n';
    }
  }
  return heading("fish") + "set -g __zqpool_commands" + paths + "\nset -g __zqpool_values" +
         values + '\n' + fish_rest + lines;
}

}  // namespace zqpool::cli
