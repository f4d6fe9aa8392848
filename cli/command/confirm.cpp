#include "cli/command/confirm.h"

#include "cli/support/exit_code.h"
#include "cli/support/messages.h"
#include "cli/support/printable.h"
#include "cli/support/terminal.h"

namespace zqpool::cli {

void confirm(bool yes, const std::string& doing, const std::vector<std::string>& objects,
             const std::string& kind) {
  if (yes || objects.empty()) return;
  const std::string question =
      doing + ' ' +
      (objects.size() == 1 ? objects.front() : std::to_string(objects.size()) + ' ' + kind) + '?';
  const Descriptor terminal = open_terminal();
  if (!terminal.is_open()) {
    throw Usage_Error(question + " Confirm with --yes (there is no terminal to ask on)");
  }
  write_all(terminal.get(), printable(question) + " [y/N] ");
  constexpr std::size_t max_answer = 4096;
  const std::string answer = read_line(terminal.get(), max_answer, "the answer");
  if (answer != "y\n" && answer != "yes\n") {
    throw Command_Error(Exit_Code::failed, "not confirmed, nothing was done");
  }
}

}  // namespace zqpool::cli
