#include "bench/http/loopback_service.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <sys/socket.h>

#include <stdexcept>
#include <string_view>

namespace zqpool::bench {
namespace {

constexpr int thread_count = 4;
constexpr int backlog = 256;

bool is_whole_request(std::string_view text) {
  return text.size() >= 4 && text.substr(text.size() - 4) == "\r\n\r\n";
}

/// Accepted sockets inherit the options.
void set_options(int listener) {
  fcntl(listener, F_SETFL, 0);  // blocking
  const int on = 1;
  setsockopt(listener, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const timeval silence{5, 0};
  setsockopt(listener, SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof silence);
}

}  // namespace

Loopback_Service::Loopback_Service(Transport transport, const std::string& certificate_file,
                                   const std::string& key_file, std::string answer)
    : answers_{{"", std::move(answer)}}, listener_(test::bound_socket("127.0.0.1")) {
  if (transport != Transport::http) {
    context_.reset(SSL_CTX_new(TLS_server_method()));
    if (context_ == nullptr ||
        SSL_CTX_use_certificate_chain_file(context_.get(), certificate_file.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(context_.get(), key_file.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_set_min_proto_version(context_.get(), TLS1_3_VERSION) != 1) {
      throw std::runtime_error("the service cannot set up TLS");
    }
    SSL_CTX_set_read_ahead(context_.get(), 1);
    SSL_CTX_set_session_cache_mode(context_.get(), SSL_SESS_CACHE_OFF);
    if (transport == Transport::https_full) {
      SSL_CTX_set_options(context_.get(), SSL_OP_NO_TICKET);
      SSL_CTX_set_num_tickets(context_.get(), 0);
    }
  }
  start();
}

Loopback_Service::Loopback_Service(std::vector<Prepared_Answer> answers)
    : answers_(std::move(answers)), listener_(test::bound_socket("127.0.0.1")) {
  start();
}

void Loopback_Service::start() {
  set_options(listener_.get());
  if (::listen(listener_.get(), backlog) != 0) throw std::runtime_error("cannot listen");
  for (int i = 0; i < thread_count; ++i)
    threads_.emplace_back([this] { serve(); });
}

Loopback_Service::~Loopback_Service() {
  ::shutdown(listener_.get(), SHUT_RDWR);
  for (std::thread& thread : threads_)
    thread.join();
}

void Loopback_Service::serve() {
  for (;;) {
    const test::File_Descriptor peer(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (peer.get() < 0) {
      if (errno == EINVAL) return;  // shut down
      continue;
    }
    if (context_ != nullptr ? answer_tls(peer.get()) : answer_plain(peer.get())) ++answered_;
  }
}

const std::string& Loopback_Service::answer_to(std::string_view request) const {
  for (const Prepared_Answer& prepared : answers_) {
    if (request.find(prepared.asked) != std::string_view::npos) return prepared.answer;
  }
  throw std::runtime_error("the service has no answer prepared");
}

bool Loopback_Service::answer_plain(int fd) {
  char request[4096];
  std::size_t size = 0;
  while (!is_whole_request({request, size})) {
    const ssize_t n = ::recv(fd, request + size, sizeof request - size, 0);
    if (n <= 0) return false;
    size += static_cast<std::size_t>(n);
  }
  const std::string& answer = answer_to({request, size});
  return ::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(answer.size());
}

bool Loopback_Service::answer_tls(int fd) {
  const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context_.get()), &SSL_free);
  ERR_clear_error();
  if (ssl == nullptr || SSL_set_fd(ssl.get(), fd) != 1 || SSL_accept(ssl.get()) != 1) return false;
  if (SSL_session_reused(ssl.get()) == 1) ++resumed_;
  char request[4096];
  std::size_t size = 0;
  while (!is_whole_request({request, size})) {
    std::size_t n = 0;
    if (SSL_read_ex(ssl.get(), request + size, sizeof request - size, &n) != 1) return false;
    size += n;
  }
  const std::string& answer = answer_to({request, size});
  std::size_t n = 0;
  if (SSL_write_ex(ssl.get(), answer.data(), answer.size(), &n) != 1) return false;
  SSL_shutdown(ssl.get());
  return true;
}

}  // namespace zqpool::bench
