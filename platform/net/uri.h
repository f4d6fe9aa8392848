#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "platform/export.h"

/// A URL in its components: scheme://userinfo@host:port/path?query#fragment.
///
/// URI_Parser fills it and build() writes it back. Components stay as they were written, with their
/// percent-encodings; only the scheme becomes lower case and a ":" without a port goes. Setting one
/// of them changes no other, and never gives a text that reads differently: what does not belong
/// into a component is percent-encoded. Distinct objects may be used on any number of threads.
class ZQ_EXPORT URI {
 public:
  /// The empty URI: no scheme, host "", port 0, no TLS.
  URI() = default;

  const std::string& scheme() const noexcept { return scheme_; }

  /// Without the "@", "" when there is none.
  std::string userinfo() const { return userinfo_.value_or(""); }

  /// "" when there is none. An IPv6 literal comes as one connects to it ("::1", "fe80::1%eth0") or,
  /// with `as_in_url`, as it stands in the URL ("[::1]", "[fe80::1%25eth0]").
  [[nodiscard]] std::string host(bool as_in_url = false) const;
  /// A name or an address, an IPv6 literal with or without brackets. With `as_in_url`
  /// percent-encodings in `text` are left alone.
  void host(const std::string& text, bool as_in_url);

  /// The URL's port or else the default: 443 for the TLS form of a scheme, 80 for the plain form,
  /// 0 for a scheme that has no such pair ("file").
  unsigned short port() const noexcept;
  void port(unsigned short number) noexcept;

  /// True for the TLS form of a pair of schemes: "https", "wss", "dedups", "s3s" and so on.
  bool is_ssl() const noexcept;
  /// Changes the scheme into the other one of its pair where necessary; one that has no pair stays.
  void ssl(bool on);

  /// From its "/" on, "" when there is none.
  const std::string& path() const noexcept { return path_; }
  /// Puts a "/" before a text that lacks it, unless it is empty. Blanks and bytes above 0x7e stay
  /// as they are. With `as_in_url` percent-encodings in `text` are left alone.
  void path(const std::string& text, bool as_in_url);

  /// Without the "?", "" when there is none.
  std::string query() const { return query_.value_or(""); }
  /// Without the "#", "" when there is none.
  std::string fragment() const { return fragment_.value_or(""); }

  /// Writes the URL, whatever the stream's width, base or locale. An empty path is nothing
  /// ("ws://h:1").
  void build(std::ostream& out) const;

 private:
  friend class URI_Parser;

  std::string scheme_;
  bool has_authority_ = false;  // the path of a URL without one is neither "" nor begins with "//"
  std::optional<std::string> userinfo_;
  std::string host_;  // as in the URL
  std::optional<unsigned short> port_;
  std::string path_;
  std::optional<std::string> query_;
  std::optional<std::string> fragment_;
};

/// Takes URLs apart as RFC 3986 says, of any scheme. Thread-safe.
class ZQ_EXPORT URI_Parser {
 public:
  /// True when `text` is a URL: a scheme, then "//" and an authority or a path from "/" on.
  /// Otherwise false, and `out` stays as it was.
  ///
  /// Beyond the RFC, blanks and bytes above 0x7e are taken from the path on, and the zone of an
  /// IPv6 literal may follow a bare "%". Short of it, http(s) and ws(s) need a host, a port is at
  /// most 65535, and a text such as "localhost:80", which has nothing but a colon of a URL, is
  /// none.
  ///
  /// @code
  ///   URI uri;
  ///   if (!URI_Parser::parse("dedups://node1:9443/pool", uri)) return false;
  ///   connect(uri.host(), uri.port(), uri.is_ssl());
  /// @endcode
  static bool parse(const char* text, URI& out);
};
