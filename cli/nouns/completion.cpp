#include "cli/command/completion.h"

#include "cli/nouns/nouns.h"

namespace zqpool::cli {

void add_completion(Command_Line& commands) {
  Noun completion = commands.noun("completion", "Scripts for the completion of a shell");
  const auto add = [&](const char* shell, std::string (*script)(const CLI::App&), const char* use) {
    completion.verb(shell, std::string("Prints the script for ") + shell, {use},
                    [&commands, script](Command_Context& context) {
                      context.print_text(script(commands.tree()));
                      return Exit_Code::done;
                    });
  };
  add("bash", &bash_completion, "> ~/.local/share/bash-completion/completions/zqpool");
  add("zsh", &zsh_completion, "> ~/.zsh/completions/_zqpool");
  add("fish", &fish_completion, "> ~/.config/fish/completions/zqpool.fish");
}

}  // namespace zqpool::cli
