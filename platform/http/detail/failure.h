#pragma once

#include <string>
#include <utility>

#include "platform/http/http_exchange_report.h"

namespace zqpool::detail {

/// Why a step failed.
struct Failure {
  HTTP_Error error = HTTP_Error::none;
  std::string text;
  bool permanent = false;  ///< a retry would fail the same way

  /// Returns false, so that a step may end with `return failure.set(...)`.
  bool set(HTTP_Error why, std::string words) {
    error = why;
    text = std::move(words);
    return false;
  }
};

/// The system's text for an errno.
std::string errno_text(int error_number);

}  // namespace zqpool::detail
