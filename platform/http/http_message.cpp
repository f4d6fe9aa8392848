#include "platform/http/http_message.h"

#include <array>

const char* http_method_name(int method) noexcept {
  static constexpr std::array<const char*, NUM_HTTP_METHOD_STRINGS> names = {
      "CONNECT", "COPY",    "DELETE", "GET", "HEAD", "MKCOL",
      "MOVE",    "OPTIONS", "POST",   "PUT", "TRACE"};
  return method >= 0 && method < NUM_HTTP_METHOD_STRINGS ? names[static_cast<std::size_t>(method)]
                                                         : "";
}

const char* http_head_name(int id) noexcept {
  static constexpr std::array<const char*, NUM_HTTP_HEAD_STRINGS> names = {
      "Accept",
      "Accept-Charset",
      "Accept-Encoding",
      "Accept-Language",
      "Accept-Ranges",
      "Age",
      "Allow",
      "Authorization",
      "Cache-Control",
      "Connection",
      "Content-Disposition",
      "Content-Encoding",
      "Content-Language",
      "Content-Length",
      "Content-Location",
      "Content-Range",
      "Content-Type",
      "Cookie",
      "Date",
      "ETag",
      "Expect",
      "Expires",
      "Forwarded",
      "From",
      "Host",
      "If-Match",
      "If-Modified-Since",
      "If-None-Match",
      "If-Range",
      "If-Unmodified-Since",
      "Last-Modified",
      "Link",
      "Location",
      "Max-Forwards",
      "Origin",
      "Pragma",
      "Range",
      "Referer",
      "Retry-After",
      "Server",
      "Set-Cookie",
      "TE",
      "Trailer",
      "Transfer-Encoding",
      "Upgrade",
      "User-Agent",
      "Vary",
      "WWW-Authenticate",
      "X-Access-Key",
      "X-Request-Id",
  };
  static_assert(HTTP_HEAD_WWW_AUTHENTICATE + 1 == HTTP_HEAD_X_ACCESS_KEY);
  return id >= 0 && id < NUM_HTTP_HEAD_STRINGS ? names[static_cast<std::size_t>(id)] : "";
}

void HTTP_Headers::put(int id, const char* text, bool replace) {
  if (text == nullptr || *http_head_name(id) == '\0') return;
  for (auto& [known, value] : fields_) {
    if (known != id) continue;
    if (replace) value = text;
    return;
  }
  constexpr std::size_t usual_fields = 8;
  fields_.reserve(usual_fields);
  fields_.emplace_back(id, text);
}

const char* HTTP_Headers::get(int id) const noexcept {
  for (const auto& [known, value] : fields_) {
    if (known == id) return value.c_str();
  }
  return nullptr;
}

HTTP_Request::HTTP_Request(int method, const char* path, bool keep_alive)
    : method_(method), keep_alive_(keep_alive), path_(path != nullptr ? path : "/") {}

void HTTP_Request::query_string(const char* query) {
  query_ = query != nullptr ? query : "";
}
