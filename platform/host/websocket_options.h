#pragma once

#include <optional>
#include <string>

#include "platform/export.h"

/// The address of the backup server's socket. Thread-safe.
///
/// Instances never change and stay valid until the process ends; configure() makes a new one.
class ZQ_EXPORT WebSocket_Options {
 public:
  /// Null before configure() and after clear().
  static const WebSocket_Options* instance();

  /// `host` may be null; then host() is null.
  static void configure(const char* host, unsigned short port, bool ssl);
  static void clear();

  const char* host() const noexcept { return host_ ? host_->c_str() : nullptr; }
  unsigned short port() const noexcept { return port_; }
  bool ssl() const noexcept { return ssl_; }

  friend bool operator==(const WebSocket_Options& a, const WebSocket_Options& b) noexcept {
    return a.host_ == b.host_ && a.port_ == b.port_ && a.ssl_ == b.ssl_;
  }

 private:
  WebSocket_Options() = default;

  std::optional<std::string> host_;
  unsigned short port_ = 0;
  bool ssl_ = false;
};
