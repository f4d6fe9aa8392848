#include "platform/http/detail/response.h"

#include <algorithm>
#include <boost/beast/core/buffers_range.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/json/json_spirit.h"

namespace zqpool::detail {
namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;

constexpr std::uint32_t max_head = 64 * 1024;
constexpr std::size_t first_read = std::size_t{4} << 10;
constexpr std::size_t later_read = std::size_t{64} << 10;
constexpr int max_interim_responses = 64;

/// A string body with room for the JSON reader's padding. A Content-Length is trusted up to 16 MiB;
/// beyond that, memory is taken as the bytes come.
struct Padded_Body {
  using value_type = std::string;

  class reader {
   public:
    template <bool is_request, class Fields>
    reader(http::header<is_request, Fields>&, value_type& body) : body_(body) {}

    void init(const boost::optional<std::uint64_t>& length, beast::error_code& error) {
      constexpr std::uint64_t max_trusted = std::uint64_t{16} << 20;
      error = {};
      if (length && *length != 0) {
        body_.reserve(static_cast<std::size_t>(std::min(*length, max_trusted)) +
                      json_spirit::read_padding);
      }
    }

    template <class Buffers>
    std::size_t put(const Buffers& buffers, beast::error_code& error) {
      error = {};
      std::size_t taken = 0;
      for (const auto buffer : beast::buffers_range_ref(buffers)) {
        body_.append(static_cast<const char*>(buffer.data()), buffer.size());
        taken += buffer.size();
      }
      return taken;
    }

    void finish(beast::error_code& error) { error = {}; }

   private:
    value_type& body_;
  };
};

using Parser = http::response_parser<Padded_Body>;

void collect_headers(const Parser& parser, HTTP_Headers& headers) {
  headers.clear();
  for (const auto& field : parser.get()) {
    for (int id = 0; id < NUM_HTTP_HEAD_STRINGS; ++id) {
      if (beast::iequals(field.name_string(), http_head_name(id))) {
        headers.put(id, std::string(field.value()).c_str(), true);
      }
    }
  }
}

bool parser_failure(const beast::error_code& error, Failure& failure) {
  if (error == http::error::body_limit || error == http::error::header_limit) {
    return failure.set(HTTP_Error::too_large, "the answer is larger than allowed");
  }
  return failure.set(HTTP_Error::malformed, "the answer is not HTTP: " + error.message());
}

/// Reads responses up to the final one.
class Response_Reader {
 public:
  Response_Reader(Stream& stream, Deadline deadline, std::size_t max_body,
                  HTTP_Exchange_Report& report)
      : stream_(stream), deadline_(deadline), max_body_(max_body), report_(report) {}

  bool read(Failure& failure) {
    for (int interim = 0; interim <= max_interim_responses; ++interim) {
      parser_.emplace();
      parser_->header_limit(max_head);
      parser_->body_limit(max_body_);
      if (!read_one(failure)) return false;
      const unsigned status = parser_->get().result_int();
      if (status == 101) {
        return failure.set(HTTP_Error::malformed, "the service switched protocols unasked");
      }
      if (status / 100 != 1) return true;
    }
    return failure.set(HTTP_Error::malformed, "too many interim answers");
  }

  Parser& parser() { return *parser_; }
  /// Whether bytes follow the response.
  bool has_surplus() const { return buffer_.size() != 0; }

 private:
  bool read_one(Failure& failure) {
    beast::error_code error;
    while (!parser_->is_done()) {
      if (buffer_.size() >= min_to_parse()) {
        const bool in_head = !parser_->is_header_done();
        buffer_.consume(parser_->put(buffer_.data(), error));
        if (error && error != http::error::need_more) return parser_failure(error, failure);
        if (parser_->is_done()) break;
        if (in_head && parser_->is_header_done()) {
          // Not before: a parser that reads head and body in one call loses the error that the
          // Content-Length is too large.
          parser_->eager(true);
          continue;
        }
        if (buffer_.size() > max_head) {
          return failure.set(HTTP_Error::too_large, "the answer is larger than allowed");
        }
      }
      if (!receive_more(failure)) return false;
    }
    return true;
  }

  /// Beast asserts that an empty chunked body comes whole, which is five bytes. Every chunked body
  /// ends with at least as many.
  std::size_t min_to_parse() {
    return parser_->is_header_done() && parser_->chunked() ? std::string_view("0\r\n\r\n").size()
                                                           : 1;
  }

  bool receive_more(Failure& failure) {
    const auto space = buffer_.prepare(report_.bytes_received == 0 ? first_read : later_read);
    const ssize_t n =
        stream_.receive(static_cast<char*>(space.data()), space.size(), deadline_, failure);
    if (n < 0) return false;
    if (n == 0) return end_of_stream(failure);
    if (report_.bytes_received == 0) {
      report_.phase = HTTP_Phase::body;
      report_.first_byte_time = micros_since(start_);
    }
    report_.bytes_received += static_cast<std::uint64_t>(n);
    buffer_.commit(static_cast<std::size_t>(n));
    return true;
  }

  bool end_of_stream(Failure& failure) {
    if (report_.bytes_received == 0) {
      return failure.set(HTTP_Error::broken, "the service ended the connection without an answer");
    }
    beast::error_code error;
    if (parser_->got_some()) parser_->put_eof(error);
    if (error || !parser_->is_done()) {
      return failure.set(HTTP_Error::broken,
                         "the service ended the connection in the middle of the answer");
    }
    return true;
  }

  Stream& stream_;
  const Deadline deadline_;
  const std::size_t max_body_;
  HTTP_Exchange_Report& report_;
  beast::flat_buffer buffer_;
  std::optional<Parser> parser_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace

bool receive_response(Stream& stream, Deadline deadline, std::size_t max_body,
                      Wire_Response& response, HTTP_Headers* headers, HTTP_Exchange_Report& report,
                      Failure& failure) {
  Response_Reader reader(stream, deadline, max_body, report);
  if (!reader.read(failure)) return false;
  Parser& parser = reader.parser();
  response.status = parser.get().result_int();
  response.keep_connection = parser.keep_alive() && !reader.has_surplus();
  response.body = std::move(parser.get().body());
  if (headers != nullptr) collect_headers(parser, *headers);
  return true;
}

}  // namespace zqpool::detail
