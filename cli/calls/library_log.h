#pragma once

#include <ace/Log_Msg_Backend.h>

#include <functional>
#include <string>
#include <vector>

namespace zqpool::cli {

/// Lines of the library's log, in their order and without their newlines.
struct Captured_Log {
  std::vector<std::string> errors;
  std::vector<std::string> warnings;

  /// Whether one of the errors begins with `prefix`.
  bool has_error(const std::string& prefix) const;
};

/// Takes the library's log away from standard error, for the process's life: shown only when the
/// user asked for it. One object a process.
class Library_Log : private ACE_Log_Msg_Backend {
 public:
  /// With `show`, each line goes to standard error. `retrying` is called, on the thread that is
  /// about to pause, when an operation announces that it will ask again.
  Library_Log(bool show, std::function<void()> retrying);
  ~Library_Log() override;
  Library_Log(const Library_Log&) = delete;
  Library_Log& operator=(const Library_Log&) = delete;

  /// What this thread logged since the last call.
  static Captured_Log take();

 private:
  int open(const char* key) override;
  int reset() override;
  int close() override;
  ssize_t log(ACE_Log_Record& record) override;

  const bool show_;
  const std::function<void()> retrying_;
};

}  // namespace zqpool::cli
