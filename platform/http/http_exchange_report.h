#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "platform/export.h"

/// Why an exchange failed. Where it stood at that moment is HTTP_Phase.
enum class HTTP_Error {
  none,             ///< a 2xx answer with a good body
  refused_request,  ///< host, path, header or method is not sendable; nothing was sent
  name,             ///< the host name has no address
  connect,          ///< no address took the connection
  tls,              ///< handshake, certificate or TLS settings
  timeout,          ///< the deadline passed
  broken,           ///< the connection broke, or ended before the answer did
  malformed,        ///< the answer is not HTTP
  too_large,        ///< the answer is larger than HTTP_Options::largest_answer
  bad_json,         ///< a 2xx answer whose body is not JSON
  status,           ///< an HTTP status other than 2xx
};

/// How far an exchange came.
enum class HTTP_Phase { none, name, connect, tls, send, wait, body, done };

ZQ_EXPORT const char* http_error_name(HTTP_Error error) noexcept;  ///< "timeout"
ZQ_EXPORT const char* http_phase_name(HTTP_Phase phase) noexcept;  ///< "name look-up", "connect"...

/// What one client call did. Times belong to the last attempt, except `total`.
struct HTTP_Exchange_Report {
  int method = -1;
  bool ssl = false;
  std::string host;
  unsigned short port = 0;
  std::string path;        ///< as sent, without the query
  std::string request_id;  ///< X-Request-Id, the same over the attempts of one call
  std::string address;     ///< numeric address of the peer, "" before connecting
  unsigned status = 0;     ///< 0 when no HTTP answer came
  HTTP_Error error = HTTP_Error::none;
  HTTP_Phase phase = HTTP_Phase::none;
  std::string text;  ///< the transport's own words on a failure, "" on success
  /// The service's words for a refusal, {"error":{"message":...}}; at most 1000 bytes, "" if none.
  std::string service_message;
  int attempts = 0;   ///< requests tried, 0 when refused before the first
  bool sent = false;  ///< any byte of the request went out on the last attempt
  bool connection_reused = false;
  bool tls_resumed = false;
  std::chrono::microseconds name_time{0};
  std::chrono::microseconds connect_time{0};
  std::chrono::microseconds tls_time{0};
  std::chrono::microseconds first_byte_time{0};  ///< from the request's end to the first byte
  std::chrono::microseconds total{0};            ///< whole call, attempts and their pauses included
  std::uint64_t bytes_sent = 0;                  ///< HTTP bytes, TLS not counted
  std::uint64_t bytes_received = 0;

  bool ok() const noexcept { return error == HTTP_Error::none; }
  /// A change may have been made although the call failed: the request went out, at least partly,
  /// and no final word of the service came back.
  bool outcome_unknown() const noexcept {
    return sent && (error == HTTP_Error::timeout || error == HTTP_Error::broken ||
                    error == HTTP_Error::malformed || error == HTTP_Error::too_large ||
                    error == HTTP_Error::tls);
  }
};

/// What this thread's last client call did; a fresh report when it made none.
ZQ_EXPORT HTTP_Exchange_Report last_http_exchange();
