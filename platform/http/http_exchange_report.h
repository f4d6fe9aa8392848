#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "platform/export.h"

/// Why an exchange failed. HTTP_Phase says in which phase.
enum class HTTP_Error {
  none,             ///< it succeeded: status 2xx, and a body that is empty or JSON
  refused_request,  ///< the request is invalid, or may_send refused it; nothing was sent
  name,             ///< the host name has no address
  connect,          ///< no address accepted the connection
  tls,              ///< handshake, certificate or TLS settings
  timeout,          ///< the deadline passed
  broken,           ///< the connection broke or ended before the response was complete
  malformed,        ///< the response is not HTTP
  too_large,        ///< the response is larger than HTTP_Options::largest_answer
  bad_json,         ///< the status is 2xx, but the body is not JSON
  status,           ///< the status is not 2xx
};

/// How far an exchange got.
enum class HTTP_Phase { none, name, connect, tls, send, wait, body, done };

ZQ_EXPORT const char* http_error_name(HTTP_Error error) noexcept;  ///< "timeout"
ZQ_EXPORT const char* http_phase_name(HTTP_Phase phase) noexcept;  ///< "name look-up", "connect"...

/// Report of one client call. Times and byte counts are those of the last attempt, except `total`.
struct HTTP_Exchange_Report {
  int method = -1;
  bool ssl = false;
  std::string host;
  unsigned short port = 0;
  std::string path;        ///< as sent, without the query
  std::string request_id;  ///< X-Request-Id, the same for all attempts of a call
  std::string address;     ///< numeric address of the peer, "" if not connected
  unsigned status = 0;     ///< 0 if no response was received
  HTTP_Error error = HTTP_Error::none;
  HTTP_Phase phase = HTTP_Phase::none;
  std::string text;  ///< what went wrong, "" on success
  /// The service's error message, {"error":{"message":...}}, cut to 1000 bytes; "" if none.
  std::string service_message;
  int attempts = 0;   ///< 0 if the request was refused before the first
  bool sent = false;  ///< at least a byte of the request was sent in the last attempt
  bool connection_reused = false;
  bool tls_resumed = false;
  std::chrono::microseconds name_time{0};
  std::chrono::microseconds connect_time{0};
  std::chrono::microseconds tls_time{0};
  std::chrono::microseconds first_byte_time{0};  ///< from the request's end to the response's start
  std::chrono::microseconds total{0};            ///< the whole call with its retries and pauses
  std::uint64_t bytes_sent = 0;                  ///< without the overhead of TLS
  std::uint64_t bytes_received = 0;

  bool ok() const noexcept { return error == HTTP_Error::none; }
  /// Whether a failed change may have been made: the request was sent, at least partly, and no
  /// complete response was received.
  bool outcome_unknown() const noexcept {
    return sent && (error == HTTP_Error::timeout || error == HTTP_Error::broken ||
                    error == HTTP_Error::malformed || error == HTTP_Error::too_large ||
                    error == HTTP_Error::tls);
  }
};

/// Returns the report of this thread's last client call; a default one if there was none.
ZQ_EXPORT HTTP_Exchange_Report last_http_exchange();
