#pragma once

#include <ace/Log_Msg_Backend.h>

#include <functional>
#include <string>

namespace zqpool::cli {

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

  /// This thread's last LM_ERROR line without its newline, "" when there was none since the last
  /// call.
  static std::string take_error();

 private:
  int open(const char* key) override;
  int reset() override;
  int close() override;
  ssize_t log(ACE_Log_Record& record) override;

  const bool show_;
  const std::function<void()> retrying_;
};

}  // namespace zqpool::cli
