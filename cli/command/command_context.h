#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/calls/library_call.h"
#include "cli/calls/library_log.h"
#include "cli/command/settings.h"
#include "cli/output/render.h"

namespace zqpool::cli {

struct Flags {
  bool dry_run = false;
  bool trace = false;
  bool verbose = false;
  bool quiet = false;
  bool insecure = false;
};

/// The service that a command calls.
struct Target {
  std::string url;  ///< "https://host:port"
  std::string host;
  unsigned short port = 0;
  bool ssl = false;
  std::string access_key;
  int retry_seconds = 0;  ///< for the operations that repeat failed attempts
};

/// What a verb works with: settings, calls of the library, messages and output.
class Command_Context {
 public:
  /// `command` is what messages begin with ("device show").
  Command_Context(std::string command, const Settings& settings, const Flags& flags);

  const Settings& settings() const noexcept { return settings_; }

  /// The service. The first call sets up the process's transport and may ask for the access key; it
  /// is not thread-safe, later ones are. Throws Usage_Error when a setting is missing or wrong.
  const Target& target();

  bool is_dry_run() const noexcept { return flags_.dry_run; }

  /// Calls one operation of the library on this thread.
  Outcome call(const Call_Policy& policy, const std::function<bool()>& operation) const {
    return call_library(policy, {flags_.dry_run, flags_.trace}, operation);
  }

  /// Work on one object; it may fill the object's record. Called from several threads at once.
  using Work = std::function<Outcome(const std::string& object, Object& record)>;

  // Each of these works on many objects, continues after a failure, and reports and prints in the
  // order of `objects`.

  /// For work that calls the service and fills records, which are printed.
  Exit_Code show(const std::vector<std::string>& objects, const Work& work);
  /// For work that calls the service and prints nothing.
  Exit_Code change(const std::vector<std::string>& objects, const Work& work);
  /// For work that needs no service; prints the records.
  Exit_Code derive(const std::vector<std::string>& objects, const Work& work);

  /// For a command with one call: reports its failure, or prints the request that was held back.
  Exit_Code report(const Outcome& outcome);

  /// The limit for one exchange.
  std::chrono::milliseconds timeout() const;

  void print(const std::vector<Record>& records);
  /// Prints the objects of a list that the service gave, each named by its member `name`.
  Exit_Code print_list(Array& list, const std::string& name);
  /// Prints text as it is, whatever the output format.
  void print_text(const std::string& text) { output_ += text; }
  bool is_table() const noexcept { return format_ == Output_Format::table; }
  /// All that was printed; written when the command has ended.
  const std::string& output() const noexcept { return output_; }

 private:
  void report_retry() const;
  void explain(const Outcome& outcome, const std::string& object) const;
  std::size_t jobs() const;
  void print_request(const std::string& object, const std::string& request);
  std::vector<Record> run_all(const std::vector<std::string>& objects, std::size_t jobs,
                              const Work& work, Exit_Code& code);

  const std::string command_;
  const Settings& settings_;
  const Flags flags_;
  const Output_Format format_;
  const Library_Log log_;
  std::optional<Target> target_;
  std::string output_;
};

}  // namespace zqpool::cli
