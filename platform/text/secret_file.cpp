#include "platform/text/secret_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace zqpool::text {

namespace {

struct Descriptor {
  explicit Descriptor(int opened) noexcept : number(opened) {}
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  const int number;
};

[[noreturn]] void throw_errno() {
  throw std::runtime_error(std::generic_category().message(errno));
}

}  // namespace

std::string checked_secret(std::string text) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (!text.empty() && text.back() == '\r') text.pop_back();
  if (text.empty()) throw std::runtime_error("it is empty");
  if (text.size() > max_secret_size) {
    throw std::runtime_error("it is longer than " + std::to_string(max_secret_size) + " bytes");
  }
  const auto is_printable = [](char c) { return c >= ' ' && c <= '~'; };
  if (!std::all_of(text.begin(), text.end(), is_printable)) {
    throw std::runtime_error("it is more than one line of printable ASCII");
  }
  if (text.front() == ' ' || text.back() == ' ') {
    throw std::runtime_error("it begins or ends with a blank");
  }
  return text;
}

Secret_File read_secret_file(const std::string& file) {
  const Descriptor descriptor(::open(file.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
  if (descriptor.number < 0) throw_errno();
  std::string text;
  char buffer[512];
  // Two more bytes for the line end. A file that is too long is not read to its end.
  while (text.size() <= max_secret_size + 2) {
    const ssize_t count = ::read(descriptor.number, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw_errno();
    if (count == 0) break;
    text.append(buffer, static_cast<std::size_t>(count));
  }
  struct stat status = {};
  const bool open_to_others = ::fstat(descriptor.number, &status) == 0 && S_ISREG(status.st_mode) &&
                              (status.st_mode & (S_IROTH | S_IWOTH)) != 0;
  return {checked_secret(std::move(text)), open_to_others};
}

}  // namespace zqpool::text
