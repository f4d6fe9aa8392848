#include "platform/http/rest_client.h"

#include <ace/Log_Msg.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/host/host_manager.h"
#include "platform/http/detail/exchange.h"
#include "platform/http/http_exchange_report.h"
#include "platform/net/sleep.h"

namespace {

using namespace zqpool::detail;

constexpr std::chrono::milliseconds first_pause{100};
constexpr std::chrono::milliseconds max_pause{2000};
// How long to wait for the service to close a finished connection.
constexpr std::chrono::milliseconds end_of_file_wait{50};
// Services close idle connections after five seconds or more; a request must not race with that.
constexpr std::chrono::seconds max_idle_time{4};
constexpr std::size_t max_idle_connections = 16;

std::minstd_rand& pause_generator() {
  thread_local std::minstd_rand generator{std::random_device{}()};
  return generator;
}

/// The idle connections of a client. Thread-safe.
class Connection_Pool {
 public:
  /// Returns a usable connection that was made under `settings`, or null.
  std::unique_ptr<Stream> take(const std::shared_ptr<const Transport_Settings>& settings) {
    while (std::optional<Idle> idle = newest()) {
      // After a fork() the connection belongs to the parent.
      if (idle->owner == getpid() && idle->settings == settings &&
          Clock::now() - idle->since < max_idle_time && idle->stream->is_idle()) {
        return std::move(idle->stream);
      }
    }
    return nullptr;
  }

  void give(std::unique_ptr<Stream> stream, std::shared_ptr<const Transport_Settings> settings) {
    Idle idle{std::move(stream), std::move(settings), Clock::now(), getpid()};
    std::optional<Idle> oldest;  // closed after the lock is released
    const std::lock_guard<std::mutex> lock(mutex_);
    if (idle_.size() == max_idle_connections) {
      oldest = std::move(idle_.front());
      idle_.erase(idle_.begin());
    }
    idle_.push_back(std::move(idle));
  }

 private:
  struct Idle {
    std::unique_ptr<Stream> stream;
    std::shared_ptr<const Transport_Settings> settings;
    Clock::time_point since;
    pid_t owner;
  };

  std::optional<Idle> newest() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (idle_.empty()) return std::nullopt;
    std::optional<Idle> idle = std::move(idle_.back());
    idle_.pop_back();
    return idle;
  }

  std::mutex mutex_;
  std::vector<Idle> idle_;
};

/// The message of an error body, {"error":{"message":...}}.
std::string error_message(const json_spirit::Value& body) {
  constexpr std::size_t max_size = 1000;
  if (body.type() != json_spirit::obj_type) return "";
  const Object* const error = json_spirit::object_get_object(body.get_obj(), "error");
  const std::string* const message =
      error != nullptr ? json_spirit::object_get_str(*error, "message") : nullptr;
  if (message == nullptr) return "";
  std::size_t end = std::min(message->size(), max_size);
  // Not in the middle of a UTF-8 character.
  while (end < message->size() && end > 0 &&
         (static_cast<unsigned char>((*message)[end]) & 0xc0) == 0x80)
    --end;
  return message->substr(0, end);
}

void log_failure(const HTTP_Exchange_Report& report, std::string authority) {
  // A host that was refused for its control bytes must not forge log lines.
  std::replace_if(
      authority.begin(), authority.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, '?');
  // Bounded, because ACE cuts the end off a line that is too long.
  constexpr int max_host = 300;
  constexpr int max_path = 1500;
  constexpr int max_text = 1000;
  const bool has_phase = report.error != HTTP_Error::status && report.error != HTTP_Error::bad_json;
  ACE_ERROR((LM_ERROR, "%s %s://%.*s%.*s failed: %s%s%.*s.\n", http_method_name(report.method),
             report.ssl ? "https" : "http", max_host, authority.c_str(), max_path,
             report.path.c_str(), has_phase ? http_phase_name(report.phase) : "",
             has_phase ? ": " : "", max_text, report.text.c_str()));
}

}  // namespace

class JSON_RESTful_Client::Impl {
 public:
  Impl(Endpoint service, bool read_error_body)
      : endpoint(std::move(service)), keep_error_body(read_error_body) {}

  /// Makes one call. Fails unless `request` was made for `method`.
  bool call(int method, const HTTP_Request& request, const json_spirit::Value* body,
            HTTP_Response* response, json_spirit::Value* answer);

  const Endpoint endpoint;
  const bool keep_error_body;
  int retries = 2;
  std::chrono::seconds retry_timeout{30};
  bool logging_error = true;
  bool keep_connections = false;
  HTTP_Headers default_headers;

 private:
  class Call;
  Connection_Pool connections_;
};

/// One call of a client with its retries.
class JSON_RESTful_Client::Impl::Call {
 public:
  Call(Impl& client, int method)
      : client_(client), exchange_(client.endpoint, method, transport_settings()) {}

  bool run(const HTTP_Request& request, const json_spirit::Value* body, HTTP_Response* response,
           json_spirit::Value* answer) {
    HTTP_Headers* const headers = response != nullptr ? &response->headers() : nullptr;
    if (make_request(request, body)) {
      bool good = attempt(headers);
      while (!good && may_retry() && pause()) {
        good = attempt(headers);
      }
    }
    // Parse first: the service closes the connection meanwhile.
    read_body(answer);
    end_connection();
    return exchange_.finish(response);
  }

 private:
  bool make_request(const HTTP_Request& request, const json_spirit::Value* body) {
    std::string text;
    if (body != nullptr) {
      try {
        json_spirit::write_to(*body, text);
      } catch (const std::runtime_error& error) {
        return failure_.set(HTTP_Error::refused_request, std::string("the body: ") + error.what());
      }
    }
    return exchange_.make_request(request, client_.default_headers,
                                  body != nullptr ? &text : nullptr, client_.keep_connections);
  }

  bool attempt(HTTP_Headers* headers) {
    failure_ = Failure();
    response_ = Wire_Response();
    begin_attempt_report();
    std::unique_ptr<Stream> stream = client_.connections_.take(exchange_.settings);
    report_.connection_reused = stream != nullptr;
    if (stream != nullptr) {
      report_.address = stream->peer().text();
    } else {
      stream = std::make_unique<Stream>();
      const auto limit = exchange_.settings->options.connect_timeout;
      if (!exchange_.connect(*stream, exchange_.deadline.or_sooner(Deadline::in(limit)))) {
        return false;
      }
    }
    if (!exchange_.send_and_receive(*stream, headers)) return false;
    if (!response_.keep_connection) {
      ending_ = std::move(stream);
    } else if (client_.keep_connections) {
      client_.connections_.give(std::move(stream), exchange_.settings);
    }
    if (response_.status / 100 == 2) return true;
    return failure_.set(HTTP_Error::status, "HTTP status " + std::to_string(response_.status));
  }

  void end_connection() {
    if (ending_ == nullptr) return;
    ending_->close_after_peer(exchange_.deadline.or_sooner(Deadline::in(end_of_file_wait)));
    ending_.reset();
  }

  void begin_attempt_report() {
    ++report_.attempts;
    report_.address.clear();
    report_.sent = false;
    report_.tls_resumed = false;
    report_.name_time = report_.connect_time = report_.tls_time = report_.first_byte_time = {};
    report_.bytes_sent = report_.bytes_received = 0;
  }

  bool may_retry() const {
    if (failure_.permanent || report_.attempts > client_.retries) return false;
    if (!report_.sent) return true;
    // The service may have acted on the request: only a GET is safe to repeat.
    if (report_.method != HTTP_METHOD_GET) return false;
    switch (failure_.error) {
      case HTTP_Error::broken:
      case HTTP_Error::tls:
      case HTTP_Error::malformed:
        return true;
      case HTTP_Error::status:
        return response_.status == 429 || (response_.status >= 502 && response_.status <= 504);
      default:
        return false;
    }
  }

  bool pause() {
    end_connection();
    const auto slot =
        std::min(first_pause * (1 << std::min(report_.attempts - 1, 10)), max_pause).count();
    std::uniform_int_distribution<std::chrono::milliseconds::rep> jitter(slot / 2, slot);
    const std::chrono::milliseconds time{jitter(pause_generator())};
    const Deadline last_start =
        exchange_.deadline.or_sooner(Deadline::after(exchange_.start, client_.retry_timeout));
    if (Clock::now() + time >= last_start.end()) return false;
    sleep_between_attempts(time);
    return true;
  }

  /// Parses the last response's body, into `answer` if the caller wants it.
  void read_body(json_spirit::Value* answer) {
    const bool success = failure_.error == HTTP_Error::none;
    const bool wanted = answer != nullptr && (success || client_.keep_error_body);
    json_spirit::Value unwanted;
    json_spirit::Value& value = wanted ? *answer : unwanted;
    if (exchange_.read_body(value) && !success) report_.service_message = error_message(value);
  }

  Impl& client_;
  Exchange exchange_;
  HTTP_Exchange_Report& report_ = exchange_.report;
  Wire_Response& response_ = exchange_.response;
  Failure& failure_ = exchange_.failure;
  std::unique_ptr<Stream> ending_;  // a connection that the service is about to close
};

bool JSON_RESTful_Client::Impl::call(int method, const HTTP_Request& request,
                                     const json_spirit::Value* body, HTTP_Response* response,
                                     json_spirit::Value* answer) {
  if (Call(*this, method).run(request, body, response, answer)) return true;
  if (logging_error) log_failure(thread_report(), endpoint.authority());
  return false;
}

JSON_RESTful_Client::JSON_RESTful_Client(const char* host, unsigned short port, bool ssl,
                                         bool keep_error_body)
    : impl_(std::make_unique<Impl>(make_endpoint(host, port, ssl), keep_error_body)) {}

JSON_RESTful_Client::~JSON_RESTful_Client() = default;

bool JSON_RESTful_Client::get(HTTP_Request& request, json_spirit::Value* answer) {
  return impl_->call(HTTP_METHOD_GET, request, nullptr, nullptr, answer);
}

bool JSON_RESTful_Client::get(HTTP_Request& request, HTTP_Response& response,
                              json_spirit::Value* answer) {
  return impl_->call(HTTP_METHOD_GET, request, nullptr, &response, answer);
}

bool JSON_RESTful_Client::post(HTTP_Request& request, const json_spirit::Value* body,
                               json_spirit::Value* answer) {
  return impl_->call(HTTP_METHOD_POST, request, body, nullptr, answer);
}

bool JSON_RESTful_Client::post(const char* path, const json_spirit::Value* body,
                               json_spirit::Value* answer) {
  HTTP_Request request(HTTP_METHOD_POST, path, false);
  return post(request, body, answer);
}

bool JSON_RESTful_Client::put(HTTP_Request& request, const json_spirit::Value* body,
                              json_spirit::Value* answer) {
  return impl_->call(HTTP_METHOD_PUT, request, body, nullptr, answer);
}

bool JSON_RESTful_Client::del(HTTP_Request& request) {
  return impl_->call(HTTP_METHOD_DELETE, request, nullptr, nullptr, nullptr);
}

bool JSON_RESTful_Client::del(HTTP_Request& request, HTTP_Response& response) {
  return impl_->call(HTTP_METHOD_DELETE, request, nullptr, &response, nullptr);
}

void JSON_RESTful_Client::retries(int count) noexcept {
  impl_->retries = std::max(count, 0);
}

void JSON_RESTful_Client::retry_timeout(int seconds) noexcept {
  impl_->retry_timeout = std::chrono::seconds(std::max(seconds, 0));
}

void JSON_RESTful_Client::logging_error(bool on) noexcept {
  impl_->logging_error = on;
}

void JSON_RESTful_Client::set_header(int id, const char* text) {
  impl_->default_headers.put(id, text != nullptr ? text : "", true);
  impl_->keep_connections = true;  // documented for set_header()
}

Common_JSON_RESTful_Client::Common_JSON_RESTful_Client(const char* host, unsigned short port,
                                                       bool ssl, bool is_on_backupd,
                                                       bool keep_error_body)
    : JSON_RESTful_Client(host, port, ssl, keep_error_body) {
  // Not with set_header(), which makes a client keep its connections.
  if (is_on_backupd) {
    impl_->default_headers.put(HTTP_HEAD_X_ACCESS_KEY,
                               Host_Manager::instance()->access_key().c_str(), true);
  }
}

Upstream_JSON_RESTful_Client::Upstream_JSON_RESTful_Client(const char* host, unsigned short port,
                                                           bool ssl, const char* access_key)
    : JSON_RESTful_Client(host, port, ssl, true) {
  set_header(HTTP_HEAD_X_ACCESS_KEY, access_key);
}

namespace {

/// All upstream clients so far; the last is the current one. Earlier ones are kept, because callers
/// may still hold them.
struct Upstream_Clients {
  std::mutex mutex;
  std::vector<std::unique_ptr<Upstream_JSON_RESTful_Client>> all;
};

Upstream_Clients& upstream() {
  // Never destroyed: other threads may still use a client when the process ends.
  static Upstream_Clients& instance = *new Upstream_Clients;
  return instance;
}

}  // namespace

Upstream_JSON_RESTful_Client& Upstream_JSON_RESTful_Client::instance() {
  const std::lock_guard<std::mutex> lock(upstream().mutex);
  auto& all = upstream().all;
  if (all.empty()) all.emplace_back(new Upstream_JSON_RESTful_Client(nullptr, 0, false, nullptr));
  return *all.back();
}

void Upstream_JSON_RESTful_Client::configure(const char* host, unsigned short port, bool ssl,
                                             const char* access_key) {
  std::unique_ptr<Upstream_JSON_RESTful_Client> client(
      new Upstream_JSON_RESTful_Client(host, port, ssl, access_key));
  const std::lock_guard<std::mutex> lock(upstream().mutex);
  upstream().all.push_back(std::move(client));
}
