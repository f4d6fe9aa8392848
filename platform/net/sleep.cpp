#include "platform/net/sleep.h"

#include <ace/OS_NS_unistd.h>
#include <ace/Time_Value.h>

#include <atomic>

namespace zqpool::detail {
namespace {

using Clock = std::chrono::steady_clock;

void sleep_for_real(std::chrono::milliseconds time) {
  const Clock::time_point end = Clock::now() + time;
  // A signal ends ACE's sleep early.
  for (auto left = end - Clock::now(); left > Clock::duration::zero(); left = end - Clock::now()) {
    ACE_OS::sleep(ACE_Time_Value(std::chrono::ceil<std::chrono::microseconds>(left)));
  }
}

std::atomic<Sleep_Function> sleep_function{&sleep_for_real};

}  // namespace

void sleep_between_attempts(std::chrono::milliseconds time) {
  sleep_function.load()(time);
}

Sleep_Function replace_sleep(Sleep_Function function) noexcept {
  return sleep_function.exchange(function != nullptr ? function : &sleep_for_real);
}

}  // namespace zqpool::detail
