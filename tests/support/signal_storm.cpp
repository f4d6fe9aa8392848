#include "tests/support/signal_storm.h"

#include <atomic>

namespace zqpool::test {
namespace {

std::atomic<int> signals{0};

void tick_every(int microseconds) {
  itimerval timer{};
  timer.it_interval.tv_usec = microseconds;
  timer.it_value.tv_usec = microseconds;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

Signal_Storm::Signal_Storm() {
  signals = 0;
  struct sigaction action {};
  action.sa_handler = [](int) { ++signals; };
  sigaction(SIGALRM, &action, &before_);
  tick_every(5000);
}

Signal_Storm::~Signal_Storm() {
  tick_every(0);
  sigaction(SIGALRM, &before_, nullptr);
}

int Signal_Storm::count() const {
  return signals;
}

}  // namespace zqpool::test
