#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/calls/library_log.h"
#include "cli/calls/outcome.h"
#include "cli/command/settings.h"
#include "cli/output/render.h"
#include "cli/support/endpoint.h"

namespace zqpool::cli {

struct Flags {
  bool dry_run = false;
  bool trace = false;
  bool verbose = false;
  bool quiet = false;
  bool insecure = false;
};

/// The service of one command and what it takes to speak to it.
struct Target {
  Endpoint endpoint;
  std::string access_key;
  int retry_seconds = 0;  ///< for the operations that go on asking
};

/// How a call of the library is judged.
struct Way {
  enum Spoiling { errors_may_be, an_error_spoils_it };

  Effect effect;
  const char* absent = nullptr;  ///< see judge_answer()
  Said* said = nullptr;          ///< receives what the library logged
  /// Whether an error in the log counts also when the operation is content.
  Spoiling spoiling = errors_may_be;
};

/// One command at work: its settings, its calls of the library, its messages and its output.
class Session {
 public:
  /// `command` is what messages begin with ("device show").
  Session(std::string command, const Settings& settings, const Flags& flags);

  const Settings& settings() const noexcept { return settings_; }

  /// The service; at first use sets up the process's transport and asks for the key if need be.
  /// Throws Usage_Error when a setting is missing or wrong. Not thread-safe at first use.
  const Target& target();

  /// Whether nothing is to be changed, and requests are shown instead.
  bool is_dry_run() const noexcept { return flags_.dry_run; }

  /// Calls one library operation on this thread and says what came of it.
  Outcome call(const Way& way, const std::function<bool()>& operation);

  /// Says why a call failed, if it did; `object` names what it was about, "" when that is clear.
  void explain(const Outcome& outcome, const std::string& object = "") const;

  // What follows works on many objects, goes on after a failure, and tells and prints in the order
  // of `objects`. What it is given may be called from several threads at once.

  /// Fetches each object from the service and prints it.
  using Fetch = std::function<Outcome(const Target&, const std::string& name, Object& record)>;
  Exit_Code show(const std::vector<std::string>& objects, const Fetch& fetch);

  /// Changes something of each object at the service; prints nothing.
  using Change = std::function<Outcome(const Target&, const std::string& name)>;
  Exit_Code change(const std::vector<std::string>& objects, const Change& change);

  /// Makes a record of each object without any service and prints it.
  using Derive = std::function<Outcome(const std::string& name, Object& record)>;
  Exit_Code derive(const std::vector<std::string>& objects, const Derive& derive);

  /// For a command with one call: explains its failure, or prints the request that was held back.
  Exit_Code report(const Outcome& outcome);

  /// The limit for one exchange.
  std::chrono::milliseconds timeout() const;

  void print(const std::vector<Record>& records);
  /// Prints the objects of a list that the service gave, each under its member `name`.
  Exit_Code print_list(Array& list, const std::string& name);
  /// Prints a text in the place of a table.
  void print_text(const std::string& text) { output_ += text; }
  bool is_table() const noexcept { return format_ == Output_Format::table; }
  /// All that was printed; it goes out when the command has ended.
  const std::string& output() const noexcept { return output_; }

 private:
  void asking_again() const;
  std::size_t jobs() const;
  void print_request(const std::string& object, const std::string& request);
  std::vector<Record> work_off(const std::vector<std::string>& objects, std::size_t jobs,
                               const Derive& work, Exit_Code& code);

  const std::string command_;
  const Settings& settings_;
  const Flags flags_;
  const Output_Format format_;
  const Library_Log log_;
  std::optional<Target> target_;
  std::string output_;
};

}  // namespace zqpool::cli
