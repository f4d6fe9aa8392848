// A service, or whoever sits between, may answer anything: the reader takes an answer or says why
// not, within its bounds, and how the bytes were cut into packets makes no difference.
//
// The input's first byte is the size of the packets, the second the largest answer that is taken;
// the rest is what the service sends before it ends the connection.

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

constexpr std::size_t whole = 32 * 1024;

struct Outcome {
  bool answered = false;
  Wire_Response answer;
  HTTP_Headers headers;
  Failure failure;
};

struct Connection {
  Socket client;
  Socket service;
};

/// The client's recv() gets one packet each time, and has all of them at once.
Connection connection_with(std::string_view bytes, std::size_t packet) {
  std::array<int, 2> ends{};
  check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0);
  Connection connection{Socket(ends[0]), Socket(ends[1])};
  const Socket& service = connection.service;
  while (!bytes.empty()) {
    const std::string_view part = bytes.substr(0, packet);
    // What does not fit into the socket's buffer is an answer that was cut off.
    if (::send(service.fd(), part.data(), part.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) break;
    bytes.remove_prefix(part.size());
  }
  check(::shutdown(service.fd(), SHUT_WR) == 0);
  return connection;
}

Outcome read_response(std::string_view bytes, std::size_t packet, std::size_t largest) {
  Stream stream;
  Connection connection = connection_with(bytes, packet);
  stream.adopt(std::move(connection.client));
  Outcome outcome;
  HTTP_Exchange_Report report;
  outcome.answered = receive_response(stream, Deadline::in(std::chrono::seconds(10)), largest,
                                      outcome.answer, &outcome.headers, report, outcome.failure);
  return outcome;
}

void check_outcome(const Outcome& outcome, std::size_t largest) {
  const Wire_Response& answer = outcome.answer;
  if (!outcome.answered) {
    check(outcome.failure.error != HTTP_Error::none && !outcome.failure.text.empty());
    check(answer.status == 0 && answer.body.empty() && !answer.keep_connection);
    return;
  }
  check(outcome.failure.error == HTTP_Error::none);
  check(answer.status < 1000 && answer.status / 100 != 1);
  check(answer.body.size() <= largest);
  json_spirit::Value value;
  std::string body = answer.body;
  json_spirit::read(body, value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, std::min(size - 2, whole));
  const std::size_t packet = std::max<std::size_t>(data[0], bytes.size() / 128 + 1);
  const std::size_t largest = data[1] * std::size_t{64};

  const Outcome at_once = read_response(bytes, whole, largest);
  const Outcome in_parts = read_response(bytes, packet, largest);
  check_outcome(at_once, largest);
  check_outcome(in_parts, largest);
  check(at_once.answered == in_parts.answered);
  check(at_once.answer.status == in_parts.answer.status);
  check(at_once.answer.body == in_parts.answer.body);
  check(at_once.headers.fields() == in_parts.headers.fields());
  return 0;
}
