#include "cli/support/credentials.h"

#include <stdexcept>

#include "cli/support/exit_code.h"
#include "cli/support/messages.h"
#include "cli/support/process.h"
#include "cli/support/terminal.h"
#include "platform/text/secret_file.h"

namespace zqpool::cli {

namespace {

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
    key = read_line(terminal.get(), text::max_secret_size + 1, "access key");
  }
  write_all(terminal.get(), "\n");
  try {
    return text::checked_secret(std::move(key));
  } catch (const std::runtime_error& error) {
    throw Usage_Error(std::string("access key: ") + error.what());
  }
}

}  // namespace

std::string read_secret(const std::string& file, const std::string& kind) {
  const std::string what = kind + " file " + file;
  try {
    text::Secret_File read = text::read_secret_file(file);
    if (read.open_to_others) {
      note("warning: " + what + ": every user of this machine may read or write it (chmod o-rw)");
    }
    return std::move(read.secret);
  } catch (const std::runtime_error& error) {
    throw Usage_Error(what + ": " + error.what());
  }
}

std::string obtain_access_key(const std::string& file, const std::string& endpoint) {
  return file.empty() ? ask_for_key(endpoint) : read_secret(file, "access key");
}

}  // namespace zqpool::cli
