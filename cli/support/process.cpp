#include "cli/support/process.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>

#include "cli/support/exit_code.h"

namespace zqpool::cli {

namespace {

// Read by a signal handler: the descriptor is set last and cleared first.
std::atomic<int> echo_terminal{-1};
termios echo_before;

void restore_echo() {
  const int terminal = echo_terminal.exchange(-1);
  if (terminal >= 0) tcsetattr(terminal, TCSAFLUSH, &echo_before);
}

void end_process(int signal_number) {
  restore_echo();
  // Ends the line of a prompt or the progress.
  if (isatty(STDERR_FILENO) != 0 && write(STDERR_FILENO, "\n", 1) < 0) {
  }
  _exit(128 + signal_number);
}

}  // namespace

void prepare_process() {
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    // open() takes the lowest free number. The wrong direction on purpose: using it is an error.
    if (fcntl(descriptor, F_GETFD) < 0) open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY);
  }
  struct sigaction action = {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
  action.sa_handler = &end_process;
  for (const int ending : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    struct sigaction before = {};
    sigaction(ending, nullptr, &before);
    // Already ignored by our parent (nohup): leave it so.
    if (before.sa_handler != SIG_IGN) sigaction(ending, &action, nullptr);
  }
}

No_Echo::No_Echo(int terminal) {
  if (tcgetattr(terminal, &echo_before) != 0) return;
  termios silent = echo_before;
  silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  echo_terminal = terminal;
  off_ = tcsetattr(terminal, TCSAFLUSH, &silent) == 0;
}

No_Echo::~No_Echo() {
  restore_echo();
}

}  // namespace zqpool::cli
