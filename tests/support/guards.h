#pragma once

#include <chrono>
#include <vector>

#include "platform/http/http_options.h"
#include "platform/net/sleep.h"
#include "utils/support/sleep.h"

namespace zqpool::test {

/// While it lives, neither client nor operations sleep between attempts; requested pauses are
/// recorded. One at a time. Thread-safe.
class Sleep_Recorder {
 public:
  Sleep_Recorder();
  ~Sleep_Recorder();
  Sleep_Recorder(const Sleep_Recorder&) = delete;
  Sleep_Recorder& operator=(const Sleep_Recorder&) = delete;

  std::vector<std::chrono::milliseconds> pauses() const;

 private:
  detail::Sleep_Function client_before_;
  detail::Retry_Sleep operation_before_;
};

/// Puts the process's HTTP_Options back at the end of its scope.
class Options_Guard {
 public:
  Options_Guard() = default;
  /// Also sets `options`.
  explicit Options_Guard(const HTTP_Options& options) { HTTP_Options::set(options); }
  ~Options_Guard() { HTTP_Options::set(before_); }
  Options_Guard(const Options_Guard&) = delete;
  Options_Guard& operator=(const Options_Guard&) = delete;

 private:
  HTTP_Options before_ = HTTP_Options::get();
};

/// While it lives, nothing is logged, and no log text is formatted.
class Log_Silence {
 public:
  Log_Silence();
  ~Log_Silence();
  Log_Silence(const Log_Silence&) = delete;
  Log_Silence& operator=(const Log_Silence&) = delete;

 private:
  const unsigned long process_mask_;
  const unsigned long thread_mask_;
};

/// The options in force, with the test certificates' authority trusted.
HTTP_Options options_with_test_ca();

}  // namespace zqpool::test
