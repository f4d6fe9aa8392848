#include "platform/host/websocket_options.h"

#include <utility>

#include "platform/host/detail/published.h"

namespace {

zqpool::detail::Published<WebSocket_Options>& options() {
  // Never destroyed: other threads may still hold an instance when the process ends.
  static auto& instance = *new zqpool::detail::Published<WebSocket_Options>;
  return instance;
}

}  // namespace

const WebSocket_Options* WebSocket_Options::instance() {
  return options().get();
}

void WebSocket_Options::configure(const char* host, unsigned short port, bool ssl) {
  WebSocket_Options made;
  if (host != nullptr) made.host_ = host;
  made.port_ = port;
  made.ssl_ = ssl;
  options().publish(std::move(made));
}

void WebSocket_Options::clear() {
  options().clear();
}
