// Services may respond with anything. receive_response() must accept a response or say why not,
// within its limits, and how the bytes were split into packets must make no difference.
//
// The input's first byte is the packet size, the second the limit for the body; the rest is
// what the service sends before it closes the connection.

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "fuzz/check.h"
#include "platform/http/detail/response.h"
#include "platform/json/json_spirit.h"

namespace {

using namespace zqpool::detail;

constexpr std::size_t whole = std::size_t{32} * 1024;

struct Outcome {
  bool received = false;
  Wire_Response response;
  HTTP_Headers headers;
  Failure failure;
};

struct Connection {
  Socket client;
  Socket service;
};

/// A connection whose client receives one packet with each recv(); all have been sent.
Connection connection_with(std::string_view bytes, std::size_t packet) {
  std::array<int, 2> ends{};
  check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0);
  Connection connection{Socket(ends[0]), Socket(ends[1])};
  const Socket& service = connection.service;
  while (!bytes.empty()) {
    const std::string_view part = bytes.substr(0, packet);
    // If the socket's buffer is full, the response is cut off.
    if (::send(service.fd(), part.data(), part.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) break;
    bytes.remove_prefix(part.size());
  }
  check(::shutdown(service.fd(), SHUT_WR) == 0);
  return connection;
}

Outcome read_response(std::string_view bytes, std::size_t packet, std::size_t max_body) {
  Stream stream;
  Connection connection = connection_with(bytes, packet);
  stream.adopt(std::move(connection.client));
  Outcome outcome;
  HTTP_Exchange_Report report;
  outcome.received = receive_response(stream, Deadline::in(std::chrono::seconds(10)), max_body,
                                      outcome.response, &outcome.headers, report, outcome.failure);
  return outcome;
}

void check_outcome(const Outcome& outcome, std::size_t max_body) {
  const Wire_Response& response = outcome.response;
  if (!outcome.received) {
    check(outcome.failure.error != HTTP_Error::none && !outcome.failure.text.empty());
    check(response.status == 0 && response.body.empty() && !response.keep_connection);
    return;
  }
  check(outcome.failure.error == HTTP_Error::none);
  check(response.status < 1000 && response.status / 100 != 1);
  check(response.body.size() <= max_body);
  json_spirit::Value value;
  std::string body = response.body;
  json_spirit::read(body, value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, std::min(size - 2, whole));
  const std::size_t packet = std::max<std::size_t>(data[0], bytes.size() / 128 + 1);
  const std::size_t max_body = data[1] * std::size_t{64};

  const Outcome at_once = read_response(bytes, whole, max_body);
  const Outcome in_parts = read_response(bytes, packet, max_body);
  check_outcome(at_once, max_body);
  check_outcome(in_parts, max_body);
  check(at_once.received == in_parts.received);
  check(at_once.response.status == in_parts.response.status);
  check(at_once.response.body == in_parts.response.body);
  check(at_once.headers.fields() == in_parts.headers.fields());
  return 0;
}
