#include "service/app/dispatcher.h"

#include <SQLiteCpp/Exception.h>
#include <sqlite3.h>

#include <cstdio>

#include "service/lab/lab.h"

namespace zqpool::service {

namespace {

/// The answer for a state that failed; the text for the log goes to standard error.
Answer state_failure(const SQLite::Exception& error) {
  std::fprintf(stderr, "zqpoold: state: %s\n", error.what());
  switch (error.getErrorCode()) {
    case SQLITE_FULL:
      return error_answer(507, "no space left for the state");
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return error_answer(503, "the state is in use by another process");
    case SQLITE_IOERR:
      return error_answer(503, "the state could not be read or written");
    default:
      return error_answer(500, "the state failed");
  }
}

}  // namespace

Service::Service(State& state, Families families, const std::optional<Access_Key>& access_key,
                 bool lab)
    : state_(state), access_key_(access_key), families_(std::move(families)) {
  if (lab) add_lab(families_.router, *this);
}

Service::Plan Service::plan(const Request& request) {
  Plan plan;
  if (access_key_) {
    if (request.access_key.empty()) {
      plan.refusal = error_answer(401, "one X-Access-Key header is needed");
      plan.refusal->headers.emplace_back("WWW-Authenticate", "X-Access-Key realm=\"zqpool\"");
      return plan;
    }
    if (!access_key_->matches(request.access_key)) {
      plan.refusal = error_answer(403, "the access key is wrong");
      return plan;
    }
  }
  const std::string allowed = request.path == "*" ? "GET, HEAD, POST, PUT, DELETE, OPTIONS"
                                                  : families_.router.allowed(request.path);
  if (allowed.empty()) {
    plan.refusal = error_answer(404, "there is no '" + request.path.substr(0, 200) + "'");
    return plan;
  }
  if (request.method == Method::options) {
    plan.refusal = Answer{204, "", {{"Allow", allowed}}};
    return plan;
  }
  plan.route = families_.router.find(request.method, request.path);
  if (!plan.route) {
    plan.refusal = error_answer(405, "the path takes " + allowed);
    plan.refusal->headers.emplace_back("Allow", allowed);
    return plan;
  }
  // The way out of a script must stay open.
  if (request.path.rfind("/zq/lab/", 0) != 0) {
    plan.fault = faults_.choose(request.method, request.path, request.query);
  }
  return plan;
}

Answer Service::run(const Plan& plan, const Request& request) {
  if (plan.refusal) return *plan.refusal;
  if (plan.fault && plan.fault->kind == Fault_Kind::status) {
    return {plan.fault->status, plan.fault->body, {}};
  }
  return run_operation(plan.route->access, plan.route->handler, request);
}

Answer Service::follow_up(const Followup& followup, const Request& request) {
  return run_operation(followup.access, followup.handler, request);
}

Answer Service::run_operation(Access access, const Handler& handler, const Request& request) {
  try {
    Transaction transaction = state_.begin(access);
    Answer answer = handler(transaction.store(), request);
    if (answer.status < 400) transaction.commit();
    return answer;
  } catch (const Refusal& refusal) {
    return error_answer(refusal.status(), refusal.what());
  } catch (const SQLite::Exception& error) {
    return state_failure(error);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zqpoold: %s %s failed: %s\n", method_name(request.method),
                 request.path.c_str(), error.what());
    return error_answer(500, "the operation failed unexpectedly");
  }
}

}  // namespace zqpool::service
