#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "platform/export.h"

/// The HTTP settings of the process. Set them at start, before the first exchange.
///
/// @code
///   HTTP_Options options = HTTP_Options::get();
///   options.exchange_timeout = std::chrono::seconds(60);
///   options.ca_file = "/etc/zqpool/ca.pem";
///   HTTP_Options::set(options);
/// @endcode
struct ZQ_EXPORT HTTP_Options {
  /// Limit for name look-up, connecting and TLS handshake together.
  std::chrono::milliseconds connect_timeout = std::chrono::seconds(30);
  /// Limit for a whole client call, with all its phases and retries.
  std::chrono::milliseconds exchange_timeout = std::chrono::seconds(300);
  /// Largest accepted response body, in bytes.
  std::size_t largest_answer = std::size_t{256} << 20;
  /// The trusted certificate authorities: a PEM file, a hashed directory, or both. If both are
  /// empty, the system's.
  std::string ca_file;
  std::string ca_directory;
  /// The client's certificate chain and private key (PEM), for services that ask for one; empty for
  /// none. If only `private_key_file` is empty, the key is in `certificate_file`.
  std::string certificate_file;
  std::string private_key_file;
  /// Whether certificates are verified. If not, the access key goes to whoever answers, and set()
  /// logs a warning.
  bool verify = true;
  /// The User-Agent header; empty for none.
  std::string user_agent = "zqpool";
  /// If not empty, called on the thread of each call before it connects, with the request's head
  /// and body as they would be sent, secrets included. If it returns false, nothing is sent: the
  /// call fails with HTTP_Error::refused_request and is not retried.
  std::function<bool(std::string_view request)> may_send;

  /// Sets the options for exchanges that start afterwards. The files are loaded once, at the first
  /// TLS exchange; if that fails, so does every TLS exchange. TLS sessions made under earlier
  /// options are not resumed. Thread-safe.
  static void set(const HTTP_Options& options);
  /// Returns a copy of the current options. Thread-safe.
  static HTTP_Options get();
};
