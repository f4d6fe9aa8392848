#include "service/http/connection.h"

#include <algorithm>
#include <array>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <chrono>
#include <ctime>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "service/api/text.h"

namespace zqpool::service {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::system::error_code;
using net::ip::tcp;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t read_piece = 16384;
constexpr std::size_t huge_piece = 65536;
// After the last answer the client may still be sending; closing on unread bytes would tear the
// answer out of its hands.
constexpr std::chrono::milliseconds linger_time{2000};
constexpr std::chrono::milliseconds linger_time_when_stopping{200};
constexpr std::size_t linger_bytes = 4 << 20;
constexpr std::size_t longest_request_id = 128;

/// A TCP stream with deadlines that sends its end of file as soon as a closing TLS layer above it
/// has written its last record and turns to reading.
class Transport {
 public:
  using executor_type = beast::tcp_stream::executor_type;
  using lowest_layer_type = tcp::socket;

  explicit Transport(tcp::socket&& socket) : stream_(std::move(socket)) {}

  executor_type get_executor() noexcept { return stream_.get_executor(); }
  lowest_layer_type& lowest_layer() noexcept { return stream_.socket(); }
  const lowest_layer_type& lowest_layer() const noexcept { return stream_.socket(); }
  tcp::socket& socket() noexcept { return stream_.socket(); }

  template <typename Buffers, typename Handler>
  auto async_read_some(const Buffers& buffers, Handler&& handler) {
    if (ending_) send_end();
    return stream_.async_read_some(buffers, std::forward<Handler>(handler));
  }
  template <typename Buffers, typename Handler>
  auto async_write_some(const Buffers& buffers, Handler&& handler) {
    return stream_.async_write_some(buffers, std::forward<Handler>(handler));
  }

  void expires_after(Clock::duration time) { stream_.expires_after(time); }
  void expires_never() { stream_.expires_never(); }
  void end_before_next_read() { ending_ = true; }
  void send_end() {
    error_code ignored;
    socket().shutdown(tcp::socket::shutdown_send, ignored);
  }
  void cancel() { stream_.cancel(); }
  void close() { stream_.close(); }
  void reset() {
    error_code ignored;
    socket().set_option(net::socket_base::linger(true, 0), ignored);
    stream_.close();
  }

 private:
  beast::tcp_stream stream_;
  bool ending_ = false;
};

using Tls_Stream = beast::ssl_stream<Transport>;

Transport& transport_of(Transport& stream) {
  return stream;
}
Transport& transport_of(Tls_Stream& stream) {
  return stream.next_layer();
}

std::string text_of(const tcp::endpoint& peer) {
  const std::string address = peer.address().to_string();
  return (peer.address().is_v6() ? '[' + address + ']' : address) + ':' +
         std::to_string(peer.port());
}

std::string string_of(beast::string_view text) {
  return {text.data(), text.size()};
}

std::string http_date() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  std::array<char, 64> text{};
  const std::size_t length =
      std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
  return {text.data(), length};
}

bool good_request_id(const std::string& id) {
  return !id.empty() && id.size() <= longest_request_id &&
         std::all_of(id.begin(), id.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

/// The status for what the parser found wrong; 0 when the connection broke instead.
unsigned status_of(const error_code& error) {
  if (error == http::error::header_limit || error == http::error::buffer_overflow) return 431;
  if (error == http::error::body_limit) return 413;
  const bool broke = error == http::error::end_of_stream || error == http::error::partial_message;
  return !broke && error.category() == make_error_code(http::error::bad_line_ending).category()
             ? 400
             : 0;
}

/// Whether the body is framed in the one way that everybody on its way understands alike, so that
/// none of it can pass as another request.
bool has_known_framing(const http::fields& header, unsigned version) {
  const auto count = header.count(http::field::transfer_encoding);
  return count == 0 || (count == 1 && version >= 11 &&
                        beast::iequals(header[http::field::transfer_encoding], "chunked"));
}

bool has_bare_line_feed(beast::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) return true;
  }
  return false;
}

template <typename Stream>
class Http_Connection final : public Client_Connection,
                              public std::enable_shared_from_this<Http_Connection<Stream>> {
 public:
  template <typename... Args>
  Http_Connection(Connection_Context& context, std::function<void()> ended, std::string peer,
                  Args&&... args)
      : context_(context),
        ended_(std::move(ended)),
        peer_(std::move(peer)),
        stream_(std::forward<Args>(args)...),
        timer_(stream_.get_executor()),
        buffer_(context.limits.header_bytes + huge_piece) {
    ++context_.dispatcher.statistics().connections;
    ++context_.dispatcher.statistics().total_connections;
  }
  ~Http_Connection() override {
    --context_.dispatcher.statistics().connections;
    ended_();
  }

  void start() override {
    post([](Http_Connection& self) { self.begin(); });
  }
  void stop() override {
    post([](Http_Connection& self) {
      if (self.phase_ == Phase::idle) self.transport().cancel();
      if (self.phase_ == Phase::ending) self.transport().close();
    });
  }

 private:
  enum class Phase { idle, busy, ending };
  using Parser = http::request_parser<http::string_body>;

  Transport& transport() { return transport_of(stream_); }
  const Limits& limits() const { return context_.limits; }

  /// Runs a member on this connection's strand.
  template <typename Action>
  void post(Action action) {
    net::post(stream_.get_executor(), [self = this->shared_from_this(), action] { action(*self); });
  }
  /// A completion handler that calls a member with the operation's result.
  template <typename... Args>
  auto then(void (Http_Connection::*member)(Args...)) {
    return [self = this->shared_from_this(), member](const error_code& error, auto&&... rest) {
      (self.get()->*member)(error, std::forward<decltype(rest)>(rest)...);
    };
  }

  // ---- reading

  void begin() {
    error_code ignored;
    transport().socket().set_option(tcp::no_delay(true), ignored);
    if constexpr (std::is_same_v<Stream, Tls_Stream>) {
      transport().expires_after(limits().request);
      stream_.async_handshake(net::ssl::stream_base::server, then(&Http_Connection::on_handshake));
    } else {
      read_next();
    }
  }

  void on_handshake(error_code error) {
    if (!error) read_next();
  }

  void read_next() {
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(limits().header_bytes));
    parser_->body_limit(limits().body_bytes);
    request_ = Request();
    plan_ = Dispatcher::Plan();
    record_ = Access_Record();
    record_.peer = peer_;
    keep_alive_ = false;
    type_changed_ = false;
    if (buffer_.size() > 0) {  // the client did not wait for its answer
      read_header();
      return;
    }
    phase_ = Phase::idle;
    if (context_.stopping) {
      close();
      return;
    }
    // Not the stream's own deadline, which would end the connection without a word.
    transport().expires_never();
    timer_.expires_after(limits().idle);
    timer_.async_wait([self = this->shared_from_this()](const error_code& error) {
      const bool over = !error && self->timer_.expiry() <= Clock::now();
      if (over && self->phase_ == Phase::idle) self->transport().cancel();
    });
    stream_.async_read_some(buffer_.prepare(read_piece), then(&Http_Connection::on_first_bytes));
  }

  void on_first_bytes(error_code error, std::size_t count) {
    if (error) {
      close();
      return;
    }
    buffer_.commit(count);
    read_header();
  }

  void read_header() {
    phase_ = Phase::busy;
    timer_.cancel();
    started_ = Clock::now();
    transport().expires_after(limits().request);
    http::async_read_header(stream_, buffer_, *parser_, then(&Http_Connection::on_header));
  }

  void on_header(error_code error, std::size_t) {
    take_header();
    if (error) {
      refuse_to_read(error);
      return;
    }
    const auto& header = parser_->get();
    keep_alive_ = parser_->keep_alive();
    if (header.version() >= 11 && header.count(http::field::host) != 1) {
      answer_and_close(error_response(400, "one Host header is needed"));
    } else if (!has_known_framing(header, header.version())) {
      answer_and_close(error_response(400, "the only transfer coding is one chunked"));
    } else {
      plan_ = context_.dispatcher.plan(request_);
      if (parser_->is_done()) {
        carry_out();
      } else if (plan_.answer) {
        answer_and_close(*plan_.answer);  // a body that nobody will look at is not read
      } else if (beast::iequals(header[http::field::expect], "100-continue")) {
        net::async_write(stream_, net::buffer("HTTP/1.1 100 Continue\r\n\r\n", 25),
                         then(&Http_Connection::on_continue));
      } else {
        read_body();
      }
    }
  }

  void on_continue(error_code error, std::size_t) {
    if (error) {
      finish("the connection broke while 100 Continue was sent");
      return;
    }
    read_body();
  }

  void read_body() {
    const std::size_t expected = parser_->content_length().value_or(limits().body_bytes);
    transport().expires_after(with_bytes(limits().request, expected));
    parser_->eager(true);
    parse_body();
  }

  void parse_body() {
    error_code error;
    buffer_.consume(parser_->put(buffer_.data(), error));
    if (error == http::error::need_more) error = {};
    if (!error && parser_->is_done()) {
      request_.body = std::move(parser_->get().body());
      carry_out();
      return;
    }
    // What the parser leaves is the beginning of a line, in which it would look for CRLF forever.
    if (!error &&
        has_bare_line_feed({static_cast<const char*>(buffer_.data().data()), buffer_.size()})) {
      error = http::error::bad_line_ending;
    }
    if (!error && buffer_.size() + read_piece > buffer_.max_size()) {
      error = http::error::buffer_overflow;
    }
    if (error) {
      refuse_to_read(error);
      return;
    }
    stream_.async_read_some(buffer_.prepare(read_piece), then(&Http_Connection::on_body_bytes));
  }

  void on_body_bytes(error_code error, std::size_t count) {
    if (error) {
      refuse_to_read(error == net::error::eof ? http::error::partial_message : error);
      return;
    }
    buffer_.commit(count);
    parse_body();
  }

  /// Takes what is there of the header, for the answer and the log.
  void take_header() {
    const auto& header = parser_->get();
    record_.method = string_of(header.method_string());
    record_.target = string_of(header.target());
    request_.method = method_from(record_.method);
    std::string target = record_.target;
    const std::size_t authority = target.find("://");
    if (authority != std::string::npos && authority < target.find_first_of("/?")) {
      const std::size_t path = target.find('/', authority + 3);
      target = path == std::string::npos ? "/" : target.substr(path);
    }
    const std::size_t question = target.find('?');
    request_.path = target.substr(0, question);
    if (question != std::string::npos) request_.query = target.substr(question + 1);
    request_.content_type = string_of(header[http::field::content_type]);
    if (header.count("X-Access-Key") == 1) {
      request_.access_key = string_of(header["X-Access-Key"]);
    }
    record_.request_id = string_of(header["X-Request-Id"]);
    if (!good_request_id(record_.request_id)) record_.request_id = random_uuid();
  }

  void refuse_to_read(const error_code& error) {
    const unsigned status = status_of(error);
    if (status != 0) {
      answer_and_close(error_response(status, "the request cannot be read: " + error.message()));
    } else if (error == beast::error::timeout) {
      finish("the request took too long to come");
    } else {
      finish("the connection ended within the request: " + error.message());
    }
  }

  // ---- carrying out

  void carry_out() {
    if (plan_.fault && plan_.fault->delay_ms > 0 && !plan_.fault->delay_after_commit) {
      wait(plan_.fault->delay_ms, [](Http_Connection& self) { self.run(); });
    } else {
      run();
    }
  }

  void run() {
    if (plan_.fault && plan_.fault->kind == Fault_Kind::reset_before_commit) {
      reset();
      return;
    }
    if (plan_.answer) {
      deliver(std::move(*plan_.answer));
      return;
    }
    work([](Http_Connection& self) {
      return self.context_.dispatcher.run(self.plan_, self.request_);
    });
  }

  /// Has a worker do what takes time, and goes on with its answer.
  template <typename Action>
  void work(Action action) {
    net::post(context_.workers, [self = this->shared_from_this(), action] {
      auto outcome = std::make_shared<Outcome>(self->safely(action));
      net::post(self->stream_.get_executor(),
                [self, outcome] { self->after_commit(std::move(*outcome)); });
    });
  }

  template <typename Action>
  Outcome safely(Action action) {
    try {
      Outcome outcome = action(*this);
      Response* const answer = std::get_if<Response>(&outcome);
      if (answer && plan_.fault && plan_.fault->kind == Fault_Kind::wrong_type) {
        type_changed_ = change_type(*plan_.fault, *answer);
      }
      return outcome;
    } catch (const std::bad_alloc&) {
      return Response{
          503, R"({"error":{"code":503,"message":"the service is short of memory"}})", {}};
    }
  }

  void after_commit(Outcome outcome) {
    if (const auto* const deferred = std::get_if<Deferred>(&outcome)) {
      wait(deferred->after.count(), [deferred = *deferred](Http_Connection& self) {
        self.work([deferred](Http_Connection& again) {
          return again.context_.dispatcher.run(deferred, again.request_);
        });
      });
      return;
    }
    Response answer = std::get<Response>(std::move(outcome));
    if (plan_.fault && plan_.fault->delay_ms > 0 && plan_.fault->delay_after_commit) {
      auto kept = std::make_shared<Response>(std::move(answer));
      wait(plan_.fault->delay_ms,
           [kept](Http_Connection& self) { self.deliver(std::move(*kept)); });
    } else {
      deliver(std::move(answer));
    }
  }

  template <typename Action>
  void wait(std::int64_t milliseconds, Action action) {
    timer_.expires_after(std::chrono::milliseconds(milliseconds));
    timer_.async_wait([self = this->shared_from_this(), action](const error_code& error) {
      if (error) {
        self->finish("stopped while it waited");
        return;
      }
      action(*self);
    });
  }

  // ---- answering

  /// Counts the scripted fault as done: right before the client can notice it.
  void fire() {
    ++plan_.fault->fired;
    record_.fault = fault_name(plan_.fault->kind);
  }

  void answer_and_close(Response answer) {
    keep_alive_ = false;
    plan_.fault = nullptr;
    deliver(std::move(answer));
  }

  void deliver(Response answer) {
    if (context_.stopping || context_.crowded) keep_alive_ = false;
    record_.status = answer.status;
    ++context_.dispatcher.statistics().requests;
    if (!plan_.fault) {
      send(answer, answer.body.size());
      return;
    }
    const Fault& fault = *plan_.fault;
    switch (fault.kind) {
      case Fault_Kind::status:
      case Fault_Kind::delay:
        fire();
        send(answer, answer.body.size());
        return;
      case Fault_Kind::wrong_type:
        if (type_changed_) fire();
        send(answer, answer.body.size());
        return;
      case Fault_Kind::reset_before_commit:
      case Fault_Kind::reset_after_commit:
        reset();
        return;
      case Fault_Kind::cut:
        if (static_cast<std::uint64_t>(fault.bytes) < answer.body.size() && has_body(answer)) {
          fire();
          out_ = head(answer, answer.body.size());
          out_.append(answer.body, 0, static_cast<std::size_t>(fault.bytes));
          write({net::buffer(out_)}, &Http_Connection::on_cut);
        } else {
          send(answer, answer.body.size());
        }
        return;
      case Fault_Kind::drip:
        out_ = head(answer, answer.body.size());
        if (has_body(answer)) out_ += answer.body;
        if (out_.size() > static_cast<std::size_t>(fault.bytes)) fire();
        sent_ = 0;
        drip();
        return;
      case Fault_Kind::garbage:
        fire();
        if (fault.whole_answer) {
          out_ = random_bytes(fault.seed, static_cast<std::size_t>(fault.bytes));
          keep_alive_ = false;
          write({net::buffer(out_)}, &Http_Connection::on_answered);
        } else {
          answer.body = random_bytes(fault.seed, static_cast<std::size_t>(fault.bytes));
          send(answer, answer.body.size());
        }
        return;
      case Fault_Kind::huge:
        if (!has_body(answer)) {
          send(answer, answer.body.size());
          return;
        }
        fire();
        left_ = static_cast<std::uint64_t>(fault.bytes);
        out_ = head(answer, left_);
        filler_.assign(huge_piece, 'x');
        first_piece_ = true;
        write({net::buffer(out_)}, &Http_Connection::on_huge);
        return;
    }
  }

  bool has_body(const Response& answer) const {
    return request_.method != Method::head && answer.status != 204 && answer.status != 304;
  }

  std::string head(const Response& answer, std::uint64_t length) {
    const auto status = static_cast<http::status>(answer.status);
    std::string out = "HTTP/1.1 " + std::to_string(answer.status) + ' ' +
                      string_of(http::obsolete_reason(status)) +
                      "\r\nServer: zqpoold/" ZQPOOL_VERSION "\r\nDate: " + http_date() +
                      "\r\nX-Request-Id: " + record_.request_id + "\r\nCache-Control: no-store\r\n";
    for (const auto& [name, value] : answer.headers) {
      out.append(name).append(": ").append(value).append("\r\n");
    }
    if (answer.status != 204 && answer.status != 304) {
      out += "Content-Type: application/json\r\nContent-Length: " + std::to_string(length) + "\r\n";
    }
    if (!keep_alive_) {
      out += "Connection: close\r\n";
    } else if (parser_->get().version() < 11) {
      out += "Connection: keep-alive\r\n";
    }
    return out + "\r\n";
  }

  void send(Response& answer, std::uint64_t length) {
    out_ = head(answer, length);
    body_ = has_body(answer) ? std::move(answer.body) : std::string();
    write({net::buffer(out_), net::buffer(body_)}, &Http_Connection::on_answered);
  }

  static Clock::duration with_bytes(Clock::duration time, std::uint64_t bytes) {
    return time + std::chrono::seconds(bytes / Limits::slowest_rate);
  }

  // No std::array: Asio would hand its rest on with an empty buffer first, which ends a TLS write.
  void write(const std::vector<net::const_buffer>& buffers,
             void (Http_Connection::*member)(error_code, std::size_t)) {
    transport().expires_after(with_bytes(limits().answer, net::buffer_size(buffers)));
    net::async_write(stream_, buffers, then(member));
  }

  void on_answered(error_code error, std::size_t count) {
    record_.bytes += count;
    if (error) {
      finish(error == beast::error::timeout ? "the answer was not taken in time"
                                            : "the connection broke within the answer");
      return;
    }
    finish("");
    if (keep_alive_) {
      read_next();
    } else {
      close();
    }
  }

  void on_cut(error_code, std::size_t count) {
    record_.bytes += count;
    finish("");
    transport().close();
  }

  void drip() {
    const std::size_t piece =
        std::min(static_cast<std::size_t>(plan_.fault->bytes), out_.size() - sent_);
    write({net::buffer(out_.data() + sent_, piece)}, &Http_Connection::on_drip);
  }

  void on_drip(error_code error, std::size_t count) {
    sent_ += count;
    if (error || sent_ == out_.size()) {
      record_.bytes += sent_ - count;
      on_answered(error, count);
      return;
    }
    wait(plan_.fault->interval_ms, [](Http_Connection& self) { self.drip(); });
  }

  void on_huge(error_code error, std::size_t count) {
    if (error || left_ == 0) {
      on_answered(error, count);
      return;
    }
    record_.bytes += count;
    const std::size_t piece = std::min<std::uint64_t>(left_, huge_piece);
    left_ -= piece;
    filler_[0] = first_piece_ ? '"' : 'x';
    if (left_ == 0) filler_[piece - 1] = '"';
    first_piece_ = false;
    write({net::buffer(filler_.data(), piece)}, &Http_Connection::on_huge);
  }

  void reset() {
    fire();
    record_.status = 0;
    finish("");
    transport().reset();
  }

  void finish(const std::string& note) {
    record_.duration =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - started_);
    record_.note = note;
    context_.log.write(record_);
  }

  // ---- ending

  /// Says that nothing more comes, at once, and then waits shortly for the client to do the same.
  void close() {
    phase_ = Phase::ending;
    timer_.cancel();
    transport().expires_after(context_.stopping ? linger_time_when_stopping : linger_time);
    if constexpr (std::is_same_v<Stream, Tls_Stream>) {
      transport().end_before_next_read();
      stream_.async_shutdown(then(&Http_Connection::on_shutdown));
    } else {
      transport().send_end();
      linger();
    }
  }

  void on_shutdown(error_code) {
    transport().send_end();
    linger();
  }

  void linger() {
    buffer_.clear();
    transport().async_read_some(buffer_.prepare(read_piece), then(&Http_Connection::on_linger));
  }

  void on_linger(error_code error, std::size_t count) {
    lingered_ += count;
    if (error || lingered_ > linger_bytes) {
      transport().close();
      return;
    }
    linger();
  }

  Connection_Context& context_;
  std::function<void()> ended_;
  std::string peer_;
  Stream stream_;
  net::steady_timer timer_;
  beast::flat_buffer buffer_;
  Phase phase_ = Phase::idle;

  // Of the request at hand:
  std::optional<Parser> parser_;
  Request request_;
  Dispatcher::Plan plan_;
  Access_Record record_;
  Clock::time_point started_;
  bool keep_alive_ = false;
  bool type_changed_ = false;
  std::string out_;
  std::string body_;
  std::string filler_;
  std::size_t sent_ = 0;
  std::uint64_t left_ = 0;
  bool first_piece_ = false;
  std::size_t lingered_ = 0;
};

std::string peer_of(const tcp::socket& socket) {
  error_code error;
  const tcp::endpoint peer = socket.remote_endpoint(error);
  return error ? "" : text_of(peer);
}

}  // namespace

std::shared_ptr<Client_Connection> make_connection(tcp::socket socket, Connection_Context& context,
                                                   std::function<void()> ended) {
  const std::string peer = peer_of(socket);
  return std::make_shared<Http_Connection<Transport>>(context, std::move(ended), peer,
                                                      std::move(socket));
}

std::shared_ptr<Client_Connection> make_tls_connection(tcp::socket socket, net::ssl::context& tls,
                                                       Connection_Context& context,
                                                       std::function<void()> ended) {
  const std::string peer = peer_of(socket);
  return std::make_shared<Http_Connection<Tls_Stream>>(context, std::move(ended), peer,
                                                       std::move(socket), tls);
}

}  // namespace zqpool::service
