#include "service/http/response_head.h"

#include <array>
#include <boost/beast/http/status.hpp>
#include <ctime>

namespace zqpool::service {

namespace {

bool forbids_body(unsigned status) {
  return status == 204 || status == 304;
}

std::string http_date() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  std::array<char, 64> text{};
  const std::size_t length =
      std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
  return {text.data(), length};
}

}  // namespace

bool has_body(const Response& response, const Response_Context& context) {
  return !context.to_head && !forbids_body(response.status);
}

std::string response_head(const Response& response, std::uint64_t content_length,
                          const Response_Context& context) {
  namespace http = boost::beast::http;
  const auto reason = http::obsolete_reason(static_cast<http::status>(response.status));
  std::string out = "HTTP/1.1 " + std::to_string(response.status) + ' ' +
                    std::string(reason.data(), reason.size()) +
                    "\r\nServer: zqpoold/" ZQPOOL_VERSION "\r\nDate: " + http_date() +
                    "\r\nX-Request-Id: " + context.request_id + "\r\nCache-Control: no-store\r\n";
  for (const auto& [name, value] : response.headers) {
    out.append(name).append(": ").append(value).append("\r\n");
  }
  if (!forbids_body(response.status)) {
    out += "Content-Type: application/json\r\nContent-Length: " + std::to_string(content_length) +
           "\r\n";
  }
  if (!context.keep_alive) {
    out += "Connection: close\r\n";
  } else if (context.http_1_0) {
    out += "Connection: keep-alive\r\n";
  }
  return out + "\r\n";
}

}  // namespace zqpool::service
