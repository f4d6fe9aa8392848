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

/// Captures the library's log instead of letting it go to standard error. One object per process.
class Library_Log : private ACE_Log_Msg_Backend {
 public:
  /// With `show`, each line also goes to standard error. `retrying` is called on the operation's
  /// thread when it logs that it will try again.
  Library_Log(bool show, std::function<void()> retrying);
  ~Library_Log() override;
  Library_Log(const Library_Log&) = delete;
  Library_Log& operator=(const Library_Log&) = delete;

  /// What this thread logged since its last call.
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
