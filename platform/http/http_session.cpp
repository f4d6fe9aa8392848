#include "platform/http/http_session.h"

#include <algorithm>
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
  auto impl = std::make_unique<HTTP_Session::Impl>();
  impl->endpoint = make_endpoint(host, port, ssl);
  impl->settings = transport_settings();
  impl->keep_alive = keep_alive;
  impl->io_timeout = std::chrono::seconds(io_timeout);

  Exchange exchange(impl->endpoint, HTTP_NO_METHOD, impl->settings,
                    std::chrono::seconds(connect_timeout));
  bool open = false;
  if (local_address != nullptr || context != nullptr || buffer_size != 0 || flags != 0) {
    exchange.failure.set(HTTP_Error::refused_request, "the session's options are not supported");
  } else if (check_host(impl->endpoint, exchange.failure)) {
    for (int count = 1;; ++count) {
      ++exchange.report.attempts;
      exchange.failure = Failure();
      impl->stream = std::make_unique<Stream>();
      open = exchange.connect(*impl->stream, exchange.deadline);
      if (open || exchange.failure.permanent || count >= connect_attempts ||
          exchange.deadline.passed()) {
        break;
      }
      sleep_between_attempts(pause_between_attempts);
    }
  }
  exchange.finish(nullptr);
  if (!open) return HTTP_Session_Ptr();
  impl->last_used = Clock::now();
  return HTTP_Session_Ptr(new HTTP_Session(std::move(impl)));
}

JSON_HTTP_Session::JSON_HTTP_Session(HTTP_Session_Ptr session, int max_idle, int max_exchange)
    : session_(session), max_idle_(max_idle), max_exchange_(max_exchange) {}

void JSON_HTTP_Session::reset(HTTP_Session_Ptr session) {
  session_ = session;
}

JSON_HTTP_Session::operator bool() const {
  const HTTP_Session* const session = session_.get();
  return session != nullptr && session->impl_->usable &&
         Clock::now() - session->impl_->last_used < std::chrono::seconds(max_idle_) &&
         session->impl_->stream->is_idle();
}

bool JSON_HTTP_Session::get(HTTP_Request& request, HTTP_Response& response,
                            json_spirit::Value& answer) {
  response.status(0);
  if (!*this) return false;
  HTTP_Session::Impl& session = *session_->impl_;
  Exchange exchange(session.endpoint, HTTP_METHOD_GET, session.settings,
                    std::min(session.io_timeout, std::chrono::seconds(max_exchange_)));
  exchange.report.attempts = 1;
  exchange.report.address = session.stream->peer().text();
  const bool keep = session.keep_alive || request.keep_alive();
  session.usable = false;
  if (exchange.make_request(request, HTTP_Headers(), nullptr, keep) &&
      exchange.send_and_receive(*session.stream, &response.headers())) {
    session.usable = keep && exchange.response.keep_connection;
    session.last_used = Clock::now();
    exchange.read_body(answer);
  }
  return exchange.finish(&response);
}
