#include "platform/http/rest_client.h"

#include <ace/Log_Msg.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
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
constexpr std::chrono::milliseconds longest_pause{2000};
// How long a service that said it would close may take to do so.
constexpr std::chrono::milliseconds end_of_file_wait{50};
// Services drop idle connections after five seconds or more; a request must never meet that.
constexpr std::chrono::seconds longest_idle{4};
constexpr std::size_t most_idle = 16;

std::minstd_rand& pause_generator() {
  thread_local std::minstd_rand generator{std::random_device{}()};
  return generator;
}

/// Connections of a client that lives on, for its next calls.
class Idle_Connections {
 public:
  /// One that may carry a request now and was made under `settings`, or null.
  std::unique_ptr<Stream> take(const std::shared_ptr<const Transport_Settings>& settings) {
    const std::lock_guard<std::mutex> lock(mutex_);
    while (!idle_.empty()) {
      Idle candidate = std::move(idle_.back());
      idle_.pop_back();
      // After a fork the connection is the parent's.
      if (candidate.owner == getpid() && candidate.settings == settings &&
          Clock::now() - candidate.since < longest_idle && candidate.stream->is_idle()) {
        return std::move(candidate.stream);
      }
    }
    return nullptr;
  }

  void give(std::unique_ptr<Stream> stream, std::shared_ptr<const Transport_Settings> settings) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (idle_.size() == most_idle) idle_.erase(idle_.begin());
    idle_.push_back({std::move(stream), std::move(settings), Clock::now(), getpid()});
  }

 private:
  struct Idle {
    std::unique_ptr<Stream> stream;
    std::shared_ptr<const Transport_Settings> settings;
    Clock::time_point since;
    pid_t owner;
  };
  std::mutex mutex_;
  std::vector<Idle> idle_;
};

}  // namespace

class JSON_RESTful_Client::Impl {
 public:
  Impl(Endpoint service, bool read_error_body)
      : endpoint(std::move(service)), keep_error_body(read_error_body) {}

  /// One call by `method`, which is also what the request must have been made for.
  bool call(int method, const HTTP_Request& request, const json_spirit::Value* body,
            HTTP_Response* response, json_spirit::Value* answer);

  const Endpoint endpoint;
  const bool keep_error_body;
  int retries = 2;
  std::chrono::seconds retry_timeout{30};
  bool logging_error = true;
  bool keep_connections = false;
  HTTP_Headers default_headers;
  Idle_Connections idle;
};

namespace {

/// The words of a refusal's body, {"error":{"message":...}}.
std::string error_message(const json_spirit::Value& body) {
  constexpr std::size_t most = 1000;
  if (body.type() != json_spirit::obj_type) return "";
  const Object* const error = json_spirit::object_get_object(body.get_obj(), "error");
  const std::string* const message =
      error != nullptr ? json_spirit::object_get_str(*error, "message") : nullptr;
  if (message == nullptr) return "";
  std::size_t end = std::min(message->size(), most);
  // Never in the middle of a character.
  while (end < message->size() && end > 0 &&
         (static_cast<unsigned char>((*message)[end]) & 0xc0) == 0x80)
    --end;
  return message->substr(0, end);
}

/// One client call: its attempts, its deadline and its report.
template <class Client>
class Call {
 public:
  Call(Client& client, HTTP_Exchange_Report& report)
      : client_(client),
        report_(report),
        settings_(transport_settings()),
        start_(Clock::now()),
        deadline_(Deadline::after(start_, settings_->options.exchange_timeout)) {}

  bool run(const HTTP_Request& request, const json_spirit::Value* body, HTTP_Response* response,
           json_spirit::Value* answer) {
    HTTP_Headers* const headers = response != nullptr ? &response->headers() : nullptr;
    if (prepare(request, body)) {
      while (!attempt(headers) && may_repeat() && pause()) {
      }
    }
    // In this order, because the service needs a moment to end the connection.
    read_body(answer);
    end_connection();
    if (response != nullptr) response->status(got_.status);
    report_.status = got_.status;
    report_.error = failure_.error;
    report_.text = std::move(failure_.text);
    report_.total = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start_);
    return report_.ok();
  }

 private:
  bool prepare(const HTTP_Request& request, const json_spirit::Value* body) {
    report_path(request, report_);
    if (request.method() != report_.method) {
      return failure_.set(HTTP_Error::refused_request, "the request was made for another method");
    }
    std::string text;
    if (body != nullptr) {
      try {
        json_spirit::write_to(*body, text);
      } catch (const std::runtime_error& error) {
        return failure_.set(HTTP_Error::refused_request, std::string("the body: ") + error.what());
      }
    }
    return make_wire_request(client_.endpoint, request, client_.default_headers,
                             body != nullptr ? &text : nullptr, client_.keep_connections,
                             settings_->options.user_agent, report_.request_id, wire_, failure_) &&
           check_may_send(settings_->options, wire_, failure_);
  }

  bool attempt(HTTP_Headers* headers) {
    failure_ = Failure();
    got_ = Wire_Answer();
    begin_attempt_report();
    std::unique_ptr<Stream> stream = client_.idle.take(settings_);
    report_.connection_reused = stream != nullptr;
    if (stream != nullptr) {
      report_.address = stream->peer().text();
    } else {
      stream = std::make_unique<Stream>();
      const Deadline end = deadline_.or_sooner(Deadline::in(settings_->options.connect_timeout));
      if (!open_connection(*settings_, client_.endpoint, end, *stream, report_, failure_)) {
        return false;
      }
    }
    if (!converse(*stream, wire_, deadline_, settings_->options.largest_answer, got_, headers,
                  report_, failure_)) {
      return false;
    }
    if (!got_.keep_connection) {
      ending_ = std::move(stream);
    } else if (wire_.keep_connection) {
      client_.idle.give(std::move(stream), settings_);
    }
    if (got_.status / 100 == 2) return true;
    return failure_.set(HTTP_Error::status, "HTTP status " + std::to_string(got_.status));
  }

  void end_connection() {
    if (ending_ == nullptr) return;
    ending_->close_after_peer(deadline_.or_sooner(Deadline::in(end_of_file_wait)));
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

  bool may_repeat() const {
    if (failure_.permanent || report_.attempts > client_.retries) return false;
    if (!report_.sent) return true;
    // From here on the service may have acted, and only a read is harmless twice.
    if (wire_.method != HTTP_METHOD_GET) return false;
    switch (failure_.error) {
      case HTTP_Error::broken:
      case HTTP_Error::tls:
      case HTTP_Error::malformed:
        return true;
      case HTTP_Error::status:
        return got_.status == 429 || (got_.status >= 502 && got_.status <= 504);
      default:
        return false;
    }
  }

  bool pause() {
    end_connection();
    const auto slot =
        std::min(first_pause * (1 << std::min(report_.attempts - 1, 10)), longest_pause).count();
    std::uniform_int_distribution<std::chrono::milliseconds::rep> jitter(slot / 2, slot);
    const std::chrono::milliseconds time{jitter(pause_generator())};
    const Deadline last_start = deadline_.or_sooner(Deadline::after(start_, client_.retry_timeout));
    if (Clock::now() + time >= last_start.end()) return false;
    sleep_between_attempts(time);
    return true;
  }

  /// The final attempt's body, into `answer` where there is one.
  void read_body(json_spirit::Value* answer) {
    if (got_.body.empty()) return;
    const bool success = failure_.error == HTTP_Error::none;
    const bool wanted = answer != nullptr && (success || client_.keep_error_body);
    json_spirit::Value unwanted;
    json_spirit::Value& value = wanted ? *answer : unwanted;
    std::string why;
    if (json_spirit::read(std::move(got_.body), value, why)) {
      if (!success) report_.service_message = error_message(value);
    } else if (success) {
      failure_.set(HTTP_Error::bad_json, "the answer's body is not JSON: " + why);
    }
  }

  Client& client_;
  HTTP_Exchange_Report& report_;
  const std::shared_ptr<const Transport_Settings> settings_;
  const Clock::time_point start_;
  const Deadline deadline_;
  Wire_Request wire_;
  Wire_Answer got_;
  std::unique_ptr<Stream> ending_;  // the connection that has served the last attempt
  Failure failure_;
};

void log_failure(const HTTP_Exchange_Report& report, std::string authority) {
  // A host that was refused for its control bytes must not write lines of its own.
  std::replace_if(
      authority.begin(), authority.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, '?');
  // Bounded, because ACE cuts a long line together with its end.
  constexpr int most_host = 300;
  constexpr int most_path = 1500;
  constexpr int most_text = 1000;
  const bool has_phase = report.error != HTTP_Error::status && report.error != HTTP_Error::bad_json;
  ACE_ERROR((LM_ERROR, "%s %s://%.*s%.*s failed: %s%s%.*s.\n", http_method_name(report.method),
             report.ssl ? "https" : "http", most_host, authority.c_str(), most_path,
             report.path.c_str(), has_phase ? http_phase_name(report.phase) : "",
             has_phase ? ": " : "", most_text, report.text.c_str()));
}

}  // namespace

bool JSON_RESTful_Client::Impl::call(int method, const HTTP_Request& request,
                                     const json_spirit::Value* body, HTTP_Response* response,
                                     json_spirit::Value* answer) {
  HTTP_Exchange_Report& report = begin_report(endpoint, method);
  if (Call<Impl>(*this, report).run(request, body, response, answer)) return true;
  if (logging_error) log_failure(report, endpoint.authority(true));
  return false;
}

JSON_RESTful_Client::JSON_RESTful_Client(const char* host, unsigned short port, bool ssl,
                                         bool keep_error_body)
    : impl_(std::make_unique<Impl>(make_endpoint(host, port, ssl), keep_error_body)) {}

JSON_RESTful_Client::JSON_RESTful_Client(std::unique_ptr<Impl> impl) noexcept
    : impl_(std::move(impl)) {}

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
  impl_->keep_connections = true;
}

namespace {

/// Where the process's upstream client stands. Clients that were replaced stay, because their
/// callers may still hold them, in a chain that shows leak checkers that they are not lost.
struct Upstream {
  Upstream_JSON_RESTful_Client* client;
  const Upstream* replaced;
};
std::atomic<const Upstream*> upstream{nullptr};

}  // namespace

Common_JSON_RESTful_Client::Common_JSON_RESTful_Client(const char* host, unsigned short port,
                                                       bool ssl, bool is_on_backupd,
                                                       bool keep_error_body)
    : JSON_RESTful_Client([&] {
        auto impl = std::make_unique<Impl>(make_endpoint(host, port, ssl), keep_error_body);
        if (is_on_backupd) {
          impl->default_headers.put(HTTP_HEAD_X_ACCESS_KEY,
                                    Host_Manager::instance()->access_key().c_str(), true);
        }
        return impl;
      }()) {}

Upstream_JSON_RESTful_Client::Upstream_JSON_RESTful_Client(const char* host, unsigned short port,
                                                           bool ssl, const char* access_key)
    : JSON_RESTful_Client(host, port, ssl, true) {
  set_header(HTTP_HEAD_X_ACCESS_KEY, access_key);
}

Upstream_JSON_RESTful_Client& Upstream_JSON_RESTful_Client::instance() {
  static Upstream_JSON_RESTful_Client& unconfigured =
      *new Upstream_JSON_RESTful_Client(nullptr, 0, false, nullptr);
  const Upstream* const configured = upstream.load();
  return configured != nullptr ? *configured->client : unconfigured;
}

void Upstream_JSON_RESTful_Client::configure(const char* host, unsigned short port, bool ssl,
                                             const char* access_key) {
  std::unique_ptr<Upstream_JSON_RESTful_Client> client(
      new Upstream_JSON_RESTful_Client(host, port, ssl, access_key));
  auto* const next = new Upstream{client.get(), upstream.load()};
  while (!upstream.compare_exchange_weak(next->replaced, next)) {
  }
  static_cast<void>(client.release());  // kept for good: callers may still hold it
}
