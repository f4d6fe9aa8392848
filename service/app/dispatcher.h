#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "service/api/message.h"
#include "service/api/resources.h"
#include "service/api/router.h"
#include "service/app/access_key.h"
#include "service/app/faults.h"
#include "service/store/store.h"

namespace zqpool::service {

/// Counts of the running process.
struct Statistics {
  std::atomic<std::int64_t> connections{0};        ///< open now
  std::atomic<std::int64_t> total_connections{0};  ///< since the start
  std::atomic<std::int64_t> requests{0};           ///< answered, or tried to be
};

/// The service without its sockets: what is done with a request, and what is answered. Thread-safe.
class Service {
 public:
  /// Without a key every request is let in. With `lab` the paths under /zq/lab/ exist.
  Service(State& state, Families families, const std::optional<Access_Key>& access_key, bool lab);

  /// What is to become of a request, decided without touching the state.
  struct Plan {
    std::optional<Answer> refusal;  ///< answered at once, without any fault
    const Router::Route* route = nullptr;
    Fault_Pointer fault;
  };
  Plan plan(const Request& request);

  /// Carries out what was planned; blocks on the state. Never throws except std::bad_alloc.
  Answer run(const Plan& plan, const Request& request);

  /// Gives the answer that run() put off, when its time has come. Never throws except
  /// std::bad_alloc.
  Answer follow_up(const Followup& followup, const Request& request);

  Statistics& statistics() { return statistics_; }
  Fault_Script& faults() { return faults_; }
  const Scenario& scenario() const { return families_.scenario; }
  const std::vector<Check>& checks() const { return families_.checks; }

 private:
  Answer run_operation(Access access, const Handler& handler, const Request& request);

  State& state_;
  std::optional<Access_Key> access_key_;
  Families families_;
  Fault_Script faults_;
  Statistics statistics_;
};

}  // namespace zqpool::service
