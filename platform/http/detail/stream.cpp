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

#include <system_error>
#include <utility>
#include <vector>

namespace zqpool::detail {
namespace {

// How long an address may keep silent before the next one is tried beside it.
constexpr std::chrono::milliseconds silent_address{250};

// Below this a request leaves in one packet, which Nagle's algorithm never holds back.
constexpr std::size_t one_packet = 1200;

enum class Wait { ready, timeout, failed };

Wait wait_for(int fd, short events, Deadline deadline) noexcept {
  pollfd entry{fd, events, 0};
  for (;;) {
    const int ready = poll(&entry, 1, deadline.poll_timeout());
    if (ready > 0) return Wait::ready;
    if (ready < 0 && errno != EINTR && errno != EAGAIN) return Wait::failed;
    if (deadline.passed()) return Wait::timeout;
  }
}

bool wait_failure(Wait wait, Failure& failure) {
  return wait == Wait::timeout ? failure.set(HTTP_Error::timeout, "no answer in time")
                               : failure.set(HTTP_Error::broken, errno_text(errno));
}

void send_at_once(int fd) noexcept {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// --- OpenSSL's view of the socket -------------------------------------------------------------
// Its own socket BIO writes with write(), which raises SIGPIPE on a broken connection.

int fd_of(BIO* bio) {
  return static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(bio)));
}

int bio_write(BIO* bio, const char* data, int size) {
  BIO_clear_retry_flags(bio);
  const ssize_t n = ::send(fd_of(bio), data, static_cast<std::size_t>(size), MSG_NOSIGNAL);
  if (n < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_write(bio);
  return static_cast<int>(n);
}

int bio_read(BIO* bio, char* buffer, int size) {
  BIO_clear_retry_flags(bio);
  const ssize_t n = ::recv(fd_of(bio), buffer, static_cast<std::size_t>(size), 0);
  if (n < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_read(bio);
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

bool attach(SSL* ssl, int fd) {
  BIO* const bio = socket_bio() != nullptr ? BIO_new(socket_bio()) : nullptr;
  if (bio == nullptr) return false;
  BIO_set_data(bio, reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)));
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
  }
  return *this;
}

void Socket::close() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
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
  return true;
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
  if (ssl_ == nullptr || !attach(ssl_.get(), socket_.fd())) {
    return failure.set(HTTP_Error::tls, "cannot set up TLS: " + openssl_error_text());
  }
  send_at_once(socket_.fd());
  for (;;) {
    clear_old_errors();
    const int result = SSL_do_handshake(ssl_.get());
    if (result == 1) return true;
    const int wanted = tls_failure(result, "handshake", failure);
    if (wanted == 0) {
      failure.error = HTTP_Error::tls;
      return false;
    }
    const Wait wait = wait_for(socket_.fd(), static_cast<short>(wanted), deadline);
    if (wait != Wait::ready) return wait_failure(wait, failure);
  }
}

/// What poll() is to wait for before the step is tried again, or 0 and the failure.
int Stream::tls_failure(int result, const char* doing, Failure& failure) {
  const int error_number = errno;
  switch (SSL_get_error(ssl_.get(), result)) {
    case SSL_ERROR_WANT_READ:
      return POLLIN;
    case SSL_ERROR_WANT_WRITE:
      return POLLOUT;
    case SSL_ERROR_SYSCALL:
      failure.set(HTTP_Error::broken, errno_text(error_number));
      return 0;
    case SSL_ERROR_SSL: {
      const long verdict = SSL_get_verify_result(ssl_.get());
      const unsigned long code = ERR_peek_error();
      if (ERR_GET_REASON(code) == SSL_R_CERTIFICATE_VERIFY_FAILED && verdict != X509_V_OK) {
        ERR_clear_error();
        failure.permanent = true;
        failure.set(HTTP_Error::tls,
                    std::string("certificate refused: ") + X509_verify_cert_error_string(verdict));
      } else if (ERR_GET_REASON(code) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
        ERR_clear_error();
        failure.set(HTTP_Error::broken, std::string("the service ended the connection in the ") +
                                            "middle of the TLS " + doing);
      } else {
        failure.set(HTTP_Error::tls, openssl_error_text());
      }
      return 0;
    }
    default:
      failure.set(HTTP_Error::broken, "the service ended the TLS connection");
      return 0;
  }
}

bool Stream::send(std::string_view data, Deadline deadline, bool& touched, Failure& failure) {
  if (ssl_ == nullptr && data.size() > one_packet) send_at_once(socket_.fd());
  while (!data.empty()) {
    short wanted = 0;
    std::size_t n = 0;
    if (!try_send(data, n, wanted, touched, failure)) return false;
    data.remove_prefix(n);
    if (wanted == 0) continue;
    const Wait wait = wait_for(socket_.fd(), wanted, deadline);
    if (wait == Wait::ready) continue;
    if (wait == Wait::timeout) {
      return failure.set(HTTP_Error::timeout, "the service took no more of the request in time");
    }
    return wait_failure(wait, failure);
  }
  return true;
}

/// One try: `n` bytes left, or `wanted` says what to wait for.
bool Stream::try_send(std::string_view data, std::size_t& n, short& wanted, bool& touched,
                      Failure& failure) {
  if (ssl_ == nullptr) {
    const ssize_t result = ::send(socket_.fd(), data.data(), data.size(), MSG_NOSIGNAL);
    if (result >= 0) {
      n = static_cast<std::size_t>(result);
      touched = touched || n != 0;
    } else if (errno == EAGAIN) {
      wanted = POLLOUT;
    } else if (errno != EINTR) {
      return failure.set(HTTP_Error::broken, errno_text(errno));
    }
    return true;
  }
  // A part of a record may leave whatever the result says.
  touched = true;
  clear_old_errors();
  const int result = SSL_write_ex(ssl_.get(), data.data(), data.size(), &n);
  if (result == 1) return true;
  n = 0;
  wanted = static_cast<short>(tls_failure(result, "stream", failure));
  return wanted != 0;
}

/// One try: as receive(), but -1 with `wanted` set when there is nothing yet.
ssize_t Stream::try_receive(char* buffer, std::size_t size, short& wanted, Failure& failure) {
  wanted = 0;
  if (ssl_ == nullptr) {
    const ssize_t n = ::recv(socket_.fd(), buffer, size, 0);
    if (n >= 0) return n;
    if (errno == EAGAIN || errno == EINTR) {
      wanted = POLLIN;
    } else {
      failure.set(HTTP_Error::broken, errno_text(errno));
    }
    return -1;
  }
  clear_old_errors();
  std::size_t n = 0;
  const int result = SSL_read_ex(ssl_.get(), buffer, size, &n);
  if (result == 1) return static_cast<ssize_t>(n);
  // The flag SSL_RECEIVED_SHUTDOWN would not do: a fatal alert sets it, too.
  if (SSL_get_error(ssl_.get(), result) == SSL_ERROR_ZERO_RETURN) return 0;
  wanted = static_cast<short>(tls_failure(result, "stream", failure));
  return -1;
}

ssize_t Stream::receive(char* buffer, std::size_t size, Deadline deadline, Failure& failure) {
  for (;;) {
    short wanted = 0;
    const ssize_t n = try_receive(buffer, size, wanted, failure);
    if (n <= 0 && wanted == 0) return n;
    // A peer that never stops sending must not outrun the deadline.
    const Wait wait = n > 0 ? (deadline.passed() ? Wait::timeout : Wait::ready)
                            : wait_for(socket_.fd(), wanted, deadline);
    if (wait != Wait::ready) {
      wait_failure(wait, failure);
      return -1;
    }
    if (n > 0) return n;
  }
}

bool Stream::is_idle() noexcept {
  if (!socket_.is_open()) return false;
  char byte = 0;
  if (ssl_ == nullptr) {
    return ::recv(socket_.fd(), &byte, 1, MSG_PEEK) < 0 && (errno == EAGAIN || errno == EINTR);
  }
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
    if (wait_for(socket_.fd(), POLLIN, deadline) == Wait::ready) {
      ::recv(socket_.fd(), scrap, sizeof scrap, 0);
    }
  }
  socket_.close();
}

}  // namespace zqpool::detail
