#include "tests/support/scripted_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <strings.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "tests/support/secrets.h"

namespace zqpool::test {
namespace {

using namespace std::chrono_literals;

// The server's threads take no signal, neither those that a test sends about nor SIGPIPE, which
// OpenSSL's socket BIO would raise when a client is gone.
class Signals_Blocked {
 public:
  Signals_Blocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~Signals_Blocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  Signals_Blocked(const Signals_Blocked&) = delete;
  Signals_Blocked& operator=(const Signals_Blocked&) = delete;

 private:
  sigset_t before_;
};

void require(bool good, const char* what) {
  if (!good) throw std::runtime_error(std::string("scripted server: ") + what);
}

std::shared_ptr<SSL_CTX> make_context(const Server_Options& options) {
  std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
  SSL_CTX* const raw = context.get();
  require(raw != nullptr, "TLS context");
  require(SSL_CTX_use_certificate_file(raw, options.identity->certificate_file.c_str(),
                                       SSL_FILETYPE_PEM) == 1,
          "certificate");
  require(
      SSL_CTX_use_PrivateKey_file(raw, options.identity->key_file.c_str(), SSL_FILETYPE_PEM) == 1,
      "key");
  const unsigned char name[] = "zqpool";
  SSL_CTX_set_session_id_context(raw, name, sizeof name);
  if (options.max_tls_version != 0) SSL_CTX_set_max_proto_version(raw, options.max_tls_version);
  if (options.want_client_certificate) {
    require(SSL_CTX_load_verify_file(raw, Test_Certificates::instance().ca_file.c_str()) == 1,
            "client CA");
    SSL_CTX_set_verify(raw, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  }
  return context;
}

// What was sent must be on its way when the connection is reset right after.
void send_at_once(int socket) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void reset_on_close(int socket) {
  const linger now{1, 0};
  setsockopt(socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

bool same_name(const std::string& a, const std::string& b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

bool parse_head(const std::string& head, Recorded_Request& request) {
  std::size_t at = head.find("\r\n");
  request.line = head.substr(0, at);
  const std::size_t first = request.line.find(' ');
  const std::size_t last = request.line.rfind(' ');
  if (first == std::string::npos || last == first) return false;
  request.method = request.line.substr(0, first);
  request.target = request.line.substr(first + 1, last - first - 1);
  for (at += 2; at + 2 < head.size();) {
    const std::size_t end = head.find("\r\n", at);
    const std::size_t colon = head.find(':', at);
    if (end == std::string::npos || colon == std::string::npos || colon > end) return false;
    const std::size_t value = std::min(head.find_first_not_of(' ', colon + 1), end);
    request.headers.emplace_back(head.substr(at, colon - at), head.substr(value, end - value));
    at = end + 2;
  }
  return true;
}

std::string common_name(SSL* ssl) {
  X509* const certificate = SSL_get1_peer_certificate(ssl);
  if (certificate == nullptr) return "";
  char name[256] = "";
  X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, name, sizeof name);
  X509_free(certificate);
  return name;
}

}  // namespace

std::string Recorded_Request::header(const std::string& name) const {
  for (const auto& [known, value] : headers) {
    if (same_name(known, name)) return value;
  }
  return "";
}

std::size_t Recorded_Request::header_count(const std::string& name) const {
  return static_cast<std::size_t>(
      std::count_if(headers.begin(), headers.end(),
                    [&name](const auto& header) { return same_name(header.first, name); }));
}

// One connection, plain or TLS. Every wait ends when the server stops.
class Scripted_Server::Stream {
 public:
  Stream(int socket, int stop) : socket_(socket), stop_(stop) { send_at_once(socket); }
  ~Stream() { SSL_free(ssl_); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// Waits for any of `events`, at most so long (-1: for ever). False when the server stops.
  bool wait(short events, std::chrono::milliseconds limit = -1ms) {
    pollfd both[2] = {{socket_.get(), events, 0}, {stop_, POLLIN, 0}};
    const int ready = poll(both, 2, static_cast<int>(limit.count()));
    return ready >= 0 && both[1].revents == 0;
  }
  /// Sleeps. False when the server stops or the peer is gone.
  bool pause(std::chrono::milliseconds time) {
    pollfd both[2] = {{socket_.get(), POLLRDHUP, 0}, {stop_, POLLIN, 0}};
    return poll(both, 2, static_cast<int>(time.count())) == 0;
  }

  bool handshake(SSL_CTX* context) {
    ssl_ = SSL_new(context);
    SSL_set_fd(ssl_, socket_.get());
    for (;;) {
      ERR_clear_error();
      const int result = SSL_accept(ssl_);
      if (result == 1) return true;
      if (!again(result)) return false;
    }
  }

  /// Bytes read; 0 at the end or on a failure.
  std::size_t read(char* data, std::size_t size) {
    for (;;) {
      if (ssl_ != nullptr) {
        ERR_clear_error();
        const int got = SSL_read(ssl_, data, static_cast<int>(size));
        if (got > 0) return static_cast<std::size_t>(got);
        if (!again(got)) return 0;
        continue;
      }
      const ssize_t got = recv(socket_.get(), data, size, 0);
      if (got > 0) return static_cast<std::size_t>(got);
      if (got == 0 || (errno != EAGAIN && errno != EINTR) || !wait(POLLIN)) return 0;
    }
  }

  bool write(const char* data, std::size_t size) {
    while (size > 0) {
      std::size_t sent = 0;
      if (ssl_ != nullptr) {
        ERR_clear_error();
        const int put =
            SSL_write(ssl_, data, static_cast<int>(std::min<std::size_t>(size, 1 << 20)));
        if (put <= 0) {
          if (!again(put)) return false;
          continue;
        }
        sent = static_cast<std::size_t>(put);
      } else {
        const ssize_t put = send(socket_.get(), data, size, MSG_NOSIGNAL);
        if (put < 0) {
          if ((errno != EAGAIN && errno != EINTR) || !wait(POLLOUT)) return false;
          continue;
        }
        sent = static_cast<std::size_t>(put);
      }
      data += sent;
      size -= sent;
    }
    return true;
  }

  /// Shuts down our half; under TLS with a close alert if `in_order`.
  void close(bool in_order) {
    if (ssl_ != nullptr && in_order) {
      ERR_clear_error();
      SSL_shutdown(ssl_);
    }
    shutdown(socket_.get(), SHUT_WR);
  }
  void reset() { reset_on_close(socket_.get()); }
  /// Reads and drops everything until the peer is gone.
  void hold() {
    char dropped[4096];
    for (;;) {
      const ssize_t got = recv(socket_.get(), dropped, sizeof dropped, 0);
      if (got > 0 || (got < 0 && errno == EINTR)) continue;
      if (got == 0 || errno != EAGAIN || !wait(POLLIN)) return;
    }
  }
  /// Reads nothing; waits until the peer is gone.
  void ignore() {
    pollfd both[2] = {{socket_.get(), POLLRDHUP, 0}, {stop_, POLLIN, 0}};
    while (poll(both, 2, -1) < 0 && errno == EINTR) {
    }
  }

  SSL* ssl() const { return ssl_; }

 private:
  bool again(int result) {
    switch (SSL_get_error(ssl_, result)) {
      case SSL_ERROR_WANT_READ:
        return wait(POLLIN);
      case SSL_ERROR_WANT_WRITE:
        return wait(POLLOUT);
      default:
        return false;
    }
  }

  File_Descriptor socket_;
  int stop_;
  SSL* ssl_ = nullptr;
};

Scripted_Server::Scripted_Server(const Server_Options& options)
    : host_(options.ipv6 ? "::1" : "127.0.0.1"),
      context_(options.identity != nullptr ? make_context(options) : nullptr),
      listener_(bound_socket(host_)),
      stop_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  require(stop_.get() >= 0, "eventfd");
  if (options.receive_buffer > 0) {
    // Accepted connections inherit it.
    setsockopt(listener_.get(), SOL_SOCKET, SO_RCVBUF, &options.receive_buffer,
               sizeof options.receive_buffer);
  }
  require(listen(listener_.get(), 512) == 0, "listen");
  port_ = port_of(listener_);
  const Signals_Blocked blocked;
  acceptor_ = std::thread([this] { accept_connections(); });
}

Scripted_Server::~Scripted_Server() {
  stop();
}

void Scripted_Server::stop() {
  if (!acceptor_.joinable()) return;
  const std::uint64_t one = 1;
  if (write(stop_.get(), &one, sizeof one) != sizeof one) std::abort();
  acceptor_.join();
  listener_.close();
  for (Connection& connection : connections_)
    connection.thread.join();
  connections_.clear();
}

Scripted_Server& Scripted_Server::queue(Answer answer) {
  const std::lock_guard lock(mutex_);
  queue_.push_back(std::move(answer));
  return *this;
}

Scripted_Server& Scripted_Server::otherwise(Answer answer) {
  const std::lock_guard lock(mutex_);
  otherwise_ = std::move(answer);
  otherwise_made_ = nullptr;
  return *this;
}

Scripted_Server& Scripted_Server::otherwise(std::function<Answer(const Recorded_Request&)> answer) {
  const std::lock_guard lock(mutex_);
  otherwise_.reset();
  otherwise_made_ = std::move(answer);
  return *this;
}

std::vector<Recorded_Request> Scripted_Server::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

Recorded_Request Scripted_Server::request(std::size_t number) const {
  const std::lock_guard lock(mutex_);
  return requests_.at(number);
}

std::size_t Scripted_Server::request_count() const {
  const std::lock_guard lock(mutex_);
  return requests_.size();
}

std::size_t Scripted_Server::connection_count() const {
  const std::lock_guard lock(mutex_);
  return taken_;
}

std::size_t Scripted_Server::unused_answers() const {
  const std::lock_guard lock(mutex_);
  return queue_.size();
}

std::size_t Scripted_Server::unscripted_requests() const {
  const std::lock_guard lock(mutex_);
  return unscripted_;
}

std::uint64_t Scripted_Server::bytes_received() const {
  const std::lock_guard lock(mutex_);
  return bytes_;
}

std::size_t Scripted_Server::failed_handshakes() const {
  const std::lock_guard lock(mutex_);
  return failed_handshakes_;
}

template <typename Done>
bool Scripted_Server::wait_until(Done done) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, max_wait, done);
}

bool Scripted_Server::wait_for_requests(std::size_t count) const {
  return wait_until([this, count] { return requests_.size() >= count; });
}

bool Scripted_Server::wait_for_connections(std::size_t count) const {
  return wait_until([this, count] { return taken_ >= count; });
}

bool Scripted_Server::wait_for_closes(std::size_t count) const {
  return wait_until([this, count] { return closed_ >= count; });
}

bool Scripted_Server::settle() const {
  // A connection that the kernel has completed may not be accepted yet.
  pollfd waiting{listener_.get(), POLLIN, 0};
  return wait_until([this, &waiting] { return open_ == 0 && poll(&waiting, 1, 0) == 0; });
}

void Scripted_Server::received(std::size_t bytes) {
  const std::lock_guard lock(mutex_);
  bytes_ += bytes;
}

void Scripted_Server::count_close() {
  const std::lock_guard lock(mutex_);
  ++closed_;
  changed_.notify_all();
}

void Scripted_Server::accept_connections() {
  for (;;) {
    pollfd both[2] = {{listener_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}};
    if (poll(both, 2, -1) < 0 || both[1].revents != 0) return;
    // Counted before it is taken from the queue, so that settle() never misses it in between.
    {
      const std::lock_guard lock(mutex_);
      ++open_;
    }
    const int socket = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    std::size_t number = 0;
    {
      const std::lock_guard lock(mutex_);
      if (socket < 0) --open_;
      if (socket >= 0) number = taken_++;
      changed_.notify_all();
    }
    if (socket < 0) continue;
    for (auto i = connections_.begin(); i != connections_.end();) {
      if (i->done) {
        i->thread.join();
        i = connections_.erase(i);
      } else {
        ++i;
      }
    }
    Connection& connection = connections_.emplace_back();
    connection.thread =
        std::thread([this, socket, number, &connection, special = take_connection_answer()] {
          {
            Stream stream(socket, stop_.get());
            serve(stream, number, special);
          }
          {
            const std::lock_guard lock(mutex_);
            --open_;
            changed_.notify_all();
          }
          connection.done = true;
        });
  }
}

std::optional<Answer> Scripted_Server::take_connection_answer() {
  const std::lock_guard lock(mutex_);
  const bool queued = !queue_.empty();
  if (!queued && !otherwise_) return std::nullopt;
  const Answer& next = queued ? queue_.front() : *otherwise_;
  if (next.on_accept_ == Answer::On_Accept::read) return std::nullopt;
  std::optional<Answer> answer = next;
  if (queued) queue_.pop_front();
  return answer;
}

Answer Scripted_Server::next_answer(const Recorded_Request& request) {
  std::unique_lock lock(mutex_);
  if (!queue_.empty()) {
    Answer answer = std::move(queue_.front());
    queue_.pop_front();
    return answer;
  }
  if (otherwise_) return *otherwise_;
  if (otherwise_made_) {
    const auto make = otherwise_made_;
    lock.unlock();
    return make(request);
  }
  ++unscripted_;
  return json_answer(599, R"({"error":"nothing scripted"})");
}

void Scripted_Server::serve(Stream& stream, std::size_t number,
                            const std::optional<Answer>& special) {
  if (special && special->on_accept_ != Answer::On_Accept::reset_later) {
    if (special->on_accept_ == Answer::On_Accept::ignore) stream.ignore();
    if (special->on_accept_ == Answer::On_Accept::reset) stream.reset();
    return;
  }
  if (context_ != nullptr && !stream.handshake(context_.get())) {
    {
      const std::lock_guard lock(mutex_);
      ++failed_handshakes_;
    }
    // Closed in order, so that the client receives the alert first.
    stream.close(false);
    stream.hold();
    return;
  }
  if (special) {
    char dropped[4096];
    for (std::size_t left = special->read_first_; left > 0;) {
      const std::size_t got = stream.read(dropped, std::min(left, sizeof dropped));
      if (got == 0) return;
      received(got);
      left -= got;
    }
    stream.write(special->body_.data(), special->body_.size());
    stream.reset();
    return;
  }
  std::string buffer;
  for (std::size_t count = 0;; ++count) {
    Recorded_Request request;
    request.connection = number;
    request.on_connection = count;
    if (SSL* const ssl = stream.ssl(); ssl != nullptr) {
      request.tls_resumed = SSL_session_reused(ssl) == 1;
      const char* const name = SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name);
      if (name != nullptr) request.sni = name;
      request.client_certificate = common_name(ssl);
    }
    if (!read_request(stream, buffer, request)) return;
    Secrets::add(request.header("X-Access-Key"));
    {
      const std::lock_guard lock(mutex_);
      requests_.push_back(request);
      changed_.notify_all();
    }
    if (!answer_request(stream, request)) return;
  }
}

bool Scripted_Server::read_request(Stream& stream, std::string& buffer, Recorded_Request& request) {
  const auto read_more = [&] {
    char data[65536];
    const std::size_t got = stream.read(data, sizeof data);
    received(got);
    if (request.first_piece == 0) request.first_piece = got;
    buffer.append(data, got);
    return got > 0;
  };
  std::size_t end = buffer.find("\r\n\r\n");
  while (end == std::string::npos) {
    if (!read_more()) return false;
    end = buffer.find("\r\n\r\n");
  }
  if (!parse_head(buffer.substr(0, end + 4), request)) return false;
  const std::size_t length = std::strtoull(request.header("Content-Length").c_str(), nullptr, 10);
  const std::size_t whole = end + 4 + length;
  while (buffer.size() < whole) {
    if (!read_more()) return false;
  }
  request.raw = buffer.substr(0, whole);
  request.body = buffer.substr(end + 4, length);
  buffer.erase(0, whole);
  return true;
}

bool Scripted_Server::answer_request(Stream& stream, const Recorded_Request& request) {
  const Answer answer = next_answer(request);
  if (answer.hook_) answer.hook_(request);
  const bool asked_to_close = same_name(request.header("Connection"), "close");
  const bool closing = answer.end_ == Answer::End::automatic && asked_to_close;
  std::string bytes = answer.bytes(closing);
  if (answer.cut_after_ < bytes.size()) bytes.resize(answer.cut_after_);
  const std::size_t at_once =
      answer.pause_ > 0ms ? std::min(answer.drip_from_, bytes.size()) : bytes.size();
  bool alive = stream.write(bytes.data(), at_once);
  for (std::size_t at = at_once; alive && at < bytes.size(); ++at) {
    alive = stream.pause(answer.pause_) && stream.write(bytes.data() + at, 1);
  }
  if (!alive) return false;
  switch (answer.end_) {
    case Answer::End::automatic:
      if (!closing) return true;
      [[fallthrough]];
    case Answer::End::close:
    case Answer::End::abrupt:
      stream.close(answer.end_ != Answer::End::abrupt);
      count_close();
      stream.hold();
      return false;
    case Answer::End::reset:
      stream.reset();
      return false;
    case Answer::End::hold:
      stream.hold();
      return false;
  }
  return false;
}

}  // namespace zqpool::test
