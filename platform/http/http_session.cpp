#include "platform/http/http_session.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/http/detail/exchange.h"
#include "platform/net/sleep.h"

using namespace zqpool::detail;

class HTTP_Session::Impl {
 public:
  Endpoint endpoint;
  std::shared_ptr<const Transport_Settings> settings;
  std::unique_ptr<Stream> stream;
  bool keep_alive = false;
  bool usable = true;
  std::chrono::seconds io_timeout{0};
  Clock::time_point last_used = Clock::now();
};

namespace {

constexpr std::chrono::milliseconds pause_between_attempts{200};

void finish_report(HTTP_Exchange_Report& report, Failure failure, Clock::time_point start) {
  report.error = failure.error;
  report.text = std::move(failure.text);
  report.total = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
}

}  // namespace

HTTP_Session::HTTP_Session(std::unique_ptr<Impl> impl) noexcept : impl_(std::move(impl)) {}

HTTP_Session::~HTTP_Session() = default;

void HTTP_Session::intrusive_add_ref(HTTP_Session* session) noexcept {
  if (session != nullptr) ++session->references_;
}

void HTTP_Session::intrusive_remove_ref(HTTP_Session* session) noexcept {
  if (session != nullptr && --session->references_ == 0) delete session;
}

HTTP_Session_Ptr HTTP_Session_Factory::create(const char* host, unsigned short port, bool ssl,
                                              const char* local_address, int connect_attempts,
                                              ACE_SSL_Context* context, bool keep_alive,
                                              int connect_timeout, int io_timeout, int buffer_size,
                                              unsigned int flags) {
  const Clock::time_point start = Clock::now();
  auto impl = std::make_unique<HTTP_Session::Impl>();
  impl->endpoint = make_endpoint(host, port, ssl);
  impl->settings = transport_settings();
  const std::chrono::milliseconds limit = std::chrono::seconds(connect_timeout);
  const Deadline deadline =
      Deadline::after(start, std::min(limit, impl->settings->options.exchange_timeout));
  impl->keep_alive = keep_alive;
  impl->io_timeout = std::chrono::seconds(io_timeout);

  HTTP_Exchange_Report& report = begin_report(impl->endpoint, HTTP_NO_METHOD);
  Failure failure;
  bool open = false;
  if (local_address != nullptr || context != nullptr || buffer_size != 0 || flags != 0) {
    failure.set(HTTP_Error::refused_request, "the session's options are not supported");
  } else if (!check_host(impl->endpoint, failure)) {
    // Nothing to connect to.
  } else {
    for (int count = 1; !open; ++count) {
      ++report.attempts;
      failure = Failure();
      impl->stream = std::make_unique<Stream>();
      open = open_connection(*impl->settings, impl->endpoint, deadline, *impl->stream, report,
                             failure);
      if (open || failure.permanent || count >= connect_attempts || deadline.passed()) break;
      sleep_between_attempts(pause_between_attempts);
    }
  }
  finish_report(report, std::move(failure), start);
  if (!open) return HTTP_Session_Ptr();
  impl->last_used = Clock::now();
  return HTTP_Session_Ptr(new HTTP_Session(std::move(impl)));
}

JSON_HTTP_Session::JSON_HTTP_Session(HTTP_Session_Ptr session, int longest_idle,
                                     int longest_exchange)
    : session_(session), longest_idle_(longest_idle), longest_exchange_(longest_exchange) {}

void JSON_HTTP_Session::reset(HTTP_Session_Ptr session) {
  session_ = session;
}

JSON_HTTP_Session::operator bool() const {
  const HTTP_Session* const session = session_.get();
  return session != nullptr && session->impl_->usable &&
         Clock::now() - session->impl_->last_used < std::chrono::seconds(longest_idle_) &&
         session->impl_->stream->is_idle();
}

bool JSON_HTTP_Session::get(HTTP_Request& request, HTTP_Response& response,
                            json_spirit::Value& answer) {
  response.status(0);
  if (!*this) return false;
  HTTP_Session::Impl& session = *session_->impl_;
  const Clock::time_point start = Clock::now();
  const std::chrono::milliseconds limit =
      std::min(session.io_timeout, std::chrono::seconds(longest_exchange_));
  const Deadline deadline =
      Deadline::after(start, std::min(limit, session.settings->options.exchange_timeout));
  HTTP_Exchange_Report& report = begin_report(session.endpoint, HTTP_METHOD_GET);
  report.attempts = 1;
  report.address = session.stream->peer().text();

  Wire_Request wire;
  Wire_Answer got;
  Failure failure;
  const bool keep = session.keep_alive || request.keep_alive();
  session.usable = false;
  report_path(request, report);
  if (request.method() != HTTP_METHOD_GET) {
    failure.set(HTTP_Error::refused_request, "the request was made for another method");
  } else if (make_wire_request(session.endpoint, request, HTTP_Headers(), nullptr, keep,
                               session.settings->options.user_agent, report.request_id, wire,
                               failure) &&
             check_may_send(session.settings->options, wire, failure) &&
             converse(*session.stream, wire, deadline, session.settings->options.largest_answer,
                      got, &response.headers(), report, failure)) {
    session.usable = keep && got.keep_connection;
    session.last_used = Clock::now();
    response.status(got.status);
    report.status = got.status;
    std::string why;
    if (!got.body.empty() && !json_spirit::read(std::move(got.body), answer, why)) {
      failure.set(HTTP_Error::bad_json, "the answer's body is not JSON: " + why);
    }
  }
  finish_report(report, failure, start);
  return failure.error == HTTP_Error::none;
}
