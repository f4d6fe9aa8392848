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

/// What all connections share. Outlives them.
struct Connection_Context {
  Dispatcher& dispatcher;
  Access_Log& log;
  const Limits& limits;
  boost::asio::thread_pool& workers;  ///< where operations run
  std::atomic<bool> stopping{false};  ///< answers close their connections, idle ones are closed
  std::atomic<bool> crowded{false};   ///< others wait to be accepted: answers close too
};

/// One client's connection. It keeps itself alive while it has something to do.
class Client_Connection {
 public:
  virtual ~Client_Connection() = default;
  virtual void start() = 0;
  /// Closes the connection unless a request is being read, carried out or answered; that one still
  /// gets its answer. Any thread.
  virtual void stop() = 0;
};

/// `ended` is called once, from any thread, when the connection is gone.
std::shared_ptr<Client_Connection> make_connection(boost::asio::ip::tcp::socket socket,
                                                   Connection_Context& context,
                                                   std::function<void()> ended);
std::shared_ptr<Client_Connection> make_tls_connection(boost::asio::ip::tcp::socket socket,
                                                       boost::asio::ssl::context& tls,
                                                       Connection_Context& context,
                                                       std::function<void()> ended);

}  // namespace zqpool::service
