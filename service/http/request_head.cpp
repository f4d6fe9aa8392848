#include "service/http/request_head.h"

#include <algorithm>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/error.hpp>

#include "service/api/text.h"

namespace zqpool::service {

namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace {

constexpr std::size_t max_request_id = 128;

std::string string_of(beast::string_view text) {
  return {text.data(), text.size()};
}

bool is_request_id(const std::string& id) {
  return !id.empty() && id.size() <= max_request_id &&
         std::all_of(id.begin(), id.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

/// The target without scheme and authority.
std::string path_and_query(std::string target) {
  const std::size_t authority = target.find("://");
  if (authority == std::string::npos || authority > target.find_first_of("/?")) return target;
  const std::size_t path = target.find('/', authority + 3);
  return path == std::string::npos ? "/" : target.substr(path);
}

}  // namespace

Request request_of(const Request_Header& header) {
  Request out;
  out.method = method_from(string_of(header.method_string()));
  const std::string target = path_and_query(string_of(header.target()));
  const std::size_t question = target.find('?');
  out.path = target.substr(0, question);
  if (question != std::string::npos) out.query = target.substr(question + 1);
  out.content_type = string_of(header[http::field::content_type]);
  if (header.count("X-Access-Key") == 1) out.access_key = string_of(header["X-Access-Key"]);
  return out;
}

std::string request_id_of(const Request_Header& header) {
  const std::string given = string_of(header["X-Request-Id"]);
  return is_request_id(given) ? given : random_uuid();
}

std::string header_error(const Request_Header& header) {
  const bool http_1_1 = header.version() >= 11;
  if (http_1_1 && header.count(http::field::host) != 1) return "one Host header is needed";
  // For any other coding the parser assumes no body, and would read the body as a request.
  const auto codings = header.count(http::field::transfer_encoding);
  if (codings == 0) return "";
  const bool chunked = beast::iequals(header[http::field::transfer_encoding], "chunked");
  return http_1_1 && codings == 1 && chunked ? ""
                                             : "the transfer coding must be chunked, given once";
}

unsigned status_of(const beast::error_code& error) {
  if (error == http::error::header_limit || error == http::error::buffer_overflow) return 431;
  if (error == http::error::body_limit) return 413;
  const bool broke = error == http::error::end_of_stream || error == http::error::partial_message;
  const bool from_parser =
      error.category() == make_error_code(http::error::bad_line_ending).category();
  return from_parser && !broke ? 400 : 0;
}

bool has_bare_line_feed(beast::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) return true;
  }
  return false;
}

}  // namespace zqpool::service
