#pragma once

#include <chrono>

#include "platform/export.h"

namespace zqpool::detail {

/// Sleeps for the given time.
using Sleep_Function = void (*)(std::chrono::milliseconds);

/// Sleeps between two attempts. All retries of the process sleep here. Signals do not end it early.
ZQ_EXPORT void sleep_between_attempts(std::chrono::milliseconds time);

/// Replaces the function behind sleep_between_attempts() and returns the previous one; null
/// restores the real sleep. For tests.
ZQ_EXPORT Sleep_Function replace_sleep(Sleep_Function function) noexcept;

}  // namespace zqpool::detail
