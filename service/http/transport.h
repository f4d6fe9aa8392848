#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/socket_base.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <chrono>
#include <utility>

namespace zqpool::service {

/// A TCP stream with deadlines. During a TLS shutdown it sends FIN right after the close alert, as
/// soon as the TLS layer starts to read: the alert is then written.
class Transport {
 public:
  using Stream = boost::beast::tcp_stream;
  using Socket = boost::asio::ip::tcp::socket;
  using executor_type = Stream::executor_type;
  using lowest_layer_type = Socket;

  explicit Transport(Socket&& socket) : stream_(std::move(socket)) {}

  executor_type get_executor() noexcept { return stream_.get_executor(); }
  lowest_layer_type& lowest_layer() noexcept { return stream_.socket(); }
  const lowest_layer_type& lowest_layer() const noexcept { return stream_.socket(); }

  template <typename Buffers, typename Handler>
  auto async_read_some(const Buffers& buffers, Handler&& handler) {
    if (fin_before_read_) send_fin();
    return stream_.async_read_some(buffers, std::forward<Handler>(handler));
  }
  template <typename Buffers, typename Handler>
  auto async_write_some(const Buffers& buffers, Handler&& handler) {
    return stream_.async_write_some(buffers, std::forward<Handler>(handler));
  }

  void expires_after(std::chrono::steady_clock::duration time) { stream_.expires_after(time); }
  void expires_never() { stream_.expires_never(); }
  void cancel() { stream_.cancel(); }
  void close() { stream_.close(); }

  void set_no_delay() { set_option(boost::asio::ip::tcp::no_delay(true)); }
  void send_fin_before_next_read() { fin_before_read_ = true; }
  void send_fin() {
    boost::system::error_code ignored;
    stream_.socket().shutdown(Socket::shutdown_send, ignored);
  }
  void reset() {
    set_option(boost::asio::socket_base::linger(true, 0));
    stream_.close();
  }

 private:
  template <typename Option>
  void set_option(const Option& option) {
    boost::system::error_code ignored;
    stream_.socket().set_option(option, ignored);
  }

  Stream stream_;
  bool fin_before_read_ = false;
};

using Tls_Stream = boost::beast::ssl_stream<Transport>;

inline Transport& transport_of(Transport& stream) {
  return stream;
}
inline Transport& transport_of(Tls_Stream& stream) {
  return stream.next_layer();
}

}  // namespace zqpool::service
