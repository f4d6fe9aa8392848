#include "platform/http/detail/exchange.h"

#include <algorithm>
#include <array>
#include <boost/beast/core/buffers_range.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/json/json_spirit.h"

namespace zqpool::detail {
namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;

constexpr std::uint32_t largest_head = 64 * 1024;
constexpr std::size_t first_read = std::size_t{4} << 10;
constexpr std::size_t later_read = std::size_t{64} << 10;
constexpr int most_interim_answers = 64;

/// A string body with spare capacity, so that the JSON reader takes it in place, and with limited
/// trust in a Content-Length: beyond that, memory is taken as the bytes come.
struct Padded_Body {
  using value_type = std::string;

  class reader {
   public:
    template <bool is_request, class Fields>
    reader(http::header<is_request, Fields>&, value_type& body) : body_(body) {}

    void init(const boost::optional<std::uint64_t>& length, beast::error_code& error) {
      constexpr std::uint64_t believed = std::uint64_t{16} << 20;
      error = {};
      if (length && *length != 0) {
        body_.reserve(static_cast<std::size_t>(std::min(*length, believed)) +
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

bool is_control(unsigned char c) {
  return c < 0x20 || c == 0x7f;
}

bool has_control(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return is_control(static_cast<unsigned char>(c)); });
}

/// What a request target may not hold, though callers may well hand it over.
bool is_forbidden_in_target(char c) {
  static constexpr auto table = [] {
    std::array<bool, 256> forbidden{};
    for (unsigned byte = 0; byte < forbidden.size(); ++byte)
      forbidden[byte] = byte <= 0x20 || byte > 0x7e;
    for (const char also : std::string_view("\"<>\\^`{|}#"))
      forbidden[static_cast<unsigned char>(also)] = true;
    return forbidden;
  }();
  return table[static_cast<unsigned char>(c)];
}

void append_encoded(std::string& target, std::string_view text) {
  constexpr char digits[] = "0123456789ABCDEF";
  for (auto c = text.begin();; ++c) {
    const auto start = c;
    c = std::find_if(c, text.end(), &is_forbidden_in_target);
    target.append(start, c);
    if (c == text.end()) return;
    const auto byte = static_cast<unsigned char>(*c);
    target += {'%', digits[byte >> 4], digits[byte & 0xf]};
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

/// Headers that the transport alone may set, because they say where a message ends.
bool is_framing_header(int id) {
  return id == HTTP_HEAD_CONNECTION || id == HTTP_HEAD_CONTENT_LENGTH || id == HTTP_HEAD_EXPECT ||
         id == HTTP_HEAD_TE || id == HTTP_HEAD_TRAILER || id == HTTP_HEAD_TRANSFER_ENCODING ||
         id == HTTP_HEAD_UPGRADE;
}

/// The header lines of a request, each once: what is set last stands. Borrows the values.
class Header_Lines {
 public:
  Header_Lines() { lines_.reserve(12); }

  void set(int id, std::string_view value) {
    for (Line& line : lines_) {
      if (line.id == id) {
        line.value = value;
        return;
      }
    }
    lines_.push_back({id, value});
  }

  void write(std::string& text) const {
    for (const Line& line : lines_) {
      text.append(http_head_name(line.id)).append(": ").append(line.value).append("\r\n");
    }
  }

 private:
  struct Line {
    int id;
    std::string_view value;
  };
  std::vector<Line> lines_;
};

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

std::chrono::microseconds micros(Clock::duration duration) {
  return std::chrono::duration_cast<std::chrono::microseconds>(duration);
}

/// Reads one final answer.
class Answer_Reader {
 public:
  Answer_Reader(Stream& stream, Deadline deadline, std::size_t largest_answer,
                HTTP_Exchange_Report& report)
      : stream_(stream), deadline_(deadline), largest_(largest_answer), report_(report) {}

  bool read(Failure& failure) {
    for (int interim = 0; interim <= most_interim_answers; ++interim) {
      parser_.emplace();
      parser_->header_limit(largest_head);
      parser_->body_limit(largest_);
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
  /// Bytes beyond the answer, which nobody asked for.
  bool has_surplus() const { return buffer_.size() != 0; }
  Clock::time_point first_byte() const { return first_byte_; }

 private:
  bool read_one(Failure& failure) {
    beast::error_code error;
    while (!parser_->is_done()) {
      if (buffer_.size() >= least_to_parse()) {
        const bool in_head = !parser_->is_header_done();
        buffer_.consume(parser_->put(buffer_.data(), error));
        if (error && error != http::error::need_more) return parser_failure(error, failure);
        if (parser_->is_done()) break;
        if (in_head && parser_->is_header_done()) {
          // Not before: a parser that goes on to the body in the same call forgets that the length
          // it found in the head is too large.
          parser_->eager(true);
          continue;
        }
        if (buffer_.size() > largest_head) {
          return failure.set(HTTP_Error::too_large, "the answer is larger than allowed");
        }
      }
      if (!receive_more(failure)) return false;
    }
    return true;
  }

  /// Beast asserts five bytes where an empty chunked body comes in smaller pieces. A chunked body
  /// that has not ended yet has no fewer to come.
  std::size_t least_to_parse() {
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
      first_byte_ = Clock::now();
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
  const std::size_t largest_;
  HTTP_Exchange_Report& report_;
  beast::flat_buffer buffer_;
  std::optional<Parser> parser_;
  Clock::time_point first_byte_{};
};

}  // namespace

std::string Endpoint::authority(bool always_port) const {
  const bool bracket = host.find(':') != std::string::npos;
  std::string text = bracket ? "[" + host + "]" : host;
  if (always_port || port != (ssl ? 443 : 80)) text += ":" + std::to_string(port);
  return text;
}

Endpoint make_endpoint(const char* host, unsigned short port, bool ssl) {
  std::string text = host != nullptr ? host : "";
  if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
    text = text.substr(1, text.size() - 2);
  }
  return {std::move(text), port, ssl};
}

bool check_host(const Endpoint& endpoint, Failure& failure) {
  return is_sendable_host(endpoint.host) ||
         failure.set(HTTP_Error::refused_request, "the host is not a host name or address");
}

void report_path(const HTTP_Request& request, HTTP_Exchange_Report& report) {
  const std::string_view path = request.path();
  report.path.clear();
  if (path.substr(0, 1) == "/") append_encoded(report.path, path.substr(0, path.find('?')));
}

bool check_may_send(const HTTP_Options& options, const Wire_Request& wire, Failure& failure) {
  return !options.may_send || options.may_send(wire.text) ||
         failure.set(HTTP_Error::refused_request, "the request was held back");
}

bool make_wire_request(const Endpoint& endpoint, const HTTP_Request& request,
                       const HTTP_Headers& defaults, const std::string* body, bool keep_connection,
                       const std::string& user_agent, const std::string& request_id,
                       Wire_Request& wire, Failure& failure) {
  if (!check_host(endpoint, failure)) return false;
  const std::string& path = request.path();
  if (path.empty() || path[0] != '/' || has_control(path)) {
    return failure.set(HTTP_Error::refused_request, "the path is not an absolute path");
  }
  std::string& text = wire.text;
  text.clear();
  text.reserve(512 + path.size() + request.query().size() + (body != nullptr ? body->size() : 0));
  text.append(http_method_name(request.method())).append(" ");
  append_encoded(text, path);
  if (!request.query().empty()) {
    text += '?';
    append_encoded(text, request.query());
  }
  text += " HTTP/1.1\r\n";

  // A zone is this host's own business.
  std::string authority = endpoint.authority(false);
  if (const std::size_t zone = authority.find('%'); zone != std::string::npos) {
    authority.erase(zone, authority.find(']') - zone);
  }
  const std::string body_size = std::to_string(body != nullptr ? body->size() : 0);
  Header_Lines lines;
  lines.set(HTTP_HEAD_HOST, authority);
  if (!is_sendable_header(user_agent)) {
    return failure.set(HTTP_Error::refused_request, "the user agent holds control bytes");
  }
  if (!user_agent.empty()) lines.set(HTTP_HEAD_USER_AGENT, user_agent);
  lines.set(HTTP_HEAD_ACCEPT, "application/json");
  for (const HTTP_Headers* headers : {&defaults, &request.headers()}) {
    for (const auto& [id, value] : headers->fields()) {
      if (!is_sendable_header(value)) {
        return failure.set(
            HTTP_Error::refused_request,
            std::string("the value of header ") + http_head_name(id) + " holds control bytes");
      }
      if (!value.empty() && !is_framing_header(id)) lines.set(id, value);
    }
  }
  lines.set(HTTP_HEAD_X_REQUEST_ID, request_id);
  if (!keep_connection) lines.set(HTTP_HEAD_CONNECTION, "close");
  if (body != nullptr) lines.set(HTTP_HEAD_CONTENT_TYPE, "application/json");
  if (body != nullptr || request.method() == HTTP_METHOD_POST ||
      request.method() == HTTP_METHOD_PUT) {
    lines.set(HTTP_HEAD_CONTENT_LENGTH, body_size);
  }

  lines.write(text);
  text += "\r\n";
  if (body != nullptr) text += *body;
  wire.method = request.method();
  wire.keep_connection = keep_connection;
  return true;
}

bool open_connection(const Transport_Settings& settings, const Endpoint& endpoint,
                     Deadline deadline, Stream& stream, HTTP_Exchange_Report& report,
                     Failure& failure) {
  const Clock::time_point start = Clock::now();
  report.phase = HTTP_Phase::name;
  Addresses addresses;
  const bool resolved = resolve(endpoint.host, endpoint.port, deadline, addresses, failure);
  const Clock::time_point named = Clock::now();
  report.name_time = micros(named - start);
  if (!resolved) return false;

  report.phase = HTTP_Phase::connect;
  const bool connected = stream.connect(addresses, deadline, failure);
  const Clock::time_point joined = Clock::now();
  report.connect_time = micros(joined - named);
  if (!connected) return false;
  report.address = stream.peer().text();

  if (endpoint.ssl) {
    report.phase = HTTP_Phase::tls;
    const bool secured = stream.start_tls(settings.trust(), endpoint.host, endpoint.authority(true),
                                          deadline, failure);
    report.tls_time = micros(Clock::now() - joined);
    if (!secured) return false;
    report.tls_resumed = stream.tls_resumed();
  }
  return true;
}

bool converse(Stream& stream, const Wire_Request& request, Deadline deadline,
              std::size_t largest_answer, Wire_Answer& answer, HTTP_Headers* headers,
              HTTP_Exchange_Report& report, Failure& failure) {
  report.phase = HTTP_Phase::send;
  Failure send_failure;
  const bool all_sent = stream.send(request.text, deadline, report.sent, send_failure);
  if (!all_sent && (!report.sent || send_failure.error == HTTP_Error::timeout)) {
    failure = std::move(send_failure);
    return false;
  }
  // A service may refuse a large body by answering and closing early: its answer is worth more
  // than the broken pipe.
  const Clock::time_point asked = Clock::now();
  report.bytes_sent = all_sent ? request.text.size() : 0;
  report.phase = HTTP_Phase::wait;
  Answer_Reader reader(stream, deadline, largest_answer, report);
  const bool answered = reader.read(failure);
  if (report.bytes_received != 0) report.first_byte_time = micros(reader.first_byte() - asked);
  if (!answered) {
    if (!all_sent) failure = std::move(send_failure);
    return false;
  }

  Parser& parser = reader.parser();
  answer.status = parser.get().result_int();
  answer.keep_connection = all_sent && parser.keep_alive() && !reader.has_surplus();
  answer.body = std::move(parser.get().body());
  if (headers != nullptr) collect_headers(parser, *headers);
  report.phase = HTTP_Phase::done;
  return true;
}

}  // namespace zqpool::detail
