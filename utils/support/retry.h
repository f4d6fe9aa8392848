#pragma once

#include <chrono>

#include "platform/net/backoff.h"
#include "utils/support/log.h"
#include "utils/support/sleep.h"

namespace zqpool::detail {

/// The outcome of an attempt.
enum class Attempt {
  done,   ///< success
  again,  ///< failed, a retry may help
  stop    ///< failed, a retry cannot help
};

/// Calls `attempt` (of type Attempt()) until it is done, with growing random delays of whole
/// seconds in between, at most 60 each. Returns false, without a message, when an attempt says stop
/// or the time is up.
///
/// `timeout` limits the seconds slept: a retry follows as long as less than that has been slept. So
/// 0 makes one attempt, and the last delay may exceed the limit. -1: no limit. Notices of further
/// attempts are logged with `location`.
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
