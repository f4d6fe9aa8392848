#include "service/app/dispatcher.h"

#include <SQLiteCpp/Exception.h>
#include <sqlite3.h>

#include <cstdio>

namespace zqpool::service {

namespace {

/// The response to a failure of the database, whose own message goes to standard error.
Response state_failure(const SQLite::Exception& error) {
  std::fprintf(stderr, "zqpoold: state: %s\n", error.what());
  switch (error.getErrorCode()) {
    case SQLITE_FULL:
      return error_response(507, "no space left for the state");
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return error_response(503, "the state is in use by another process");
    case SQLITE_IOERR:
      return error_response(503, "the state could not be read or written");
    default:
      return error_response(500, "the state failed");
  }
}

}  // namespace

Dispatcher::Dispatcher(Database& database, const Router& router,
                       const std::optional<Access_Key>& access_key)
    : database_(database), router_(router), access_key_(access_key) {}

Dispatcher::Plan Dispatcher::plan(const Request& request) {
  Plan plan;
  if (access_key_) {
    if (request.access_key.empty()) {
      plan.response = error_response(401, "one X-Access-Key header is needed");
      plan.response->headers.emplace_back("WWW-Authenticate", "X-Access-Key realm=\"zqpool\"");
      return plan;
    }
    if (!access_key_->matches(request.access_key)) {
      plan.response = error_response(403, "the access key is wrong");
      return plan;
    }
  }
  const std::string allowed =
      request.path == "*" ? "GET, HEAD, POST, PUT, DELETE, OPTIONS" : router_.allowed(request.path);
  if (allowed.empty()) {
    plan.response = error_response(404, "there is no '" + request.path.substr(0, 200) + "'");
    return plan;
  }
  if (request.method == Method::options) {
    plan.response = Response{204, "", {{"Allow", allowed}}};
    return plan;
  }
  plan.route = router_.find(request.method, request.path);
  if (!plan.route) {
    plan.response = error_response(405, "the path allows " + allowed);
    plan.response->headers.emplace_back("Allow", allowed);
    return plan;
  }
  // Never fault /zq/lab/, or a script could not be cleared.
  if (request.path.rfind("/zq/lab/", 0) != 0) {
    plan.fault = faults_.choose(request.method, request.path, request.query);
  }
  return plan;
}

Outcome Dispatcher::run(const Plan& plan, const Request& request) {
  if (plan.fault && !plan.fault->runs_operation()) {
    return Response{plan.fault->status, plan.fault->body, {}};
  }
  return run_safely(request, [&] {
    Parsed_Request parsed(request);
    return in_transaction(plan.route->access, [&](Connection& db) {
      Outcome outcome = plan.route->handler(db, parsed);
      parsed.finish();
      return outcome;
    });
  });
}

Outcome Dispatcher::run(const Deferred& deferred, const Request& request) {
  return run_safely(request, [&] { return in_transaction(deferred.access, deferred.handler); });
}

Outcome Dispatcher::in_transaction(Access access,
                                   const std::function<Outcome(Connection&)>& action) {
  Transaction transaction = database_.begin(access);
  Outcome outcome = action(transaction.db());
  const Response* const response = std::get_if<Response>(&outcome);
  if (!response || response->status < 400) transaction.commit();
  return outcome;
}

Outcome Dispatcher::run_safely(const Request& request, const std::function<Outcome()>& action) {
  try {
    return action();
  } catch (const Request_Error& error) {
    return error_response(error.status(), error.what());
  } catch (const SQLite::Exception& error) {
    return state_failure(error);
  } catch (const std::bad_alloc&) {
    return Response{
        503, R"({"error":{"code":503,"message":"the service is short of memory"}})", {}};
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zqpoold: %s %s failed: %s\n", method_name(request.method),
                 request.path.c_str(), error.what());
    return error_response(500, "the operation failed unexpectedly");
  }
}

}  // namespace zqpool::service
