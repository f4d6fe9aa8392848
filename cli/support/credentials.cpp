#include "cli/support/credentials.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "cli/support/exit_code.h"
#include "cli/support/messages.h"
#include "cli/support/process.h"
#include "cli/support/terminal.h"

namespace zqpool::cli {

namespace {

constexpr std::size_t longest_key = 4096;

std::string checked(std::string key, const std::string& what) {
  while (!key.empty() && (key.back() == '\n' || key.back() == '\r'))
    key.pop_back();
  if (key.empty()) throw Usage_Error(what + ": it is empty");
  for (const char c : key) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte > 0x7e) {
      throw Usage_Error(what + ": it is more than one line of printable ASCII");
    }
  }
  return key;
}

std::string ask_for_key(const std::string& endpoint) {
  const Descriptor terminal = open_terminal();
  if (!terminal.is_open()) {
    throw Usage_Error(
        "no access key: name its file with --access-key-file or ZQPOOL_ACCESS_KEY_FILE (there is "
        "no terminal to ask on)");
  }
  std::string key;
  {
    const No_Echo no_echo(terminal.get());
    if (!no_echo.off()) throw Usage_Error("no access key: the terminal's echo stays on");
    write_all(terminal.get(), "Access key for " + endpoint + ": ");
    key = read_text(terminal.get(), true, longest_key, "access key");
  }
  write_all(terminal.get(), "\n");
  return checked(std::move(key), "access key");
}

}  // namespace

std::string read_secret_file(const std::string& file, const std::string& kind) {
  const std::string what = kind + " file " + file;
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
  if (!descriptor.is_open()) throw Usage_Error(what + ": " + std::strerror(errno));
  struct stat status = {};
  if (fstat(descriptor.get(), &status) == 0 && S_ISREG(status.st_mode) &&
      (status.st_mode & S_IROTH) != 0) {
    note("warning: " + what + ": every user of this machine may read it (chmod o-r)");
  }
  return checked(read_text(descriptor.get(), false, longest_key, what), what);
}

std::string obtain_access_key(const std::string& file, const std::string& endpoint) {
  return file.empty() ? ask_for_key(endpoint) : read_secret_file(file, "access key");
}

}  // namespace zqpool::cli
