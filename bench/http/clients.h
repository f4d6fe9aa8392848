#pragma once

#include <functional>
#include <string>
#include <vector>

namespace zqpool::bench {

enum class Transport { http, https_full, https_resumed };

/// The service that every client asks, and what it asks for.
struct Target {
  Transport transport = Transport::http;
  std::string host;
  unsigned short port = 0;
  std::string ca_file;
  std::string access_key;
  std::string device_url;
  std::string device_uuid;   ///< what the record that comes back must hold as its "uuid"
  std::string request_path;  ///< path and query as they go over the wire, percent-encoded

  bool ssl() const { return transport != Transport::http; }
};

/// Asks once for the device, over a fresh connection; true when its record arrived.
using Call = std::function<bool()>;
/// Makes a thread its Call. What the threads share is made before.
using Make_Call = std::function<Call()>;

// Each asks the same: GET with the access key, the server's certificate checked against ca_file and
// its address, the answer parsed and its only row moved out of it.

/// The library: Pool_Metadata_Manager::get_device().
Make_Call library(const Target& target);

/// What no client goes below: a prepared request in one send, read to the end of the stream,
/// nothing parsed. With TLS a shared SSL_CTX, and close_notify from both sides.
Make_Call floor(const Target& target);

/// libcurl with an easy handle for every call.
Make_Call curl_naive(const Target& target);
/// libcurl with one easy handle a thread and sessions that are shared between the threads.
Make_Call curl_tuned(const Target& target);

/// cpp-httplib with one client a thread. It cannot resume sessions.
Make_Call httplib(const Target& target);

/// Boost.Beast over Asio as its examples have it, with a shared ssl::context and, which they lack,
/// resumed sessions and a wait for the service's end of the connection.
Make_Call beast(const Target& target);

}  // namespace zqpool::bench
