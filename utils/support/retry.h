#pragma once

#include <chrono>

#include "platform/net/backoff.h"
#include "utils/support/log.h"
#include "utils/support/sleep.h"

namespace zqpool::detail {

/// What one attempt came to.
enum class Attempt {
  done,   ///< it succeeded
  again,  ///< it failed, and may succeed later
  stop    ///< it failed, and trying again will not help
};

/// Calls `attempt` (of type Attempt()) until it is done, and sleeps between the calls: growing
/// random delays of whole seconds, at most 60 each. Returns true when an attempt was done, false
/// when one said stop or when it is time to give up, which is up to the caller to log.
///
/// `timeout` bounds the seconds slept, not the calls: another attempt follows while less than that
/// has been slept, so 0 makes one attempt and the last delay may pass the limit. -1 is no limit.
/// `location` is where the notices of further attempts say they come from.
template <typename Call>
bool retry(const Source_Location& location, int timeout, Call&& attempt,
           Exponential_Backoff_Iterator delay = {1, 4294967295U, 60, true}) {
  const Exponential_Backoff_Iterator end;
  for (int count = 1;; ++count, ++delay) {
    const Attempt result = attempt();
    if (result != Attempt::again) return result == Attempt::done;
    const bool in_time = timeout == -1 || delay.cumulation() < static_cast<unsigned>(timeout);
    if (!in_time || !(delay != end)) return false;
    ZQ_LOG_AT(location, LM_INFO, "Retry(%d) %s:%d at %u second(s) later.\n", count, location.file,
              location.line, *delay);
    sleep_before_retry(std::chrono::seconds(*delay));
  }
}

}  // namespace zqpool::detail
