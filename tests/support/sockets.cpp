#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace zqpool::test {
namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

socklen_t fill(sockaddr_storage& storage, const std::string& address, unsigned short port) {
  std::memset(&storage, 0, sizeof storage);
  if (address.find(':') != std::string::npos) {
    auto& v6 = reinterpret_cast<sockaddr_in6&>(storage);
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(port);
    if (inet_pton(AF_INET6, address.c_str(), &v6.sin6_addr) != 1) fail("address");
    return sizeof v6;
  }
  auto& v4 = reinterpret_cast<sockaddr_in&>(storage);
  v4.sin_family = AF_INET;
  v4.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &v4.sin_addr) != 1) fail("address");
  return sizeof v4;
}

}  // namespace

File_Descriptor::~File_Descriptor() {
  close();
}

void File_Descriptor::close() noexcept {
  if (number_ >= 0) ::close(std::exchange(number_, -1));
}

File_Descriptor bound_socket(const std::string& address, unsigned short port) {
  sockaddr_storage storage;
  const socklen_t size = fill(storage, address, port);
  File_Descriptor socket(
      ::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (socket.get() < 0) fail("socket");
  const int on = 1;
  if (port != 0) setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&storage), size) != 0) fail("bind");
  return socket;
}

File_Descriptor connected_socket(const std::string& address, unsigned short port) {
  sockaddr_storage storage;
  const socklen_t size = fill(storage, address, port);
  File_Descriptor socket(
      ::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (socket.get() < 0) fail("socket");
  if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&storage), size) != 0 &&
      errno != EINPROGRESS) {
    fail("connect");
  }
  return socket;
}

bool connects_within(const File_Descriptor& socket, int milliseconds) {
  pollfd wait{socket.get(), POLLOUT, 0};
  int error = 0;
  socklen_t size = sizeof error;
  return poll(&wait, 1, milliseconds) == 1 &&
         getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

unsigned short port_of(const File_Descriptor& socket) {
  sockaddr_storage storage;
  socklen_t size = sizeof storage;
  if (getsockname(socket.get(), reinterpret_cast<sockaddr*>(&storage), &size) != 0) {
    fail("getsockname");
  }
  return ntohs(storage.ss_family == AF_INET6
                   ? reinterpret_cast<const sockaddr_in6&>(storage).sin6_port
                   : reinterpret_cast<const sockaddr_in&>(storage).sin_port);
}

bool has_ipv6() {
  try {
    bound_socket("::1");
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

Black_Hole::Black_Hole(const std::string& address, unsigned short port)
    : listener_(bound_socket(address, port)) {
  if (listen(listener_.get(), 0) != 0) fail("listen");
  // Fill the queue of those who wait to be accepted until a further one gets no answer.
  for (int i = 0; i < 16; ++i) {
    fillers_.push_back(connected_socket(address, port_of(listener_)));
    if (!connects_within(fillers_.back(), 50)) return;
  }
  errno = ETIMEDOUT;
  fail("the listener takes everybody");
}

void Black_Hole::open_up() {
  if (listen(listener_.get(), 16) != 0) fail("listen");
}

void Black_Hole::refuse() {
  // Shut down, it keeps its port.
  if (shutdown(listener_.get(), SHUT_RDWR) != 0) fail("shutdown");
}

}  // namespace zqpool::test
