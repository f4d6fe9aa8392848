#include "platform/net/uri.h"

#include <algorithm>
#include <charconv>
#include <ostream>
#include <string_view>
#include <utility>

#include "platform/net/detail/ip_literal.h"
#include "platform/text/host_port.h"
#include "platform/text/percent.h"

namespace {

using zqpool::detail::parse_ipv6_literal;
using zqpool::detail::unreserved_characters;
using zqpool::text::append_percent_encoded;
using zqpool::text::starts_with_percent_encoding;
using zqpool::text::without_brackets;

struct Scheme_Pair {
  std::string_view plain;
  std::string_view tls;
  bool needs_host;
};

constexpr Scheme_Pair scheme_pairs[] = {
    {"http", "https", true},    {"ws", "wss", true},
    {"dedup", "dedups", false}, {"s3", "s3s", false},
    {"s3v4", "s3v4s", false},   {"oss", "osss", false},
    {"obs", "obss", false},     {"kss", "ksss", false},
    {"ufile", "ufiles", false}, {"cos", "coss", false},
    {"scs", "scss", false},     {"blob", "blobs", false},
    {"hbr", "hbrs", false},     {"lanfree", "lanfrees", false},
};

const Scheme_Pair* find_pair(std::string_view scheme) noexcept {
  const auto* const found = std::find_if(
      std::begin(scheme_pairs), std::end(scheme_pairs),
      [&](const Scheme_Pair& pair) { return scheme == pair.plain || scheme == pair.tls; });
  return found != std::end(scheme_pairs) ? found : nullptr;
}

enum class Component { host, userinfo, path, query };

/// Whether `component` may hold the byte unencoded.
bool allowed(char c, Component component) noexcept {
  constexpr std::string_view sub_delimiters = "!$&'()*+,;=";
  if (unreserved_characters.find(c) != std::string_view::npos ||
      sub_delimiters.find(c) != std::string_view::npos) {
    return true;
  }
  // Beyond the RFC: device URLs hold unencoded file names.
  const bool in_file_names = c == ' ' || static_cast<unsigned char>(c) >= 0x80;
  switch (component) {
    case Component::host:
      return false;
    case Component::userinfo:
      return c == ':';
    case Component::path:
      return c == ':' || c == '@' || c == '/' || in_file_names;
    case Component::query:
      return c == ':' || c == '@' || c == '/' || c == '?' || in_file_names;
  }
  return false;
}

bool is_valid(std::string_view text, Component component) noexcept {
  while (!text.empty()) {
    if (allowed(text.front(), component)) {
      text.remove_prefix(1);
    } else if (starts_with_percent_encoding(text)) {
      text.remove_prefix(3);
    } else {
      return false;
    }
  }
  return true;
}

std::string encode(std::string_view text, Component component, bool keep_encodings) {
  std::string out;
  for (; !text.empty(); text.remove_prefix(1)) {
    const char c = text.front();
    if (allowed(c, component) || (keep_encodings && starts_with_percent_encoding(text))) {
      out += c;
    } else {
      append_percent_encoded(out, c);
    }
  }
  return out;
}

/// Turns "[fe80::1%25eth0]" into "fe80::1%eth0".
std::string plain_literal(std::string_view in_url) {
  std::string literal(without_brackets(in_url));
  const std::size_t percent = literal.find("%25");
  if (percent != std::string::npos) literal.erase(percent + 1, 2);
  return literal;
}

/// Cuts `text` at the first `separator` and returns what follows it, if there is one.
std::optional<std::string_view> cut(std::string_view& text, char separator) noexcept {
  const std::size_t position = text.find(separator);
  if (position == std::string_view::npos) return std::nullopt;
  const std::string_view tail = text.substr(position + 1);
  text = text.substr(0, position);
  return tail;
}

bool is_scheme(std::string_view text) noexcept {
  const auto is_letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  return !text.empty() && is_letter(text.front()) &&
         std::all_of(text.begin(), text.end(), [&](char c) {
           return is_letter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
         });
}

std::string lower_case(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

/// Splits host and port; leaves the port unset if it has no digits.
bool read_host_and_port(std::string_view text, std::string& host,
                        std::optional<unsigned short>& port) {
  std::size_t end = text.find(':');
  if (!text.empty() && text.front() == '[') {
    end = text.find(']');
    if (end == std::string_view::npos) return false;
    ++end;
    if (!parse_ipv6_literal(plain_literal(text.substr(0, end)))) return false;
  } else if (!is_valid(text.substr(0, end), Component::host)) {
    return false;
  }
  host = text.substr(0, end);
  text.remove_prefix(host.size());
  if (text.empty()) return true;
  if (text.front() != ':') return false;
  text.remove_prefix(1);
  if (text.empty()) return true;
  unsigned short number = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || stop != text.data() + text.size()) return false;
  port = number;
  return true;
}

}  // namespace

std::string URI::host(bool as_in_url) const {
  return as_in_url || host_.empty() || host_.front() != '[' ? host_ : plain_literal(host_);
}

void URI::host(const std::string& text, bool as_in_url) {
  has_authority_ = true;
  const std::string literal_text =
      as_in_url ? plain_literal(text) : std::string(without_brackets(text));
  if (const auto literal = parse_ipv6_literal(literal_text)) {
    host_.assign("[").append(literal->address);
    if (!literal->zone.empty()) host_.append("%25").append(literal->zone);
    host_ += ']';
  } else {
    host_ = encode(text, Component::host, as_in_url);
  }
}

unsigned short URI::port() const noexcept {
  if (port_) return *port_;
  const Scheme_Pair* const pair = find_pair(scheme_);
  if (pair == nullptr) return 0;
  return scheme_ == pair->tls ? 443 : 80;
}

void URI::port(unsigned short number) noexcept {
  has_authority_ = true;
  port_ = number;
}

bool URI::is_ssl() const noexcept {
  const Scheme_Pair* const pair = find_pair(scheme_);
  return pair != nullptr && scheme_ == pair->tls;
}

void URI::ssl(bool on) {
  if (const Scheme_Pair* const pair = find_pair(scheme_)) scheme_ = on ? pair->tls : pair->plain;
}

void URI::path(const std::string& text, bool as_in_url) {
  path_ = encode(text, Component::path, as_in_url);
  if (!path_.empty() && path_.front() != '/') path_.insert(0, 1, '/');
  if (path_.empty() || path_.compare(0, 2, "//") == 0) has_authority_ = true;
}

void URI::build(std::ostream& out) const {
  std::string text;
  if (!scheme_.empty()) text += scheme_ + ':';
  if (has_authority_) {
    text += "//";
    if (userinfo_) text += *userinfo_ + '@';
    text += host_;
    if (port_) text += ':' + std::to_string(*port_);
  }
  text += path_;
  if (query_) text += '?' + *query_;
  if (fragment_) text += '#' + *fragment_;
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

bool URI_Parser::parse(const char* text, URI& out) {
  if (text == nullptr) return false;
  URI uri;
  std::string_view rest = text;
  const auto fragment = cut(rest, '#');
  const auto query = cut(rest, '?');
  std::string_view scheme = rest;
  const auto after_scheme = cut(scheme, ':');
  if (!after_scheme || !is_scheme(scheme)) return false;
  uri.scheme_ = lower_case(scheme);

  rest = *after_scheme;
  if (rest.substr(0, 2) == "//") {
    rest.remove_prefix(2);
    std::string_view authority = rest.substr(0, rest.find('/'));
    rest.remove_prefix(authority.size());
    uri.has_authority_ = true;
    std::string_view userinfo = authority;
    if (const auto after_userinfo = cut(userinfo, '@')) {
      if (!is_valid(userinfo, Component::userinfo)) return false;
      uri.userinfo_ = userinfo;
      authority = *after_userinfo;
    }
    if (!read_host_and_port(authority, uri.host_, uri.port_)) return false;
  } else if (rest.empty() || rest.front() != '/') {
    return false;
  }
  const Scheme_Pair* const pair = find_pair(uri.scheme_);
  if (pair != nullptr && pair->needs_host && uri.host_.empty()) return false;

  if (!is_valid(rest, Component::path) || !is_valid(query.value_or(""), Component::query) ||
      !is_valid(fragment.value_or(""), Component::query)) {
    return false;
  }
  uri.path_ = rest;
  uri.query_ = query;
  uri.fragment_ = fragment;
  out = std::move(uri);
  return true;
}
