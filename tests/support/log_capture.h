#pragma once

#include <ace/Log_Msg_Backend.h>

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace zqpool::test {

/// One record of the process's log.
struct Log_Line {
  std::string priority;  ///< "LM_ERROR"
  std::string text;      ///< whole, with its newline
  std::string file;      ///< source file that was recorded with it, "" if none was
  int line = 0;

  bool has_place() const { return !file.empty() && line > 0; }
};

std::ostream& operator<<(std::ostream& out, const Log_Line& line);

/// Collects all that the process logs through ACE, from every thread, instead of writing it to the
/// standard error. At the end of its scope it puts ACE back as it was, and fails the test when one
/// of the known Secrets was logged. Thread-safe.
class Log_Capture : private ACE_Log_Msg_Backend {
 public:
  Log_Capture();
  ~Log_Capture() override;
  Log_Capture(const Log_Capture&) = delete;
  Log_Capture& operator=(const Log_Capture&) = delete;

  /// What was logged so far, in order.
  std::vector<Log_Line> lines() const;
  /// As lines(), and forgets them.
  std::vector<Log_Line> take();
  /// The texts of one priority, in order.
  std::vector<std::string> texts(const std::string& priority) const;
  /// All texts joined, for "this appears nowhere".
  std::string all() const;

 private:
  int open(const char* key) override;
  int reset() override;
  int close() override;
  ssize_t log(ACE_Log_Record& record) override;

  mutable std::mutex mutex_;
  std::vector<Log_Line> lines_;
  std::string ever_;  // the texts of all lines, also of those that were taken
  unsigned long old_flags_;
  ACE_Log_Msg_Backend* old_backend_;
};

}  // namespace zqpool::test
