#pragma once

#include <functional>
#include <string>
#include <vector>

namespace zqpool::bench {

enum class Transport { http, https_full, https_resumed };

/// The service and the request that all clients send it.
struct Target {
  Transport transport = Transport::http;
  std::string host;
  unsigned short port = 0;
  std::string ca_file;
  std::string access_key;
  std::string device_url;
  std::string device_uuid;   ///< the "uuid" that the returned record must have
  std::string request_path;  ///< path and query as they go over the wire, percent-encoded

  bool ssl() const { return transport != Transport::http; }
};

/// Requests the device once, over a new connection. Returns whether its record arrived.
using Call = std::function<bool()>;
/// Makes the Call of one thread. What threads share is made earlier.
using Make_Call = std::function<Call()>;

// All do the same: GET with the access key, verify the server's certificate against ca_file and its
// address, parse the response and move its only row out of it.

/// The library: Pool_Metadata_Manager::get_device().
Make_Call library(const Target& target);

/// The least that any client has to do: send a prepared request, read to the end of the stream,
/// parse nothing. With TLS: a shared SSL_CTX, and close_notify from both sides.
Make_Call floor(const Target& target);

/// libcurl with an easy handle for every call.
Make_Call curl_naive(const Target& target);
/// libcurl with one easy handle per thread and TLS sessions shared between threads.
Make_Call curl_tuned(const Target& target);

/// cpp-httplib with one client per thread. It cannot resume TLS sessions.
Make_Call httplib(const Target& target);

/// Boost.Beast over Asio as in its examples (a shared ssl::context), plus session resumption and
/// waiting for the service to close.
Make_Call beast(const Target& target);

}  // namespace zqpool::bench
