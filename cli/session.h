#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/endpoint.h"
#include "cli/library_log.h"
#include "cli/outcome.h"
#include "cli/render.h"
#include "cli/settings.h"

namespace zqpool::cli {

struct Flags {
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

/// One command at work: its settings, its calls of the library, its messages and its output.
class Session {
 public:
  /// `command` is what messages begin with ("device show").
  Session(std::string command, const Settings& settings, const Flags& flags);

  const Settings& settings() const noexcept { return settings_; }

  /// The service; at first use sets up the process's transport and asks for the key if need be.
  /// Throws Usage_Error when a setting is missing or wrong. Not thread-safe at first use.
  const Target& target();

  /// Calls one library operation on this thread and says what came of it. `absent`: see
  /// judge_answer(). `said` receives the library's message, where it is not null.
  Outcome call(Effect effect, const char* absent, const std::function<bool()>& operation,
               std::string* said = nullptr);

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

  void print(const std::vector<Record>& records);
  /// All that was printed; it goes out when the command has ended.
  const std::string& output() const noexcept { return output_; }

 private:
  void asking_again() const;
  std::size_t jobs() const;
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
