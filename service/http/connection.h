#pragma once

#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/thread_pool.hpp>
#include <cstdint>
#include <functional>
#include <memory>

#include "service/app/dispatcher.h"
#include "service/http/access_log.h"
#include "service/http/limits.h"

namespace zqpool::service {

/// What all connections share. Must outlive them.
struct Connection_Context {
  Dispatcher& dispatcher;
  Access_Log& log;
  const Limits& limits;
  boost::asio::thread_pool& workers;  ///< run the handlers, which may block
  std::atomic<bool> stopping{false};  ///< close after the current response, or at once if idle
  std::atomic<bool> crowded{false};   ///< clients wait to be accepted: close after each response
};

/// One client's connection. Keeps itself alive until it is closed.
class Client_Connection {
 public:
  virtual ~Client_Connection() = default;
  virtual void start() = 0;
  /// Closes the connection, after the response if a request is being read or handled. Any thread.
  virtual void stop() = 0;
};

/// `ended` is called once, from any thread, when the connection is destroyed.
std::shared_ptr<Client_Connection> make_connection(boost::asio::ip::tcp::socket socket,
                                                   Connection_Context& context,
                                                   std::function<void()> ended);
std::shared_ptr<Client_Connection> make_tls_connection(boost::asio::ip::tcp::socket socket,
                                                       boost::asio::ssl::context& tls,
                                                       Connection_Context& context,
                                                       std::function<void()> ended);

}  // namespace zqpool::service
