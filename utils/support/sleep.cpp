#include "utils/support/sleep.h"

#include <ace/OS_NS_unistd.h>
#include <ace/Time_Value.h>

#include <atomic>

namespace zqpool::detail {
namespace {

using Clock = std::chrono::steady_clock;

void sleep_for_real(std::chrono::milliseconds time) {
  const Clock::time_point end = Clock::now() + time;
  // A handled signal ends ACE's sleep early, so go on with what is left.
  for (auto left = end - Clock::now(); left > Clock::duration::zero(); left = end - Clock::now()) {
    ACE_OS::sleep(ACE_Time_Value(std::chrono::ceil<std::chrono::microseconds>(left)));
  }
}

std::atomic<Retry_Sleep> retry_sleep{&sleep_for_real};

}  // namespace

void sleep_before_retry(std::chrono::milliseconds time) {
  retry_sleep.load()(time);
}

Retry_Sleep replace_retry_sleep(Retry_Sleep function) noexcept {
  return retry_sleep.exchange(function != nullptr ? function : &sleep_for_real);
}

}  // namespace zqpool::detail
