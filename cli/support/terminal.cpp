#include "cli/support/terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cli/support/exit_code.h"

namespace zqpool::cli {

Descriptor::~Descriptor() {
  if (number_ >= 0) close(number_);
}

Descriptor open_terminal() {
  return Descriptor(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
}

std::string read_line(int descriptor, std::size_t max_size, const std::string& what) {
  std::string text;
  char buffer[512];
  for (;;) {
    const ssize_t n = read(descriptor, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw Usage_Error(what + ": " + std::strerror(errno));
    text.append(buffer, static_cast<std::size_t>(n));
    if (text.size() > max_size) throw Usage_Error(what + ": it is too long");
    if (n == 0 || text.find('\n') != std::string::npos) return text;
  }
}

}  // namespace zqpool::cli
