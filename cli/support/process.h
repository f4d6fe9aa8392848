#pragma once

#include <termios.h>

namespace zqpool::cli {

/// SIGINT ends the process at once with 130; a closed pipe is an error of write(), no signal; the
/// three standard descriptors are open, so that no socket takes their place.
void prepare_process();

/// Switches a terminal's echo off for its life. A signal that ends the process puts it back, too.
/// One at a time.
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
