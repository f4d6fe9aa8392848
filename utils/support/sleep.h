#pragma once

#include <chrono>

#include "utils/support/export.h"

// The same as platform/net/sleep.h, which a platform of somebody else does not offer.

namespace zqpool::detail {

/// Sleeps before an operation tries again. Signals do not end it early.
ZQPOOL_EXPORT void sleep_before_retry(std::chrono::milliseconds time);

using Retry_Sleep = void (*)(std::chrono::milliseconds);

/// Replaces the function behind sleep_before_retry() and returns the previous one; null restores
/// the real sleep. For tests.
ZQPOOL_EXPORT Retry_Sleep replace_retry_sleep(Retry_Sleep function) noexcept;

}  // namespace zqpool::detail
