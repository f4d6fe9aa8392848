#pragma once

#include <termios.h>

namespace zqpool::cli {

/// Sets up signals and descriptors: signals that end the process restore the terminal first, a
/// closed pipe is an error of write() instead of a signal, and the three standard descriptors are
/// open, so that no socket takes their place.
void prepare_process();

/// Switches a terminal's echo off during its lifetime. A signal that ends the process restores it,
/// too. One at a time.
class No_Echo {
 public:
  explicit No_Echo(int terminal);
  ~No_Echo();
  No_Echo(const No_Echo&) = delete;
  No_Echo& operator=(const No_Echo&) = delete;

  /// False when the terminal's echo cannot be switched off.
  bool off() const noexcept { return off_; }

 private:
  bool off_ = false;
};

}  // namespace zqpool::cli
