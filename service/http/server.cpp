#include "service/http/server.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <csignal>
#include <cstdio>
#include <list>
#include <map>
#include <optional>
#include <stdexcept>
#include <thread>

#include "platform/text/host_port.h"
#include "service/http/connection.h"

namespace zqpool::service {

namespace net = boost::asio;
using boost::system::error_code;
using net::ip::tcp;

namespace {

constexpr int io_threads = 2;
constexpr std::chrono::milliseconds accept_pause{100};

std::string openssl_reason() {
  const unsigned long code = ERR_peek_last_error();
  const char* reason = code != 0 ? ERR_reason_error_string(code) : nullptr;
  ERR_clear_error();
  return reason ? std::string(": ") + reason : "";
}

std::string url_of(const tcp::endpoint& endpoint, bool tls) {
  return (tls ? "https://" : "http://") +
         text::host_port(endpoint.address().to_string(), endpoint.port());
}

}  // namespace

class Server::Implementation {
 public:
  Implementation(Dispatcher& dispatcher, Access_Log& log, const Server_Settings& settings)
      : limits_(settings.limits),
        log_(log),
        workers_(settings.threads),
        context_{dispatcher, log, limits_, workers_},
        signals_(strand_, SIGTERM, SIGINT),
        sighup_(strand_, SIGHUP),
        stop_timer_(strand_) {
    if (!settings.tls.empty()) make_tls(settings);
    for (const Listen_Address& address : settings.plain)
      listen(address, false);
    for (const Listen_Address& address : settings.tls)
      listen(address, true);
  }

  std::vector<std::string> urls() const {
    std::vector<std::string> out;
    for (const Listener& listener : listeners_) {
      out.push_back(url_of(listener.acceptor.local_endpoint(), listener.tls));
    }
    return out;
  }

  void run() {
    net::post(strand_, [this] {
      for (Listener& listener : listeners_)
        accept(listener);
      signals_.async_wait([this](const error_code& error, int) {
        if (!error) stop();
      });
      wait_for_sighup();
    });
    std::vector<std::thread> threads;
    for (int i = 1; i < io_threads; ++i)
      threads.emplace_back([this] { run_io(); });
    run_io();
    for (std::thread& thread : threads)
      thread.join();
    workers_.join();  // running handlers end
    finished_ = true;
  }

 private:
  struct Listener {
    tcp::acceptor acceptor;
    net::steady_timer pause;
    bool tls;
    bool waiting = false;  ///< for a connection to end
  };

  void run_io() {
    while (true) {
      try {
        io_.run();
        return;
      } catch (const std::exception& error) {
        // One connection failed, most likely for lack of memory; the others go on.
        std::fprintf(stderr, "zqpoold: %s\n", error.what());
      }
    }
  }

  void make_tls(const Server_Settings& settings) {
    tls_.emplace(net::ssl::context::tls_server);
    SSL_CTX* const tls = tls_->native_handle();
    ERR_clear_error();
    if (SSL_CTX_use_certificate_chain_file(tls, settings.certificate_file.c_str()) != 1) {
      throw std::runtime_error("cannot use certificate '" + settings.certificate_file + "'" +
                               openssl_reason());
    }
    if (SSL_CTX_use_PrivateKey_file(tls, settings.key_file.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(tls) != 1) {
      throw std::runtime_error("cannot use private key '" + settings.key_file + "'" +
                               openssl_reason());
    }
    // Sessions resume by tickets, which the clients keep.
    static const unsigned char name[] = "zqpoold";
    if (SSL_CTX_set_min_proto_version(tls, TLS1_2_VERSION) != 1 ||
        SSL_CTX_set_session_id_context(tls, name, sizeof name - 1) != 1) {
      throw std::runtime_error("cannot set up TLS" + openssl_reason());
    }
    SSL_CTX_set_options(tls, SSL_OP_NO_RENEGOTIATION);
    SSL_CTX_set_mode(tls, SSL_MODE_RELEASE_BUFFERS);
  }

  void listen(const Listen_Address& where, bool tls) {
    error_code error;
    const auto address = net::ip::make_address(where.address, error);
    if (error) throw std::runtime_error("'" + where.address + "' is not an IP address");
    const tcp::endpoint endpoint(address, where.port);
    Listener listener{tcp::acceptor(strand_), net::steady_timer(strand_), tls};
    try {
      listener.acceptor.open(endpoint.protocol());
      listener.acceptor.set_option(net::socket_base::reuse_address(true));
      listener.acceptor.bind(endpoint);
      listener.acceptor.listen();
    } catch (const boost::system::system_error& failure) {
      throw std::runtime_error("cannot listen on " + url_of(endpoint, tls) + ": " +
                               failure.code().message());
    }
    listeners_.push_back(std::move(listener));
  }

  // Everything below runs on strand_.

  void accept(Listener& listener) {
    if (context_.stopping) return;
    context_.crowded = connections_.size() >= limits_.connections;
    if (context_.crowded) {
      listener.waiting = true;
      return;
    }
    listener.acceptor.async_accept(
        net::make_strand(io_), [this, &listener](const error_code& error, tcp::socket socket) {
          if (!error) {
            serve(std::move(socket), listener.tls);
            accept(listener);
          } else if (error != net::error::operation_aborted) {
            // Most likely out of descriptors: closing connections frees some.
            listener.pause.expires_after(accept_pause);
            listener.pause.async_wait([this, &listener](const error_code& stopped) {
              if (!stopped) accept(listener);
            });
          }
        });
  }

  void serve(tcp::socket socket, bool tls) {
    if (context_.stopping) return;
    const std::uint64_t id = ++last_id_;
    auto ended = [this, id] {
      if (!finished_) net::post(strand_, [this, id] { forget(id); });
    };
    const std::shared_ptr<Client_Connection> connection =
        tls ? make_tls_connection(std::move(socket), *tls_, context_, ended)
            : make_connection(std::move(socket), context_, ended);
    connections_.emplace(id, connection);
    connection->start();
  }

  void forget(std::uint64_t id) {
    connections_.erase(id);
    if (context_.stopping) {
      if (connections_.empty()) io_.stop();
      return;
    }
    for (Listener& listener : listeners_) {
      if (!listener.waiting) continue;
      listener.waiting = false;
      accept(listener);
    }
  }

  void stop() {
    context_.stopping = true;
    for (Listener& listener : listeners_) {
      error_code ignored;
      listener.acceptor.close(ignored);
      listener.pause.cancel();
    }
    if (connections_.empty()) {
      io_.stop();
      return;
    }
    for (const auto& [id, connection] : connections_) {
      if (const auto alive = connection.lock()) alive->stop();
    }
    stop_timer_.expires_after(limits_.stop);
    stop_timer_.async_wait([this](const error_code& error) {
      if (!error) give_up("after the time allowed");
    });
    signals_.async_wait([this](const error_code& error, int) {
      if (!error) give_up("at the second signal");
    });
  }

  void give_up(const char* when) {
    std::fprintf(stderr, "zqpoold: stopped %s with %zu connections open\n", when,
                 connections_.size());
    io_.stop();
  }

  void wait_for_sighup() {
    sighup_.async_wait([this](const error_code& error, int) {
      if (error) return;
      log_.reopen();
      wait_for_sighup();
    });
  }

  Limits limits_;
  Access_Log& log_;
  std::optional<net::ssl::context> tls_;
  // io_ holds the connections; members that they use when they end are destroyed after it.
  std::map<std::uint64_t, std::weak_ptr<Client_Connection>> connections_;
  std::uint64_t last_id_ = 0;
  std::atomic<bool> finished_{false};
  net::thread_pool workers_;
  Connection_Context context_;
  net::io_context io_;
  net::executor_work_guard<net::io_context::executor_type> work_{io_.get_executor()};
  net::strand<net::io_context::executor_type> strand_{io_.get_executor()};
  std::list<Listener> listeners_;
  net::signal_set signals_;
  net::signal_set sighup_;
  net::steady_timer stop_timer_;
};

Server::Server(Dispatcher& dispatcher, Access_Log& log, const Server_Settings& settings)
    : implementation_(std::make_unique<Implementation>(dispatcher, log, settings)) {}

Server::~Server() = default;

std::vector<std::string> Server::urls() const {
  return implementation_->urls();
}

void Server::run() {
  implementation_->run();
}

}  // namespace zqpool::service
