#pragma once

#include <cstddef>
#include <string>

namespace zqpool::cli {

/// Owns a file descriptor, or none (-1).
class Descriptor {
 public:
  explicit Descriptor(int number) noexcept : number_(number) {}
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const noexcept { return number_; }
  bool is_open() const noexcept { return number_ >= 0; }

 private:
  int number_;
};

/// Opens the user's terminal, whatever the standard streams are; not open when there is none.
Descriptor open_terminal();

/// Reads a line, with its end, or what comes before the end of the input. Throws Usage_Error, which
/// begins with `what`, on an error and for more than `max_size` bytes.
std::string read_line(int descriptor, std::size_t max_size, const std::string& what);

}  // namespace zqpool::cli
