#include "service/http/connection.h"

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/text/host_port.h"
#include "service/http/faulty_response.h"
#include "service/http/request_head.h"
#include "service/http/response_head.h"
#include "service/http/transport.h"

namespace zqpool::service {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::system::error_code;
using net::ip::tcp;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t read_size = 16384;
// Space in the buffer beyond the largest header, for bytes of the body read with it.
constexpr std::size_t spare_buffer = 65536;
// Closing with unread input sends RST, which can drop the response.
constexpr milliseconds linger_time{2000};
constexpr milliseconds linger_time_when_stopping{200};
constexpr std::size_t max_linger_bytes = 4 << 20;

std::string peer_of(const tcp::socket& socket) {
  error_code error;
  const tcp::endpoint peer = socket.remote_endpoint(error);
  return error ? "" : text::host_port(peer.address().to_string(), peer.port());
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
        buffer_(context.limits.header_bytes + spare_buffer) {
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

  /// Runs an action on this connection's strand.
  template <typename Action>
  void post(Action action) {
    net::post(stream_.get_executor(), [self = this->shared_from_this(), action] { action(*self); });
  }
  /// A completion handler that calls a member function and keeps this object alive.
  template <typename... Args>
  auto then(void (Http_Connection::*member)(Args...)) {
    return [self = this->shared_from_this(), member](const error_code& error, auto&&... rest) {
      (self.get()->*member)(error, std::forward<decltype(rest)>(rest)...);
    };
  }

  // ---- reading

  void begin() {
    transport().set_no_delay();
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
    if (buffer_.size() > 0) {  // pipelined
      read_header();
      return;
    }
    phase_ = Phase::idle;
    if (context_.stopping) {
      close();
      return;
    }
    // Not the stream's own deadline: it would close the connection without a TLS close alert.
    transport().expires_never();
    timer_.expires_after(limits().idle);
    timer_.async_wait([self = this->shared_from_this()](const error_code& error) {
      const bool over = !error && self->timer_.expiry() <= Clock::now();
      if (over && self->phase_ == Phase::idle) self->transport().cancel();
    });
    stream_.async_read_some(buffer_.prepare(read_size), then(&Http_Connection::on_first_bytes));
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
    const Request_Header& header = parser_->get().base();  // possibly incomplete
    request_ = request_of(header);
    record_.method.assign(header.method_string().data(), header.method_string().size());
    record_.target.assign(header.target().data(), header.target().size());
    record_.request_id = request_id_of(header);
    if (error) {
      refuse_to_read(error);
      return;
    }
    const std::string wrong = header_error(header);
    if (!wrong.empty()) {
      respond_and_close(error_response(400, wrong));
      return;
    }
    keep_alive_ = parser_->keep_alive();
    plan_ = context_.dispatcher.plan(request_);
    if (parser_->is_done()) {
      carry_out();
    } else if (plan_.response) {
      respond_and_close(*plan_.response);  // without reading the body
    } else if (beast::iequals(header[http::field::expect], "100-continue")) {
      net::async_write(stream_, net::buffer("HTTP/1.1 100 Continue\r\n\r\n", 25),
                       then(&Http_Connection::on_continue));
    } else {
      read_body();
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
    // The parser leaves an incomplete line of a chunked body, and waits for its CRLF.
    if (!error &&
        has_bare_line_feed({static_cast<const char*>(buffer_.data().data()), buffer_.size()})) {
      error = http::error::bad_line_ending;
    }
    if (!error && buffer_.size() + read_size > buffer_.max_size()) {
      error = http::error::buffer_overflow;
    }
    if (error) {
      refuse_to_read(error);
      return;
    }
    stream_.async_read_some(buffer_.prepare(read_size), then(&Http_Connection::on_body_bytes));
  }

  void on_body_bytes(error_code error, std::size_t count) {
    if (error) {
      refuse_to_read(error == net::error::eof ? http::error::partial_message : error);
      return;
    }
    buffer_.commit(count);
    parse_body();
  }

  void refuse_to_read(const error_code& error) {
    const unsigned status = status_of(error);
    if (status != 0) {
      respond_and_close(error_response(status, "the request cannot be read: " + error.message()));
    } else if (error == beast::error::timeout) {
      finish("the request took too long to arrive");
    } else {
      finish("the connection ended during the request: " + error.message());
    }
  }

  // ---- carrying out

  void carry_out() {
    if (plan_.response) {
      respond(std::move(*plan_.response));
      return;
    }
    wait(fault_delay(false), [](Http_Connection& self) {
      self.work([](Http_Connection& worker) {
        return worker.context_.dispatcher.run(worker.plan_, worker.request_);
      });
    });
  }

  /// Runs a handler in a worker thread, as it may block, and goes on with its outcome.
  template <typename Action>
  void work(Action action) {
    net::post(context_.workers, [self = this->shared_from_this(), action] {
      auto outcome = std::make_shared<Outcome>(action(*self));
      net::post(self->stream_.get_executor(),
                [self, outcome] { self->on_outcome(std::move(*outcome)); });
    });
  }

  void on_outcome(Outcome outcome) {
    if (const auto* const deferred = std::get_if<Deferred>(&outcome)) {
      wait(deferred->after, [deferred = *deferred](Http_Connection& self) {
        self.work([deferred](Http_Connection& worker) {
          return worker.context_.dispatcher.run(deferred, worker.request_);
        });
      });
      return;
    }
    auto response = std::make_shared<Response>(std::get<Response>(std::move(outcome)));
    wait(fault_delay(true),
         [response](Http_Connection& self) { self.respond(std::move(*response)); });
  }

  milliseconds fault_delay(bool after_commit) const {
    const bool due = plan_.fault && plan_.fault->delay_after_commit == after_commit;
    return milliseconds(due ? plan_.fault->delay_ms : 0);
  }

  template <typename Action>
  void wait(milliseconds time, Action action) {
    if (time.count() == 0) {
      action(*this);
      return;
    }
    timer_.expires_after(time);
    timer_.async_wait([self = this->shared_from_this(), action](const error_code& error) {
      if (error) {
        self->finish("stopped while it waited");
        return;
      }
      action(*self);
    });
  }

  // ---- responding

  void respond_and_close(Response response) {
    keep_alive_ = false;
    plan_.fault = nullptr;
    respond(std::move(response));
  }

  void respond(Response response) {
    if (context_.stopping || context_.crowded) keep_alive_ = false;
    record_.status = response.status;
    ++context_.dispatcher.statistics().requests;
    const Response_Context context{record_.request_id, request_.method == Method::head,
                                   parser_->get().version() < 11, keep_alive_};
    if (plan_.fault) {
      respond_faulty(std::move(response), context);
      return;
    }
    out_ = response_head(response, response.body.size(), context);
    body_ = has_body(response, context) ? std::move(response.body) : std::string();
    write({net::buffer(out_), net::buffer(body_)}, &Http_Connection::on_sent);
  }

  static Clock::duration with_bytes(Clock::duration time, std::uint64_t bytes) {
    return time + std::chrono::seconds(bytes / Limits::min_rate);
  }

  // No std::array: after a partial write Asio would pass an empty buffer, which ends a TLS write.
  void write(const std::vector<net::const_buffer>& buffers,
             void (Http_Connection::*member)(error_code, std::size_t)) {
    transport().expires_after(with_bytes(limits().answer, net::buffer_size(buffers)));
    net::async_write(stream_, buffers, then(member));
  }

  void on_sent(error_code error, std::size_t count) {
    record_.bytes += count;
    if (error) {
      finish(error == beast::error::timeout ? "the client did not read the response in time"
                                            : "the connection broke during the response");
      return;
    }
    end_response();
  }

  void end_response() {
    finish("");
    if (keep_alive_) {
      read_next();
    } else {
      close();
    }
  }

  void finish(const std::string& note) {
    record_.duration =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - started_);
    record_.note = note;
    context_.log.write(record_);
  }

  // ---- responding with a scripted fault

  void respond_faulty(Response response, const Response_Context& context) {
    faulty_.emplace(*plan_.fault, std::move(response), context);
    if (faulty_->happens()) {
      ++plan_.fault->fired;  // before the client can notice
      record_.fault = fault_name(plan_.fault->kind);
    }
    send_piece();
  }

  void send_piece() {
    out_ = faulty_->next_piece();
    if (out_.empty()) {
      end_faulty_response();
    } else {
      write({net::buffer(out_)}, &Http_Connection::on_piece);
    }
  }

  void on_piece(error_code error, std::size_t count) {
    if (error) {
      on_sent(error, count);
      return;
    }
    record_.bytes += count;
    wait(faulty_->pause(), [](Http_Connection& self) { self.send_piece(); });
  }

  void end_faulty_response() {
    switch (faulty_->end()) {
      case Faulty_Response::End::close:
        keep_alive_ = false;
        end_response();
        break;
      case Faulty_Response::End::normal:
        end_response();
        break;
      case Faulty_Response::End::cut:
        finish("");
        transport().close();
        break;
      case Faulty_Response::End::reset:
        record_.status = 0;
        finish("");
        transport().reset();
        break;
    }
  }

  // ---- ending

  /// Closes our side at once, then waits a moment for the client to close its own.
  void close() {
    phase_ = Phase::ending;
    timer_.cancel();
    transport().expires_after(context_.stopping ? linger_time_when_stopping : linger_time);
    if constexpr (std::is_same_v<Stream, Tls_Stream>) {
      transport().send_fin_before_next_read();
      stream_.async_shutdown(then(&Http_Connection::on_shutdown));
    } else {
      transport().send_fin();
      linger();
    }
  }

  void on_shutdown(error_code) {
    transport().send_fin();
    linger();
  }

  void linger() {
    buffer_.clear();
    transport().async_read_some(buffer_.prepare(read_size), then(&Http_Connection::on_linger));
  }

  void on_linger(error_code error, std::size_t count) {
    lingered_ += count;
    if (error || lingered_ > max_linger_bytes) {
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

  // Of the current request:
  std::optional<Parser> parser_;
  Request request_;
  Dispatcher::Plan plan_;
  Access_Record record_;
  Clock::time_point started_;
  bool keep_alive_ = false;
  std::string out_;
  std::string body_;
  std::optional<Faulty_Response> faulty_;

  std::size_t lingered_ = 0;
};

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
