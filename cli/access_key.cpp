#include "cli/access_key.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cli/exit_code.h"
#include "cli/messages.h"
#include "cli/signals.h"

namespace zqpool::cli {

namespace {

constexpr std::size_t longest_key = 4096;

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const noexcept { return number_; }

 private:
  int number_;
};

/// Reads to the end of the file, or of the line with `line`.
std::string read_key(int descriptor, bool line, const std::string& what) {
  std::string key;
  char buffer[512];
  for (;;) {
    const ssize_t n = read(descriptor, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw Usage_Error(what + ": " + std::strerror(errno));
    key.append(buffer, static_cast<std::size_t>(n));
    if (key.size() > longest_key) throw Usage_Error(what + ": too long for an access key");
    if (n == 0 || (line && key.find('\n') != std::string::npos)) return key;
  }
}

std::string checked_key(std::string key, const std::string& what) {
  while (!key.empty() && (key.back() == '\n' || key.back() == '\r'))
    key.pop_back();
  if (key.empty()) throw Usage_Error(what + ": it holds no access key");
  for (const char c : key) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte > 0x7e) {
      throw Usage_Error(what + ": an access key is one line of printable ASCII");
    }
  }
  return key;
}

std::string ask_for_key(const std::string& endpoint) {
  const Descriptor terminal(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (terminal.get() < 0) {
    throw Usage_Error(
        "no access key: name its file with --access-key-file or ZQPOOL_ACCESS_KEY_FILE (there is "
        "no terminal to ask on)");
  }
  std::string key;
  {
    const No_Echo no_echo(terminal.get());
    if (!no_echo.off()) throw Usage_Error("no access key: the terminal's echo stays on");
    write_all(terminal.get(), "Access key for " + endpoint + ": ");
    key = read_key(terminal.get(), true, "access key");
  }
  write_all(terminal.get(), "\n");
  return checked_key(std::move(key), "access key");
}

}  // namespace

std::string obtain_access_key(const std::string& file, const std::string& endpoint) {
  if (file.empty()) return ask_for_key(endpoint);
  const std::string what = "access key file " + file;
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
  if (descriptor.get() < 0) throw Usage_Error(what + ": " + std::strerror(errno));
  struct stat status = {};
  if (fstat(descriptor.get(), &status) == 0 && S_ISREG(status.st_mode) &&
      (status.st_mode & S_IROTH) != 0) {
    note("warning: " + what + ": every user of this machine may read it (chmod o-r)");
  }
  return checked_key(read_key(descriptor.get(), false, what), what);
}

}  // namespace zqpool::cli
