#pragma once

#include <string>
#include <utility>

#include "platform/http/http_exchange_report.h"

namespace zqpool::detail {

/// Why a step failed: its class and the transport's own words.
struct Failure {
  HTTP_Error error = HTTP_Error::none;
  std::string text;
  bool permanent = false;  ///< trying again at once would fail the same way

  /// Yields false, so that a step may end with `return failure.set(...)`.
  bool set(HTTP_Error why, std::string words) {
    error = why;
    text = std::move(words);
    return false;
  }
};

/// The words of an errno.
std::string errno_text(int error_number);

}  // namespace zqpool::detail
