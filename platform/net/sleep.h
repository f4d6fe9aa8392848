#pragma once

#include <chrono>

#include "platform/export.h"

namespace zqpool::detail {

/// The one place where the process sleeps between attempts.
using Sleep_Function = void (*)(std::chrono::milliseconds);

/// Sleeps the whole time also when signals are handled meanwhile.
ZQ_EXPORT void sleep_between_attempts(std::chrono::milliseconds time);

/// Replaces what sleep_between_attempts() does and returns what it did before; null puts the real
/// sleep back. For tests, so that none of them sleeps.
ZQ_EXPORT Sleep_Function replace_sleep(Sleep_Function function) noexcept;

}  // namespace zqpool::detail
