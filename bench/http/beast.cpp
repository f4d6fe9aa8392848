#include <array>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <memory>

#include "bench/http/clients.h"
#include "bench/http/record.h"

namespace zqpool::bench {
namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace net = boost::asio;
namespace ssl = boost::asio::ssl;
using tcp = boost::asio::ip::tcp;

struct Free_Session {
  void operator()(SSL_SESSION* session) const { SSL_SESSION_free(session); }
};
using Session = std::unique_ptr<SSL_SESSION, Free_Session>;

/// Sends the request over a connected stream and reads the response.
template <class Stream>
bool exchange(Stream& stream, const Target& target) {
  http::request<http::empty_body> request{http::verb::get, target.request_path, 11};
  request.set(http::field::host, target.host + ":" + std::to_string(target.port));
  request.set(http::field::accept, "application/json");
  request.set("X-Access-Key", target.access_key);
  request.set(http::field::connection, "close");
  http::write(stream, request);

  beast::flat_buffer buffer;
  http::response_parser<http::string_body> parser;
  parser.body_limit(std::uint64_t{256} << 20);
  http::read(stream, buffer, parser);
  if (parser.get().result() != http::status::ok) return false;
  rapidjson::Document row;
  const std::string& body = parser.get().body();
  return take_only_row(body.data(), body.size(), target.device_uuid, row);
}

bool plain_call(const Target& target) {
  net::io_context context;
  tcp::resolver resolver(context);
  beast::tcp_stream stream(context);
  stream.connect(resolver.resolve(target.host, std::to_string(target.port)));
  const bool good = exchange(stream, target);
  // As the library does, so that TIME_WAIT is on the service's side.
  beast::error_code end;
  std::array<char, 512> scrap;
  while (!end)
    stream.read_some(net::buffer(scrap), end);
  return good && end == net::error::eof;
}

bool tls_call(const Target& target, ssl::context& trust, Session& session) {
  net::io_context context;
  tcp::resolver resolver(context);
  beast::ssl_stream<beast::tcp_stream> stream(context, trust);
  beast::get_lowest_layer(stream).connect(
      resolver.resolve(target.host, std::to_string(target.port)));
  beast::get_lowest_layer(stream).socket().set_option(tcp::no_delay(true));
  stream.set_verify_callback(ssl::host_name_verification(target.host));
  if (session != nullptr) SSL_set_session(stream.native_handle(), session.get());
  stream.handshake(ssl::stream_base::client);
  const bool good = exchange(stream, target);
  beast::error_code ignored;
  stream.shutdown(ignored);
  if (target.transport == Transport::https_resumed) {
    session.reset(SSL_get1_session(stream.native_handle()));
  }
  return good;
}

/// Turns exceptions of `call` into false.
template <class Function>
bool without_exceptions(Function call) {
  try {
    return call();
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

Make_Call beast(const Target& target) {
  if (!target.ssl()) {
    return [target] {
      return [target] { return without_exceptions([&] { return plain_call(target); }); };
    };
  }
  auto trust = std::make_shared<ssl::context>(ssl::context::tls_client);
  trust->load_verify_file(target.ca_file);
  trust->set_verify_mode(ssl::verify_peer);
  return [target, trust]() -> Call {
    return [target, trust, session = std::make_shared<Session>()] {
      return without_exceptions([&] { return tls_call(target, *trust, *session); });
    };
  };
}

}  // namespace zqpool::bench
