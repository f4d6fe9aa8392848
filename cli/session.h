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
  /// judge_answer().
  Outcome call(Effect effect, const char* absent, const std::function<bool()>& operation);

  /// Says why a call failed, if it did; `object` names what it was about, "" when that is clear.
  void explain(const Outcome& outcome, const std::string& object = "") const;

  /// Fetches one object; may be called from several threads at once.
  using Fetch = std::function<Outcome(const Target&, const std::string& name, Object& record)>;
  /// Fetches one object for each of `arguments` ("-": the lines of standard input) and prints them
  /// in that order; goes on after a failure.
  Exit_Code show(const std::vector<std::string>& arguments, const Fetch& fetch);

  void print(const std::vector<Record>& records);
  /// All that was printed; it goes out when the command has ended.
  const std::string& output() const noexcept { return output_; }

 private:
  void asking_again() const;

  const std::string command_;
  const Settings& settings_;
  const Flags flags_;
  const Output_Format format_;
  const Library_Log log_;
  std::optional<Target> target_;
  std::string output_;
};

}  // namespace zqpool::cli
