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

bool read_replace(const Request& request) {
  Query_Fields query(request);
  const std::string mode = query.text("mode").value_or("replace");
  query.finish();
  if (mode != "replace" && mode != "merge") {
    throw Refusal(400, "query field 'mode' must be replace or merge");
  }
  return mode == "replace";
}

/// Whether the state contradicts itself: its references, and what each family knows.
Answer check_state(const std::vector<Check>& checks, Store& store) {
  Object checked;
  Array problems;
  for (Store::Query row(store, "PRAGMA foreign_key_check"); row.next();) {
    problems.emplace_back("a row of " + row.text(0) + " refers to nothing in " + row.text(2));
  }
  for (const Check& check : checks)
    checked.emplace(check.name, check.run(store, problems));
  return json_answer(Object{{"checked", std::move(checked)}, {"problems", std::move(problems)}});
}

}  // namespace

void add_lab(Families& families, Dispatcher& dispatcher) {
  Router& router = families.router;
  const Scenario& scenario = families.scenario;
  const std::vector<Check>& checks = families.checks;
  Fault_Script& faults = dispatcher.faults();
  const Statistics& statistics = dispatcher.statistics();
  router.add(
      Method::post, "/zq/lab/scenario", Access::change,
      [&scenario](Store& store, const Request& request) {
        const bool replace = read_replace(request);
        return json_answer(Object{{"loaded", scenario.load(store, body_object(request), replace)}});
      });
  router.add(Method::get, "/zq/lab/scenario", Access::read,
             [&scenario](Store& store, const Request& request) {
               no_query(request);
               return json_answer(scenario.dump(store));
             });
  router.add(Method::post, "/zq/lab/faults", Access::read,
             [&faults](Store&, const Request& request) {
               no_query(request);
               return json_answer(Object{{"ids", faults.add(body_object(request))}}, 201);
             });
  router.add(Method::get, "/zq/lab/faults", Access::read,
             [&faults](Store&, const Request& request) {
               no_query(request);
               return json_answer(Object{{"faults", faults.list()}});
             });
  router.add(Method::del, "/zq/lab/faults", Access::read,
             [&faults](Store&, const Request& request) {
               no_query(request);
               return json_answer(Object{{"removed", faults.clear()}});
             });
  router.add(Method::get, "/zq/lab/check", Access::read,
             [&checks](Store& store, const Request& request) {
               no_query(request);
               return check_state(checks, store);
             });
  add_guest_io(router);
  const std::int64_t started = monotonic_seconds();
  router.add(Method::get, "/zq/lab/health", Access::read,
             [&statistics, started](Store&, const Request& request) {
               no_query(request);
               return json_answer(Object{{"status", "ok"},
                                         {"version", ZQPOOL_VERSION},
                                         {"schema", static_cast<std::int64_t>(schema_version)},
                                         {"uptime_seconds", monotonic_seconds() - started},
                                         {"connections", statistics.connections.load()},
                                         {"total_connections", statistics.total_connections.load()},
                                         {"requests", statistics.requests.load()}});
             });
}

}  // namespace zqpool::service
