#include "platform/http/detail/stream.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <utility>
#include <vector>

namespace zqpool::detail {
namespace {

// How long an address may keep silent before the next one is tried beside it.
constexpr std::chrono::milliseconds silent_address{250};

// Below this a request leaves in one packet, which Nagle's algorithm never holds back.
constexpr std::size_t one_packet = 1200;

// How long receiving sleeps before it looks at its deadline again. The kernel's plain timeouts,
// unlike those of poll(), come late by up to an eighth of their length, but cost a sleep next to
// nothing.
constexpr std::chrono::milliseconds longest_sleep{500};

// A service close by answers within microseconds. Looking for these few costs less than
// being put to sleep and woken, on a virtual machine above all.
constexpr int looks_before_sleep = 20;

constexpr const char* no_answer = "no answer in time";
constexpr const char* not_taken = "the service took no more of the request in time";

/// The failure that errno says; EAGAIN is `too_late`.
bool system_failure(const char* too_late, Failure& failure) {
  return errno == EAGAIN ? failure.set(HTTP_Error::timeout, too_late)
                         : failure.set(HTTP_Error::broken, errno_text(errno));
}

void send_at_once(int fd) noexcept {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// --- OpenSSL's view of the socket -------------------------------------------------------------
// Its own socket BIO writes with write(), which raises SIGPIPE on a broken connection.

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

/// SSL_get_error() takes errors that somebody left in this thread's queue for the call's own.
/// Looking first is a third of the work of clearing all sixteen places of an empty queue.
void clear_old_errors() {
  if (ERR_peek_error() != 0) ERR_clear_error();
}

// --- Connecting -------------------------------------------------------------------------------

/// The state of a non-blocking connect: 0 connected, EINPROGRESS not yet, else the errno.
int begin_connect(int fd, const Address& address) noexcept {
  if (::connect(fd, address.get(), address.length) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  // On the same host the peer has answered by now; asking again is cheaper than poll().
  if (::connect(fd, address.get(), address.length) == 0 || errno == EISCONN) return 0;
  return errno == EALREADY ? EINPROGRESS : errno;
}

int connect_result(int fd) noexcept {
  int error = 0;
  socklen_t length = sizeof error;
  return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

/// Connects to several addresses side by side, begun one after the other.
class Connect_Race {
 public:
  Connect_Race(const Addresses& addresses, Deadline deadline)
      : addresses_(addresses), deadline_(deadline) {}

  /// The index of the address that `winner` is connected to, or the number of addresses.
  std::size_t run(Socket& winner, Failure& failure) {
    while (next_ < addresses_.size() || !runners_.empty()) {
      if (next_ < addresses_.size() && (runners_.empty() || next_begin_.passed())) {
        if (begin_next(winner)) return next_ - 1;
        continue;
      }
      if (deadline_.passed()) {
        failure.set(HTTP_Error::timeout, "no answer to connecting in time");
        return addresses_.size();
      }
      const std::size_t index = wait_for_one(winner);
      if (index < addresses_.size()) return index;
    }
    failure.set(HTTP_Error::connect, errno_text(last_error_));
    return addresses_.size();
  }

 private:
  struct Runner {
    Socket socket;
    std::size_t index;
  };

  bool begin_next(Socket& winner) {
    const Address& address = addresses_[next_++];
    next_begin_ = Deadline::in(silent_address);
    Socket socket(
        ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket.is_open()) {
      last_error_ = errno;
      return false;
    }
    const int state = begin_connect(socket.fd(), address);
    if (state == 0) {
      winner = std::move(socket);
      return true;
    }
    if (state == EINPROGRESS) {
      runners_.push_back({std::move(socket), next_ - 1});
    } else {
      last_error_ = state;
    }
    return false;
  }

  std::size_t wait_for_one(Socket& winner) {
    std::vector<pollfd> entries;
    for (const Runner& runner : runners_)
      entries.push_back({runner.socket.fd(), POLLOUT, 0});
    const Deadline end = next_ < addresses_.size() ? deadline_.or_sooner(next_begin_) : deadline_;
    if (poll(entries.data(), entries.size(), end.poll_timeout()) <= 0) return addresses_.size();
    for (std::size_t i = entries.size(); i-- > 0;) {
      if (entries[i].revents == 0) continue;
      const auto runner = runners_.begin() + static_cast<std::ptrdiff_t>(i);
      const int error = connect_result(runner->socket.fd());
      if (error == 0) {
        winner = std::move(runner->socket);
        return runner->index;
      }
      last_error_ = error;
      runners_.erase(runner);
    }
    return addresses_.size();
  }

  const Addresses& addresses_;
  const Deadline deadline_;
  Deadline next_begin_{Clock::time_point::min()};
  std::size_t next_ = 0;
  std::vector<Runner> runners_;
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
    receive_limit_ = other.receive_limit_;
  }
  return *this;
}

void Socket::close() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

ssize_t Socket::send(const void* data, std::size_t size) noexcept {
  for (;;) {
    const ssize_t n = ::send(fd_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0 || (errno != EAGAIN && errno != EINTR)) return n;
    pollfd entry{fd_, POLLOUT, 0};
    const int ready = poll(&entry, 1, deadline_.poll_timeout());
    if (ready < 0 && errno != EINTR) return -1;
    if (ready == 0) {
      errno = EAGAIN;
      return -1;
    }
  }
}

ssize_t Socket::receive(void* buffer, std::size_t size) noexcept {
  for (int look = 0; look < looks_before_sleep; ++look) {
    const ssize_t n = ::recv(fd_, buffer, size, MSG_DONTWAIT);
    if (n >= 0 || (errno != EAGAIN && errno != EINTR)) return n;
  }
  for (;;) {
    const std::chrono::milliseconds limit = std::min(deadline_.left(), longest_sleep);
    if (limit.count() == 0) return ::recv(fd_, buffer, size, MSG_DONTWAIT);
    if (limit != receive_limit_) {
      const timeval time{0, static_cast<suseconds_t>(limit.count() * 1000)};
      if (setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time) != 0) return -1;
      receive_limit_ = limit;
    }
    const ssize_t n = ::recv(fd_, buffer, size, 0);
    if (n >= 0 || (errno != EAGAIN && errno != EINTR)) return n;
  }
}

Stream::~Stream() {
  // Without this OpenSSL takes the session of a connection that it did not see shut down for a
  // broken one and refuses to resume it.
  if (ssl_ != nullptr) SSL_set_shutdown(ssl_.get(), SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);
}

bool Stream::connect(const Addresses& addresses, Deadline deadline, Failure& failure) {
  const std::size_t index = Connect_Race(addresses, deadline).run(socket_, failure);
  if (index == addresses.size()) return false;
  peer_ = addresses[index];
  // From here on receiving waits in the kernel.
  return fcntl(socket_.fd(), F_SETFL, 0) == 0 ||
         failure.set(HTTP_Error::connect, errno_text(errno));
}

bool Stream::start_tls(std::shared_ptr<TLS_Trust> trust, const std::string& host,
                       std::string endpoint, Deadline deadline, Failure& failure) {
  if (!trust->error().empty()) {
    failure.permanent = true;
    return failure.set(HTTP_Error::tls, trust->error());
  }
  trust_ = std::move(trust);
  endpoint_ = std::move(endpoint);
  clear_old_errors();
  ssl_ = trust_->make_client(host, is_address_literal(host), endpoint_);
  if (ssl_ == nullptr || !attach(ssl_.get(), socket_)) {
    return failure.set(HTTP_Error::tls, "cannot set up TLS: " + openssl_error_text());
  }
  send_at_once(socket_.fd());
  socket_.deadline(deadline);
  const int result = SSL_do_handshake(ssl_.get());
  if (result == 1) return true;
  tls_failure(result, "handshake", failure);
  if (failure.error != HTTP_Error::timeout) failure.error = HTTP_Error::tls;
  return false;
}

/// Says why a TLS step failed, and yields false.
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
  socket_.deadline(deadline);
  if (ssl_ == nullptr && data.size() > one_packet) send_at_once(socket_.fd());
  while (!data.empty()) {
    std::size_t n = 0;
    if (ssl_ == nullptr) {
      const ssize_t result = socket_.send(data.data(), data.size());
      if (result < 0) return system_failure(not_taken, failure);
      n = static_cast<std::size_t>(result);
      touched = touched || n != 0;
    } else {
      // A part of a record may leave whatever the result says.
      touched = true;
      clear_old_errors();
      const int result = SSL_write_ex(ssl_.get(), data.data(), data.size(), &n);
      if (result != 1) return tls_failure(result, "stream", failure);
    }
    data.remove_prefix(n);
  }
  return true;
}

ssize_t Stream::receive(char* buffer, std::size_t size, Deadline deadline, Failure& failure) {
  socket_.deadline(deadline);
  std::size_t n = 0;
  if (ssl_ == nullptr) {
    const ssize_t result = socket_.receive(buffer, size);
    if (result < 0) system_failure(no_answer, failure);
    if (result <= 0) return result;
    n = static_cast<std::size_t>(result);
  } else {
    clear_old_errors();
    const int result = SSL_read_ex(ssl_.get(), buffer, size, &n);
    // The flag SSL_RECEIVED_SHUTDOWN would not do: a fatal alert sets it, too.
    if (result != 1 && SSL_get_error(ssl_.get(), result) == SSL_ERROR_ZERO_RETURN) return 0;
    if (result != 1) {
      tls_failure(result, "stream", failure);
      return -1;
    }
  }
  // A peer that never stops sending must not outrun the deadline.
  if (deadline.passed()) {
    failure.set(HTTP_Error::timeout, no_answer);
    return -1;
  }
  return static_cast<ssize_t>(n);
}

bool Stream::is_idle() noexcept {
  if (!socket_.is_open()) return false;
  char byte = 0;
  if (ssl_ == nullptr) {
    return ::recv(socket_.fd(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 &&
           (errno == EAGAIN || errno == EINTR);
  }
  socket_.deadline(Deadline(Clock::time_point()));  // long ago: look, but do not wait
  clear_old_errors();
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
    // The peer may wait for our farewell before it closes its side.
    SSL_shutdown(ssl_.get());
    ssl_.reset();
    socket_.receive(scrap, sizeof scrap);
  }
  socket_.close();
}

}  // namespace zqpool::detail
