#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "platform/export.h"

/// A URL in its components: scheme://userinfo@host:port/path?query#fragment.
///
/// URI_Parser reads a URL and build() writes it. Components keep their text with its
/// percent-encodings, except that the scheme becomes lower case and a ":" without a port is
/// dropped. Setters encode what is not allowed, so build() parses back to the same parts. Not
/// thread-safe.
class ZQ_EXPORT URI {
 public:
  URI() = default;

  const std::string& scheme() const noexcept { return scheme_; }

  /// Without "@"; "" if there is none.
  std::string userinfo() const { return userinfo_.value_or(""); }

  /// "" if there is none. An IPv6 literal is returned without brackets ("::1", "fe80::1%eth0") or,
  /// with `as_in_url`, as it stands in the URL ("[::1]", "[fe80::1%25eth0]").
  [[nodiscard]] std::string host(bool as_in_url = false) const;
  /// Sets a name or an address; an IPv6 literal may have brackets. With `as_in_url`,
  /// percent-encodings in `text` are kept.
  void host(const std::string& text, bool as_in_url);

  /// The URL's port, or the default: 443 for the TLS form of a scheme, 80 for its plain form, 0 for
  /// a scheme without a TLS form ("file").
  unsigned short port() const noexcept;
  void port(unsigned short number) noexcept;

  /// Whether the scheme is the TLS form of its pair: "https", "wss", "dedups", "s3s" and so on.
  bool is_ssl() const noexcept;
  /// Switches between a scheme's plain and TLS form. A scheme without a TLS form stays.
  void ssl(bool on);

  /// With its leading "/"; "" if there is none.
  const std::string& path() const noexcept { return path_; }
  /// Adds a leading "/" unless `text` has one or is empty. Blanks and bytes above 0x7e are kept.
  /// With `as_in_url`, percent-encodings in `text` are kept.
  void path(const std::string& text, bool as_in_url);

  /// Without "?"; "" if there is none.
  std::string query() const { return query_.value_or(""); }
  /// Without "#"; "" if there is none.
  std::string fragment() const { return fragment_.value_or(""); }

  /// Writes the URL, regardless of the stream's formatting flags and locale.
  void build(std::ostream& out) const;

 private:
  friend class URI_Parser;

  std::string scheme_;
  bool has_authority_ = false;  // without one the path is not "" and does not begin with "//"
  std::optional<std::string> userinfo_;
  std::string host_;  // as it stands in the URL
  std::optional<unsigned short> port_;
  std::string path_;
  std::optional<std::string> query_;
  std::optional<std::string> fragment_;
};

/// Parses URLs of any scheme (RFC 3986). Thread-safe.
class ZQ_EXPORT URI_Parser {
 public:
  /// Parses a URL: a scheme, then "//" and an authority, or an absolute path. Returns false and
  /// leaves `out` alone if `text` is not a URL.
  ///
  /// More lenient than the RFC: path, query and fragment may hold blanks and bytes above 0x7e, and
  /// the zone of an IPv6 literal may follow a bare "%". Stricter than the RFC: "localhost:80" is
  /// rejected, http(s) and ws(s) need a host, and a port is at most 65535.
  ///
  /// @code
  ///   URI uri;
  ///   if (!URI_Parser::parse("dedups://node1:9443/pool", uri)) return false;
  ///   connect(uri.host(), uri.port(), uri.is_ssl());
  /// @endcode
  static bool parse(const char* text, URI& out);
};
