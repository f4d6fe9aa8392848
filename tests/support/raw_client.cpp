#include "tests/support/raw_client.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

namespace zqpool::test {

Raw_Reply raw_exchange(const Endpoint& to, const std::string& bytes,
                       std::chrono::milliseconds patience, std::size_t awaited) {
  const File_Descriptor socket = connected_socket(to.host, to.port);
  Raw_Reply reply;
  if (send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
    reply.reset = true;
    return reply;
  }
  for (;;) {
    pollfd wait{socket.get(), POLLIN, 0};
    const auto limit = reply.bytes.size() < awaited ? max_wait : patience;
    if (poll(&wait, 1, static_cast<int>(limit.count())) == 0) {
      reply.timed_out = true;
      return reply;
    }
    char data[4096];
    const ssize_t got = recv(socket.get(), data, sizeof data, 0);
    if (got > 0) {
      reply.bytes.append(data, static_cast<std::size_t>(got));
    } else if (got == 0 || errno != EAGAIN) {
      reply.reset = got < 0;
      return reply;
    }
  }
}

}  // namespace zqpool::test
