#include "service/lab/lab.h"

#include <ctime>

#include "service/api/request_fields.h"
#include "service/lab/guest_io.h"
#include "service/store/schema.h"

namespace zqpool::service {

namespace {

std::int64_t monotonic_seconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

bool read_replace(Parsed_Request& request) {
  Query_Fields& query = request.query;
  const std::string mode = query.text("mode").value_or("replace");
  if (mode != "replace" && mode != "merge") {
    throw Request_Error(400, "query field 'mode' must be replace or merge");
  }
  return mode == "replace";
}

/// Checks the foreign keys and runs the check of every resource family.
Response check_state(const std::vector<Check>& checks, Connection& db) {
  Object checked;
  Array problems;
  for (Statement row(db, "PRAGMA foreign_key_check"); row.next();) {
    problems.emplace_back("a row of " + row.text(0) + " refers to a missing row of " + row.text(2));
  }
  for (const Check& check : checks)
    checked.emplace(check.name, check.run(db, problems));
  return json_response(Object{{"checked", std::move(checked)}, {"problems", std::move(problems)}});
}

}  // namespace

void add_lab(Resources& resources, Dispatcher& dispatcher) {
  Router& router = resources.router;
  const Scenario& scenario = resources.scenario;
  const std::vector<Check>& checks = resources.checks;
  Fault_Script& faults = dispatcher.faults();
  const Statistics& statistics = dispatcher.statistics();
  router.add(
      Method::post, "/zq/lab/scenario", Access::write,
      [&scenario](Connection& db, Parsed_Request& request) {
        const bool replace = read_replace(request);
        return json_response(Object{{"loaded", scenario.load(db, request.body.whole(), replace)}});
      });
  router.add(
      Method::get, "/zq/lab/scenario", Access::read,
      [&scenario](Connection& db, Parsed_Request&) { return json_response(scenario.dump(db)); });
  router.add(Method::post, "/zq/lab/faults", Access::read,
             [&faults](Connection&, Parsed_Request& request) {
               const Object& script = request.body.whole();
               request.finish();
               return json_response(Object{{"ids", faults.add(script)}}, 201);
             });
  router.add(Method::get, "/zq/lab/faults", Access::read, [&faults](Connection&, Parsed_Request&) {
    return json_response(Object{{"faults", faults.list()}});
  });
  router.add(Method::del, "/zq/lab/faults", Access::read,
             [&faults](Connection&, Parsed_Request& request) {
               request.finish();
               return json_response(Object{{"removed", faults.clear()}});
             });
  router.add(Method::get, "/zq/lab/check", Access::read,
             [&checks](Connection& db, Parsed_Request&) { return check_state(checks, db); });
  add_guest_io(router);
  const std::int64_t started = monotonic_seconds();
  router.add(
      Method::get, "/zq/lab/health", Access::read,
      [&statistics, started](Connection&, Parsed_Request&) {
        return json_response(Object{{"status", "ok"},
                                    {"version", ZQPOOL_VERSION},
                                    {"schema", static_cast<std::int64_t>(schema_version)},
                                    {"uptime_seconds", monotonic_seconds() - started},
                                    {"connections", statistics.connections.load()},
                                    {"total_connections", statistics.total_connections.load()},
                                    {"requests", statistics.requests.load()}});
      });
}

}  // namespace zqpool::service
