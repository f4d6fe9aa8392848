#include "cli/support/endpoint.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

#include "cli/support/exit_code.h"

namespace zqpool::cli {

namespace {

constexpr const char* name_characters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";

bool take_prefix(std::string_view& text, std::string_view prefix) {
  if (text.substr(0, prefix.size()) != prefix) return false;
  text.remove_prefix(prefix.size());
  return true;
}

unsigned short parse_port(std::string_view digits, const std::string& whole) {
  unsigned short port = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, port);
  if (error != std::errc() || stop != end || port == 0) {
    throw Usage_Error("'" + whole + "': the port is a number from 1 to 65535");
  }
  return port;
}

}  // namespace

std::string Endpoint::text() const {
  const bool brackets = host.find(':') != std::string::npos;
  return (ssl ? "https://" : "http://") + (brackets ? '[' + host + ']' : host) + ':' +
         std::to_string(port);
}

Endpoint parse_endpoint(const std::string& text) {
  Endpoint endpoint;
  std::string_view rest = text;
  if (take_prefix(rest, "https://")) {
    endpoint.ssl = true;
  } else if (!take_prefix(rest, "http://")) {
    throw Usage_Error("'" + text + "' is no endpoint: it begins with https:// or http://");
  }
  if (!rest.empty() && rest.back() == '/') rest.remove_suffix(1);

  std::string_view after_host;
  if (take_prefix(rest, "[")) {
    const std::size_t close = rest.find(']');
    endpoint.host = rest.substr(0, close);
    after_host = close == std::string_view::npos ? "" : rest.substr(close + 1);
    in6_addr address;
    // A scope ("%eth0") belongs to the address, inet_pton does not know it.
    const std::string plain = endpoint.host.substr(0, endpoint.host.find('%'));
    if (close == std::string_view::npos || inet_pton(AF_INET6, plain.c_str(), &address) != 1) {
      throw Usage_Error("'" + text + "': no IPv6 address between the brackets");
    }
  } else {
    const std::size_t colon = std::min(rest.find(':'), rest.size());
    endpoint.host = rest.substr(0, colon);
    after_host = rest.substr(colon);
    if (endpoint.host.empty() ||
        endpoint.host.find_first_not_of(name_characters) != std::string::npos) {
      throw Usage_Error("'" + text + "' is no endpoint: it is https://HOST:PORT, without a path");
    }
  }
  if (after_host.empty()) {
    endpoint.port = endpoint.ssl ? 443 : 80;
  } else if (take_prefix(after_host, ":")) {
    endpoint.port = parse_port(after_host, text);
  } else {
    throw Usage_Error("'" + text + "' is no endpoint: only a port may follow the host");
  }
  return endpoint;
}

}  // namespace zqpool::cli
