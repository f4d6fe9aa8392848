#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "service/api/message.h"
#include "service/api/router.h"
#include "service/app/access_key.h"
#include "service/app/faults.h"
#include "service/store/database.h"

namespace zqpool::service {

/// Counters of the running process.
struct Statistics {
  std::atomic<std::int64_t> connections{0};        ///< open now
  std::atomic<std::int64_t> total_connections{0};  ///< since the start
  std::atomic<std::int64_t> requests{0};           ///< responses sent or attempted
};

/// Checks, routes and carries out requests. Thread-safe.
class Dispatcher {
 public:
  /// `router` must outlive this. Without a key every request is accepted.
  Dispatcher(Database& database, const Router& router, const std::optional<Access_Key>& access_key);

  /// How to handle a request, decided without the database.
  struct Plan {
    std::optional<Response> response;  ///< if set, only this is sent
    const Router::Route* route = nullptr;
    Fault_Pointer fault;
  };
  Plan plan(const Request& request);

  /// Carries out a plan that has no response yet; blocks on the database.
  Outcome run(const Plan& plan, const Request& request);

  /// Runs deferred work after its delay.
  Outcome run(const Deferred& deferred, const Request& request);

  Statistics& statistics() { return statistics_; }
  Fault_Script& faults() { return faults_; }

 private:
  /// Commits unless the action throws or its response is an error.
  Outcome in_transaction(Access access, const std::function<Outcome(Connection&)>& action);
  /// Turns what the action throws into a response.
  Outcome run_safely(const Request& request, const std::function<Outcome()>& action);

  Database& database_;
  const Router& router_;
  std::optional<Access_Key> access_key_;
  Fault_Script faults_;
  Statistics statistics_;
};

}  // namespace zqpool::service
