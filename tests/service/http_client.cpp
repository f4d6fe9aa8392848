#include "tests/service/http_client.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

#include "tests/support/test_certificates.h"

namespace zqpool::test {

namespace {

constexpr std::chrono::seconds patience_for_an_answer{20};

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::shared_ptr<SSL_CTX> client_context() {
  std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
  if (!context ||
      SSL_CTX_load_verify_file(context.get(), Test_Certificates::instance().ca_file.c_str()) != 1) {
    throw std::runtime_error("cannot trust the test certificates");
  }
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  return context;
}

}  // namespace

std::string Http_Answer::header(const std::string& name) const {
  const auto it = headers.find(name);
  return it == headers.end() ? "" : it->second;
}

json_spirit::Value Http_Answer::json() const {
  json_spirit::Value value;
  EXPECT_TRUE(json_spirit::read(body, value)) << head << body;
  return value;
}

Http_Client::Http_Client(const Endpoint& to, SSL_SESSION* session) : ssl_(nullptr, SSL_free) {
  // OpenSSL writes with write(2), which would end the test on a connection that is gone.
  std::signal(SIGPIPE, SIG_IGN);
  socket_ = File_Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(to.port);
  inet_pton(AF_INET, to.host.c_str(), &address.sin_addr);
  if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fail("connect");
  }
  const int on = 1;
  ::setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (!to.ssl) return;
  context_ = client_context();
  ssl_.reset(SSL_new(context_.get()));
  SSL_set_fd(ssl_.get(), socket_.get());
  // A session ticket alone must not make a read wait for data.
  SSL_clear_mode(ssl_.get(), SSL_MODE_AUTO_RETRY);
  X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl_.get()), to.host.c_str());
  if (session) SSL_set_session(ssl_.get(), session);
  ERR_clear_error();
  if (SSL_connect(ssl_.get()) != 1) {
    std::array<char, 256> text{};
    ERR_error_string_n(ERR_get_error(), text.data(), text.size());
    throw std::runtime_error(std::string("TLS handshake: ") + text.data());
  }
}

Http_Client::~Http_Client() {
  // Without it OpenSSL takes the session for spoilt and does not resume it.
  if (ssl_) SSL_shutdown(ssl_.get());
}

bool Http_Client::send(const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t sent = 0;
    if (ssl_) {
      sent = SSL_write(ssl_.get(), bytes.data() + done, static_cast<int>(bytes.size() - done));
    } else {
      sent = ::send(socket_.get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    }
    if (sent <= 0) return false;
    done += static_cast<std::size_t>(sent);
  }
  return true;
}

void Http_Client::end_sending() {
  ::shutdown(socket_.get(), SHUT_WR);
}

std::size_t Http_Client::receive(char* to, std::size_t room, std::chrono::milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (true) {
    if (!ssl_ || SSL_pending(ssl_.get()) == 0) {
      pollfd event{socket_.get(), POLLIN, 0};
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          end - std::chrono::steady_clock::now());
      const int ready = ::poll(&event, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
      if (ready == 0) {
        ending_ = Ending::silent;
        return 0;
      }
      if (ready < 0) {
        if (errno == EINTR) continue;
        fail("poll");
      }
    }
    if (!ssl_) {
      const ssize_t count = ::recv(socket_.get(), to, room, 0);
      if (count > 0) return static_cast<std::size_t>(count);
      ending_ = count == 0 ? Ending::closed : Ending::reset;
      return 0;
    }
    ERR_clear_error();
    const int count = SSL_read(ssl_.get(), to, static_cast<int>(room));
    if (count > 0) return static_cast<std::size_t>(count);
    const int error = SSL_get_error(ssl_.get(), count);
    if (error == SSL_ERROR_WANT_READ) continue;
    if (error == SSL_ERROR_ZERO_RETURN) {
      ending_ = Ending::closed;
    } else if (error == SSL_ERROR_SYSCALL && errno == ECONNRESET) {
      ending_ = Ending::reset;
    } else {
      ending_ = Ending::truncated;
    }
    return 0;
  }
}

bool Http_Client::more() {
  std::array<char, 65536> piece;
  const std::size_t count = receive(piece.data(), piece.size(), patience_for_an_answer);
  buffer_.append(piece.data(), count);
  return count > 0;
}

std::optional<Http_Answer> Http_Client::read(bool to_head) {
  Http_Answer answer;
  std::size_t end = 0;
  while ((end = buffer_.find("\r\n\r\n")) == std::string::npos) {
    if (!more()) return std::nullopt;
  }
  answer.head = buffer_.substr(0, end + 2);
  buffer_.erase(0, end + 4);
  if (answer.head.rfind("HTTP/1.1 ", 0) != 0) return std::nullopt;
  answer.status = static_cast<unsigned>(std::stoul(answer.head.substr(9)));
  std::size_t line = answer.head.find("\r\n") + 2;
  while (line < answer.head.size()) {
    const std::size_t stop = answer.head.find("\r\n", line);
    const std::size_t colon = answer.head.find(": ", line);
    if (colon == std::string::npos || colon > stop) return std::nullopt;
    std::string name = answer.head.substr(line, colon - line);
    for (char& c : name)
      c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_TRUE(
        answer.headers.emplace(name, answer.head.substr(colon + 2, stop - colon - 2)).second)
        << name << " twice";
    line = stop + 2;
  }
  if (to_head || answer.status == 204 || answer.status / 100 == 1) return answer;
  const std::size_t length = std::stoul("0" + answer.header("content-length"));
  while (buffer_.size() < length) {
    if (!more()) return std::nullopt;
  }
  answer.body = buffer_.substr(0, length);
  buffer_.erase(0, length);
  return answer;
}

Ending Http_Client::read_to_end(std::string& bytes, std::chrono::milliseconds patience) {
  bytes = std::move(buffer_);
  buffer_.clear();
  std::array<char, 65536> piece;
  while (const std::size_t count = receive(piece.data(), piece.size(), patience)) {
    bytes.append(piece.data(), count);
  }
  return ending_;
}

Ending Http_Client::ending() {
  std::string rest;
  const Ending end = read_to_end(rest);
  EXPECT_EQ(rest, "");
  return end;
}

bool Http_Client::session_reused() const {
  return SSL_session_reused(ssl_.get()) == 1;
}

std::shared_ptr<SSL_SESSION> Http_Client::session() const {
  return {SSL_get1_session(ssl_.get()), SSL_SESSION_free};
}

unsigned short Http_Client::local_port() const {
  return port_of(socket_);
}

std::string request_text(const std::string& method, const std::string& target,
                         const std::string& key, const std::string& body, const std::string& more) {
  std::string out = method + ' ' + target + " HTTP/1.1\r\nHost: localhost\r\n";
  if (!key.empty()) out += "X-Access-Key: " + key + "\r\n";
  if (!body.empty()) {
    out +=
        "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
  }
  return out + more + "\r\n" + body;
}

Http_Answer ask(const Service_Process& service, const std::string& method,
                const std::string& target, const std::string& body, const std::string& more,
                bool ssl) {
  Http_Client client(service.endpoint(ssl));
  client.send(
      request_text(method, target, service.access_key(), body, "Connection: close\r\n" + more));
  const std::optional<Http_Answer> answer = client.read(method == "HEAD");
  if (!answer) {
    ADD_FAILURE() << "no answer to " << method << ' ' << target << '\n' << service.messages();
    return {};
  }
  EXPECT_EQ(client.ending(), Ending::closed);
  return *answer;
}

}  // namespace zqpool::test
