#pragma once

#include <chrono>

#include "utils/support/export.h"

namespace zqpool::detail {

/// Sleeps before an operation tries again; the whole time also when signals are handled meanwhile.
ZQPOOL_EXPORT void sleep_before_retry(std::chrono::milliseconds time);

using Retry_Sleep = void (*)(std::chrono::milliseconds);

/// Replaces what sleep_before_retry() does and returns what it did before; null puts the real sleep
/// back. For tests, so that none of them sleeps.
ZQPOOL_EXPORT Retry_Sleep replace_retry_sleep(Retry_Sleep function) noexcept;

}  // namespace zqpool::detail
