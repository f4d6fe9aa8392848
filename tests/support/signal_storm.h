#pragma once

#include <signal.h>
#include <sys/time.h>

namespace zqpool::test {

/// While it lives, SIGALRM comes every few milliseconds, with a handler that does nothing and
/// without restarting system calls. One at a time.
class Signal_Storm {
 public:
  Signal_Storm();
  ~Signal_Storm();
  Signal_Storm(const Signal_Storm&) = delete;
  Signal_Storm& operator=(const Signal_Storm&) = delete;

  /// The number of signals so far.
  int count() const;

 private:
  struct sigaction before_;
};

}  // namespace zqpool::test
