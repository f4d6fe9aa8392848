#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace zqpool::service {

/// One request, as it is logged.
struct Access_Record {
  std::string peer;
  std::string request_id;
  std::string method;
  std::string target;   ///< path and query; the log hides secrets in it
  unsigned status = 0;  ///< 0: no response was sent
  std::uint64_t bytes = 0;
  std::chrono::microseconds duration{0};
  std::string fault;  ///< the scripted fault that happened, "" for none
  std::string note;   ///< why the response is incomplete or missing, else ""
};

/// Writes one line per request, each with one write(). Thread-safe.
class Access_Log {
 public:
  /// Appends to a file; "-" is standard output. Throws std::runtime_error.
  explicit Access_Log(std::string file);
  ~Access_Log();
  Access_Log(const Access_Log&) = delete;
  Access_Log& operator=(const Access_Log&) = delete;

  /// A line that cannot be written is dropped; the first failure is reported on standard error.
  void write(const Access_Record& record);
  /// Opens the file again by name, after log rotation moved it. Keeps the old one on failure.
  void reopen();

  /// The line without its newline: printable ASCII whatever the record holds.
  static std::string line(const Access_Record& record, const std::string& time);

 private:
  std::string file_;
  std::mutex mutex_;
  int descriptor_;
  bool failed_ = false;
};

/// The target with "***" for the value of each query field that may be secret: its name contains
/// "key", "secret", "token", "password", "passwd", "credential" or "signature".
std::string without_secrets(std::string_view target);

}  // namespace zqpool::service
