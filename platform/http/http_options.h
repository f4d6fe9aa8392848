#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "platform/export.h"

/// How every exchange of the process is made. Set once at start, before the first exchange.
///
/// @code
///   HTTP_Options options = HTTP_Options::get();
///   options.exchange_timeout = std::chrono::seconds(60);
///   options.ca_file = "/etc/zqpool/ca.pem";
///   HTTP_Options::set(options);
/// @endcode
struct ZQ_EXPORT HTTP_Options {
  /// Limit for name look-up, connecting and the TLS handshake together.
  std::chrono::milliseconds connect_timeout = std::chrono::seconds(30);
  /// Hard end of a whole client call: every phase of every attempt of it.
  std::chrono::milliseconds exchange_timeout = std::chrono::seconds(300);
  /// Largest answer body that is taken, in bytes.
  std::size_t largest_answer = std::size_t{256} << 20;
  /// Certificate authorities that are trusted: a PEM file, a hashed directory, or both. Both
  /// empty: the system's.
  std::string ca_file;
  std::string ca_directory;
  /// Client certificate chain and its key (PEM), for services that ask for one. Empty: none. An
  /// empty `private_key_file` stands for the certificate's file.
  std::string certificate_file;
  std::string private_key_file;
  /// Off: any certificate of any host is taken, and whoever answers gets the access key. A warning
  /// is logged when it is switched off.
  bool verify = true;
  /// User-Agent header.
  std::string user_agent = "zqpool";
  /// Asked about each request before anything is sent for it: its head and body as they would go
  /// out, secrets included. False holds it back: the call fails with HTTP_Error::refused_request
  /// and is not repeated. On the thread of the call; empty: nobody is asked.
  std::function<bool(std::string_view request)> may_send;

  /// Takes effect for exchanges that start afterwards. Files named here are loaded at the first
  /// TLS exchange, once; a file that cannot be loaded fails that exchange and each later one.
  /// Sessions resumed under earlier options are never resumed under these. Thread-safe.
  static void set(const HTTP_Options& options);
  /// A copy of what is in force. Thread-safe.
  static HTTP_Options get();
};
