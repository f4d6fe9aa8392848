#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace zqpool::service {

/// What is written of one request.
struct Access_Record {
  std::string peer;
  std::string request_id;
  std::string method;
  std::string target;   ///< path and query; secrets in it are hidden by the log
  unsigned status = 0;  ///< 0: no answer was given
  std::uint64_t bytes = 0;
  std::chrono::microseconds duration{0};
  std::string fault;  ///< what was done to the answer by script, "" for nothing
  std::string note;   ///< why there was no whole answer, "" for nothing
};

/// One line a request, each in one write. Thread-safe.
class Access_Log {
 public:
  /// A file that is appended to, "-" for standard output. Throws std::runtime_error.
  explicit Access_Log(std::string file);
  ~Access_Log();
  Access_Log(const Access_Log&) = delete;
  Access_Log& operator=(const Access_Log&) = delete;

  /// A line that cannot be written is dropped, and said once on standard error.
  void write(const Access_Record& record);
  /// Opens the file again under its name, after it was moved away. Keeps the old one on failure.
  void reopen();

  /// The line, without its newline: printable ASCII whatever the record holds.
  static std::string line(const Access_Record& record, const std::string& time);

 private:
  std::string file_;
  std::mutex mutex_;
  int descriptor_;
  bool failed_ = false;
};

/// The target with the values of query fields that may be secrets (their name holds "key",
/// "secret", "token", "password", "passwd", "credential" or "signature") written as "***".
std::string without_secrets(std::string_view target);

}  // namespace zqpool::service
