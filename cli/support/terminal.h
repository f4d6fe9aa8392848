#pragma once

#include <cstddef>
#include <string>

namespace zqpool::cli {

/// An open file, or none; closed when it ends.
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

/// The terminal at which the user sits, whatever the standard streams are; not open when there is
/// none.
Descriptor open_terminal();

/// Reads to the end of the file, or of the line with `line`. Throws Usage_Error, which begins with
/// `what`, when that fails or gives more than `most` bytes.
std::string read_text(int descriptor, bool line, std::size_t most, const std::string& what);

}  // namespace zqpool::cli
