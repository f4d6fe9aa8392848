#include "cli/support/messages.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>

#include "cli/support/printable.h"

namespace zqpool::cli {

namespace {

std::mutex mutex;
std::atomic<bool> quiet_wanted{false};
bool progress_shown = false;  // under the mutex

constexpr std::string_view erase_line = "\r\x1b[K";

void put_line(std::string_view start, std::string_view text) {
  const std::lock_guard<std::mutex> lock(mutex);
  std::string line(progress_shown ? erase_line : "");
  progress_shown = false;
  line += start;
  line += printable(text);
  line += '\n';
  // If standard error fails there is nowhere left to report it.
  write_all(STDERR_FILENO, line);
}

}  // namespace

void set_quiet(bool quiet) {
  quiet_wanted = quiet;
}

void say(std::string_view line) {
  put_line("zqpool: ", line);
}

void say_plain(std::string_view line) {
  put_line("", line);
}

void note(std::string_view line) {
  if (!quiet_wanted) say(line);
}

void show_progress(std::size_t done, std::size_t total) {
  if (quiet_wanted || isatty(STDERR_FILENO) == 0) return;
  const std::lock_guard<std::mutex> lock(mutex);
  progress_shown = true;
  write_all(STDERR_FILENO, std::string(erase_line) + std::to_string(done) + " of " +
                               std::to_string(total) + " done");
}

void clear_progress() {
  const std::lock_guard<std::mutex> lock(mutex);
  if (!progress_shown) return;
  progress_shown = false;
  write_all(STDERR_FILENO, erase_line);
}

bool write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0) {
      if (errno == EAGAIN) {
        // Another process that shares the descriptor made it non-blocking.
        pollfd wanted = {descriptor, POLLOUT, 0};
        poll(&wanted, 1, -1);
      } else if (errno != EINTR) {
        return false;
      }
      continue;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace zqpool::cli
