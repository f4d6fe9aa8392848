#include "platform/http/detail/stream.h"

#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <utility>
#include <vector>

namespace zqpool::detail {
namespace {

// RFC 8305's Connection Attempt Delay.
constexpr std::chrono::milliseconds attempt_delay{250};

// Limit for checking an idle TLS connection whose peer sends records without end.
constexpr std::chrono::milliseconds max_look{50};

constexpr const char* no_answer = "no answer in time";
constexpr const char* not_taken = "the service stopped reading the request";

/// Sets the failure from errno; EAGAIN means that the deadline has passed.
bool system_failure(const char* too_late, Failure& failure) {
  return errno == EAGAIN ? failure.set(HTTP_Error::timeout, too_late)
                         : failure.set(HTTP_Error::broken, errno_text(errno));
}

// --- OpenSSL's view of the socket -------------------------------------------------------------
// OpenSSL's own socket BIO calls write(), which raises SIGPIPE on a broken connection.

Socket& socket_of(BIO* bio) {
  return *static_cast<Socket*>(BIO_get_data(bio));
}

int bio_write(BIO* bio, const char* data, int size) {
  BIO_clear_retry_flags(bio);
  const ssize_t n = socket_of(bio).send(data, static_cast<std::size_t>(size));
  if (n < 0 && errno == EAGAIN) BIO_set_retry_write(bio);
  return static_cast<int>(n);
}

int bio_read(BIO* bio, char* buffer, int size) {
  BIO_clear_retry_flags(bio);
  const ssize_t n = socket_of(bio).receive(buffer, static_cast<std::size_t>(size));
  if (n < 0 && errno == EAGAIN) BIO_set_retry_read(bio);
  if (n == 0) BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
  return static_cast<int>(n);
}

long bio_control(BIO* bio, int command, long, void*) {
  switch (command) {
    case BIO_CTRL_FLUSH:
      return 1;
    case BIO_CTRL_EOF:
      return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
    default:
      return 0;
  }
}

BIO_METHOD* socket_bio() {
  static BIO_METHOD* const method = [] {
    BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "quiet socket");
    if (made != nullptr) {
      BIO_meth_set_write(made, &bio_write);
      BIO_meth_set_read(made, &bio_read);
      BIO_meth_set_ctrl(made, &bio_control);
    }
    return made;
  }();
  return method;
}

/// The socket must outlive the SSL.
bool attach(SSL* ssl, Socket& socket) {
  BIO* const bio = socket_bio() != nullptr ? BIO_new(socket_bio()) : nullptr;
  if (bio == nullptr) return false;
  BIO_set_data(bio, &socket);
  BIO_set_init(bio, 1);
  SSL_set_bio(ssl, bio, bio);
  return true;
}

// --- Connecting -------------------------------------------------------------------------------

int connect_result(int fd) noexcept {
  int error = 0;
  socklen_t length = sizeof error;
  return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

/// Connects to several addresses concurrently, starting one after the other (RFC 8305).
class Happy_Eyeballs {
 public:
  Happy_Eyeballs(const Addresses& addresses, Deadline deadline)
      : next_(addresses.begin()), end_(addresses.end()), deadline_(deadline) {}

  /// Returns the address that `winner` is now connected to, or null.
  const Address* connect(Socket& winner, Failure& failure) {
    while (next_ != end_ || !attempts_.empty()) {
      if (next_ != end_ && (attempts_.empty() || next_start_.passed())) {
        begin(*next_++);
        continue;
      }
      if (deadline_.passed()) {
        failure.set(HTTP_Error::timeout, "the connection attempt was not answered in time");
        return nullptr;
      }
      if (const Address* const connected = wait_for_one(winner)) return connected;
    }
    failure.set(HTTP_Error::connect, errno_text(last_error_));
    return nullptr;
  }

 private:
  struct Attempt {
    Socket socket;
    const Address* address;
  };

  void begin(const Address& address) {
    next_start_ = Deadline::in(attempt_delay);
    Socket socket(
        ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket.is_open() &&
        (::connect(socket.fd(), address.get(), address.length) == 0 || errno == EINPROGRESS)) {
      attempts_.push_back({std::move(socket), &address});
    } else {
      last_error_ = errno;
    }
  }

  const Address* wait_for_one(Socket& winner) {
    std::vector<pollfd> entries;
    for (const Attempt& attempt : attempts_)
      entries.push_back({attempt.socket.fd(), POLLOUT, 0});
    const Deadline end = next_ != end_ ? deadline_.or_sooner(next_start_) : deadline_;
    if (poll(entries.data(), entries.size(), end.poll_timeout()) <= 0) return nullptr;
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (entries[i].revents == 0) continue;
      Attempt& attempt = attempts_[i];
      const int error = connect_result(attempt.socket.fd());
      if (error == 0) {
        winner = std::move(attempt.socket);
        return attempt.address;
      }
      last_error_ = error;
      attempt.socket.close();
    }
    attempts_.erase(
        std::remove_if(attempts_.begin(), attempts_.end(),
                       [](const Attempt& attempt) { return !attempt.socket.is_open(); }),
        attempts_.end());
    return nullptr;
  }

  Addresses::const_iterator next_;
  const Addresses::const_iterator end_;
  const Deadline deadline_;
  Deadline next_start_{Clock::time_point::min()};
  std::vector<Attempt> attempts_;
  int last_error_ = 0;
};

}  // namespace

std::string errno_text(int error_number) {
  return std::generic_category().message(error_number);
}

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    close();
    fd_ = std::exchange(other.fd_, -1);
    deadline_ = other.deadline_;
    may_wait_ = other.may_wait_;
  }
  return *this;
}

void Socket::close() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool Socket::wait_for(short event) noexcept {
  pollfd entry{fd_, event, 0};
  while (const int left = deadline_.poll_timeout()) {
    const int ready = poll(&entry, 1, may_wait_ ? left : 0);
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
    if (!may_wait_) break;
  }
  errno = EAGAIN;
  return false;
}

ssize_t Socket::send(const void* data, std::size_t size) noexcept {
  while (!deadline_.passed()) {
    const ssize_t n = ::send(fd_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0 || errno != EAGAIN) return n;
    if (!wait_for(POLLOUT)) return -1;
  }
  errno = EAGAIN;
  return -1;
}

ssize_t Socket::receive(void* buffer, std::size_t size) noexcept {
  while (wait_for(POLLIN)) {
    const ssize_t n = ::recv(fd_, buffer, size, MSG_DONTWAIT);
    if (n >= 0 || errno != EAGAIN) return n;
  }
  return -1;
}

Stream::~Stream() {
  // Pretends an orderly shutdown, without which OpenSSL would not resume this session.
  if (ssl_ != nullptr) SSL_set_shutdown(ssl_.get(), SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);
}

bool Stream::connect(const Addresses& addresses, Deadline deadline, Failure& failure) {
  const Address* const connected = Happy_Eyeballs(addresses, deadline).connect(socket_, failure);
  if (connected == nullptr) return false;
  peer_ = *connected;
  // Nagle's algorithm would hold back the end of a request of several packets.
  const int on = 1;
  setsockopt(socket_.fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return true;
}

bool Stream::start_tls(std::shared_ptr<TLS_Context> context, const std::string& host,
                       std::string endpoint, Deadline deadline, Failure& failure) {
  if (!context->error().empty()) {
    failure.permanent = true;
    return failure.set(HTTP_Error::tls, context->error());
  }
  context_ = std::move(context);
  endpoint_ = std::move(endpoint);
  ERR_clear_error();
  const bool literal = is_address_literal(host);
  ssl_ = context_->make_client(host, literal, endpoint_);
  if (ssl_ == nullptr || !attach(ssl_.get(), socket_)) {
    return failure.set(HTTP_Error::tls, "cannot set up TLS: " + openssl_error_text());
  }
  socket_.limit(deadline);
  const int result = SSL_do_handshake(ssl_.get());
  if (result == 1) {
    return TLS_Context::is_certified(ssl_.get(), host, literal) ||
           failure.set(HTTP_Error::tls, "certificate refused: it is for another host");
  }
  tls_failure(result, "handshake", failure);
  if (failure.error != HTTP_Error::timeout) failure.error = HTTP_Error::tls;
  return false;
}

/// Sets the failure of a TLS call and returns false.
bool Stream::tls_failure(int result, const char* doing, Failure& failure) {
  const int error_number = errno;
  switch (SSL_get_error(ssl_.get(), result)) {
    case SSL_ERROR_WANT_READ:
      return failure.set(HTTP_Error::timeout, no_answer);
    case SSL_ERROR_WANT_WRITE:
      return failure.set(HTTP_Error::timeout, not_taken);
    case SSL_ERROR_SYSCALL:
      return failure.set(HTTP_Error::broken, errno_text(error_number));
    case SSL_ERROR_SSL: {
      const long verdict = SSL_get_verify_result(ssl_.get());
      const unsigned long code = ERR_peek_error();
      if (ERR_GET_REASON(code) == SSL_R_CERTIFICATE_VERIFY_FAILED && verdict != X509_V_OK) {
        ERR_clear_error();
        failure.permanent = true;
        return failure.set(HTTP_Error::tls, std::string("certificate refused: ") +
                                                X509_verify_cert_error_string(verdict));
      }
      if (ERR_GET_REASON(code) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
        ERR_clear_error();
        return failure.set(
            HTTP_Error::broken,
            std::string("the service ended the connection in the middle of the TLS ") + doing);
      }
      return failure.set(HTTP_Error::tls, openssl_error_text());
    }
    default:
      return failure.set(HTTP_Error::broken, "the service ended the TLS connection");
  }
}

bool Stream::send(std::string_view data, Deadline deadline, bool& touched, Failure& failure) {
  socket_.limit(deadline);
  while (!data.empty()) {
    std::size_t n = 0;
    if (ssl_ == nullptr) {
      const ssize_t result = socket_.send(data.data(), data.size());
      if (result < 0) return system_failure(not_taken, failure);
      n = static_cast<std::size_t>(result);
      touched = touched || n != 0;
    } else {
      // A failed SSL_write_ex() may have sent part of a record.
      touched = true;
      ERR_clear_error();
      const int result = SSL_write_ex(ssl_.get(), data.data(), data.size(), &n);
      if (result != 1) return tls_failure(result, "stream", failure);
    }
    data.remove_prefix(n);
  }
  return true;
}

ssize_t Stream::receive(char* buffer, std::size_t size, Deadline deadline, Failure& failure) {
  socket_.limit(deadline);
  if (ssl_ == nullptr) {
    const ssize_t result = socket_.receive(buffer, size);
    if (result < 0) system_failure(no_answer, failure);
    return result;
  }
  std::size_t n = 0;
  ERR_clear_error();
  const int result = SSL_read_ex(ssl_.get(), buffer, size, &n);
  if (result == 1) return static_cast<ssize_t>(n);
  // SSL_RECEIVED_SHUTDOWN would not do: a fatal alert sets it, too.
  if (SSL_get_error(ssl_.get(), result) == SSL_ERROR_ZERO_RETURN) return 0;
  tls_failure(result, "stream", failure);
  return -1;
}

bool Stream::is_idle() noexcept {
  if (!socket_.is_open()) return false;
  char byte = 0;
  if (ssl_ == nullptr) {
    return ::recv(socket_.fd(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
  }
  // Through OpenSSL, because session tickets may have come, which are harmless.
  socket_.limit(Deadline::in(max_look), false);
  ERR_clear_error();
  std::size_t n = 0;
  const int result = SSL_peek_ex(ssl_.get(), &byte, 1, &n);
  return result != 1 && SSL_get_error(ssl_.get(), result) == SSL_ERROR_WANT_READ;
}

void Stream::close_after_peer(Deadline deadline) {
  char scrap[512];
  Failure ignored;
  while (receive(scrap, sizeof scrap, deadline, ignored) > 0) {
  }
  if (ssl_ != nullptr && (SSL_get_shutdown(ssl_.get()) & SSL_RECEIVED_SHUTDOWN) != 0) {
    // The peer may wait for our close_notify before it closes its side.
    SSL_shutdown(ssl_.get());
    ssl_.reset();
    socket_.receive(scrap, sizeof scrap);
  }
  socket_.close();
}

}  // namespace zqpool::detail
