#include "platform/http/detail/request.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/http/detail/resolver.h"
#include "platform/text/host_port.h"
#include "platform/text/percent.h"

namespace zqpool::detail {
namespace {

bool is_control(unsigned char c) {
  return c < 0x20 || c == 0x7f;
}

bool has_control(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return is_control(static_cast<unsigned char>(c)); });
}

/// Whether HTTP forbids the character in a request target (RFC 9112).
bool is_forbidden_in_target(char c) {
  constexpr std::string_view forbidden = "\"<>\\^`{|}#";
  return c <= ' ' || c > '~' || forbidden.find(c) != std::string_view::npos;
}

void append_encoded(std::string& target, std::string_view text) {
  for (const char c : text) {
    if (is_forbidden_in_target(c)) {
      text::append_percent_encoded(target, c);
    } else {
      target += c;
    }
  }
}

bool is_sendable_host(const std::string& host) {
  constexpr std::string_view never = " \"#/<>?@[\\]^`{|}";
  return !host.empty() && host.size() <= 255 && !has_control(host) &&
         host.find_first_of(never) == std::string::npos &&
         (host.find(':') == std::string::npos || is_address_literal(host));
}

bool is_sendable_header(std::string_view value) {
  return std::none_of(value.begin(), value.end(), [](char c) {
    return c != '\t' && is_control(static_cast<unsigned char>(c));
  });
}

/// Headers that only the transport may set, because they delimit the message.
bool is_framing_header(int id) {
  return id == HTTP_HEAD_CONNECTION || id == HTTP_HEAD_CONTENT_LENGTH || id == HTTP_HEAD_EXPECT ||
         id == HTTP_HEAD_TE || id == HTTP_HEAD_TRAILER || id == HTTP_HEAD_TRANSFER_ENCODING ||
         id == HTTP_HEAD_UPGRADE;
}

std::string host_header(const Endpoint& endpoint) {
  // The zone of a link-local address is meaningful on this host only.
  const std::string host = endpoint.host.substr(0, endpoint.host.find('%'));
  const bool default_port = endpoint.port == (endpoint.ssl ? 443 : 80);
  return default_port ? text::bracketed_host(host) : text::host_port(host, endpoint.port);
}

}  // namespace

std::string Endpoint::authority() const {
  return text::host_port(host, port);
}

Endpoint make_endpoint(const char* host, unsigned short port, bool ssl) {
  return {std::string(text::without_brackets(host != nullptr ? host : "")), port, ssl};
}

bool check_host(const Endpoint& endpoint, Failure& failure) {
  return is_sendable_host(endpoint.host) ||
         failure.set(HTTP_Error::refused_request, "the host is not a host name or address");
}

std::string encoded_path(const HTTP_Request& request) {
  const std::string_view path = request.path();
  std::string encoded;
  if (path.substr(0, 1) == "/") append_encoded(encoded, path.substr(0, path.find('?')));
  return encoded;
}

bool make_wire_request(const Endpoint& endpoint, const HTTP_Request& request,
                       const Request_Defaults& defaults, const std::string* body,
                       Wire_Request& wire, Failure& failure) {
  const auto refuse = [&failure](std::string why) {
    return failure.set(HTTP_Error::refused_request, std::move(why));
  };
  if (!check_host(endpoint, failure)) return false;
  const std::string& path = request.path();
  if (path.empty() || path[0] != '/' || has_control(path)) {
    return refuse("the path is not an absolute path");
  }
  if (!is_sendable_header(defaults.user_agent)) return refuse("the user agent holds control bytes");

  // A later put() replaces an earlier one.
  HTTP_Headers lines;
  lines.put(HTTP_HEAD_HOST, host_header(endpoint).c_str(), true);
  lines.put(HTTP_HEAD_USER_AGENT, defaults.user_agent.c_str(), true);
  lines.put(HTTP_HEAD_ACCEPT, "application/json", true);
  for (const HTTP_Headers* headers : {&defaults.headers, &request.headers()}) {
    for (const auto& [id, value] : headers->fields()) {
      if (!is_sendable_header(value)) {
        return refuse(std::string("the value of header ") + http_head_name(id) +
                      " holds control bytes");
      }
      if (!value.empty() && !is_framing_header(id)) lines.put(id, value.c_str(), true);
    }
  }
  lines.put(HTTP_HEAD_X_REQUEST_ID, defaults.request_id.c_str(), true);
  if (!defaults.keep_connection) lines.put(HTTP_HEAD_CONNECTION, "close", true);
  if (body != nullptr) lines.put(HTTP_HEAD_CONTENT_TYPE, "application/json", true);
  if (body != nullptr || request.method() == HTTP_METHOD_POST ||
      request.method() == HTTP_METHOD_PUT) {
    const std::size_t size = body != nullptr ? body->size() : 0;
    lines.put(HTTP_HEAD_CONTENT_LENGTH, std::to_string(size).c_str(), true);
  }

  std::string& out = wire.text;
  out.clear();
  out.reserve(512 + path.size() + request.query().size() + (body != nullptr ? body->size() : 0));
  out.append(http_method_name(request.method())).append(" ");
  append_encoded(out, path);
  if (!request.query().empty()) {
    out += '?';
    append_encoded(out, request.query());
  }
  out += " HTTP/1.1\r\n";
  for (const auto& [id, value] : lines.fields()) {
    if (!value.empty()) out.append(http_head_name(id)).append(": ").append(value).append("\r\n");
  }
  out += "\r\n";
  if (body != nullptr) out += *body;
  wire.method = request.method();
  wire.keep_connection = defaults.keep_connection;
  return true;
}

}  // namespace zqpool::detail
