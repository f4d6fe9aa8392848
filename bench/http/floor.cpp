#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

#include "bench/http/clients.h"
#include "tests/support/sockets.h"

namespace zqpool::bench {
namespace {

struct Free {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  void operator()(SSL* ssl) const { SSL_free(ssl); }
  void operator()(SSL_SESSION* session) const { SSL_SESSION_free(session); }
};

using test::File_Descriptor;

std::string prepared_request(const Target& target) {
  return "GET " + target.request_path + " HTTP/1.1\r\nHost: " + target.host + ":" +
         std::to_string(target.port) +
         "\r\nAccept: application/json\r\nX-Access-Key: " + target.access_key +
         "\r\nConnection: close\r\n\r\n";
}

sockaddr_in address_of(const Target& target) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(target.port);
  inet_pton(AF_INET, target.host.c_str(), &address.sin_addr);
  return address;
}

bool connect_to(const File_Descriptor& socket, const sockaddr_in& address) {
  return socket.get() >= 0 &&
         ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool is_good(const char* answer, std::size_t size) {
  constexpr char good[] = "HTTP/1.1 200";
  return size > sizeof good && std::memcmp(answer, good, sizeof good - 1) == 0;
}

Call plain_floor(const Target& target) {
  return [address = address_of(target), request = prepared_request(target)] {
    const File_Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!connect_to(socket, address)) return false;
    const ssize_t sent = ::send(socket.get(), request.data(), request.size(), MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(request.size())) return false;
    char answer[65536];
    bool good = false;
    ssize_t n = 0;
    for (bool first = true; (n = ::recv(socket.get(), answer, sizeof answer, 0)) > 0;
         first = false) {
      if (first) good = is_good(answer, static_cast<std::size_t>(n));
    }
    return n == 0 && good;
  };
}

std::shared_ptr<SSL_CTX> make_context(const Target& target) {
  std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_client_method()), Free());
  if (context == nullptr || SSL_CTX_load_verify_file(context.get(), target.ca_file.c_str()) != 1) {
    throw std::runtime_error("floor: cannot set up TLS");
  }
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  SSL_CTX_set_read_ahead(context.get(), 1);
  return context;
}

class Tls_Floor {
 public:
  Tls_Floor(const Target& target, std::shared_ptr<SSL_CTX> context)
      : target_(target),
        address_(address_of(target)),
        request_(prepared_request(target)),
        context_(std::move(context)) {}

  bool operator()() {
    const File_Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    if (!connect_to(socket, address_) ||
        setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
      return false;
    }
    const std::unique_ptr<SSL, Free> ssl(SSL_new(context_.get()));
    if (ssl == nullptr || SSL_set_fd(ssl.get(), socket.get()) != 1 ||
        X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl.get()), target_.host.c_str()) != 1) {
      return false;
    }
    if (session_ != nullptr) SSL_set_session(ssl.get(), session_.get());
    if (SSL_connect(ssl.get()) != 1) return false;
    std::size_t n = 0;
    if (SSL_write_ex(ssl.get(), request_.data(), request_.size(), &n) != 1) return false;
    char answer[4096];
    std::size_t size = 0;
    while (SSL_read_ex(ssl.get(), answer + size, sizeof answer - size, &n) == 1)
      size += n;
    if ((SSL_get_shutdown(ssl.get()) & SSL_RECEIVED_SHUTDOWN) == 0) return false;
    SSL_shutdown(ssl.get());
    // Either the end of the stream or a reset, since the service may have closed already.
    while (::recv(socket.get(), answer + size, sizeof answer - size, 0) > 0) {
    }
    if (target_.transport == Transport::https_resumed) {
      session_.reset(SSL_get1_session(ssl.get()));
    }
    return is_good(answer, size);
  }

 private:
  const Target target_;
  const sockaddr_in address_;
  const std::string request_;
  const std::shared_ptr<SSL_CTX> context_;
  std::unique_ptr<SSL_SESSION, Free> session_;
};

}  // namespace

Make_Call floor(const Target& target) {
  if (!target.ssl()) return [target] { return plain_floor(target); };
  return [target, context = make_context(target)]() -> Call {
    auto floor = std::make_shared<Tls_Floor>(target, context);
    return [floor] { return (*floor)(); };
  };
}

}  // namespace zqpool::bench
