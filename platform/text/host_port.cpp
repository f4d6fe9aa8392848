#include "platform/text/host_port.h"

namespace zqpool::text {

std::string host_port(std::string_view host, unsigned short port) {
  return bracketed_host(host) + ':' + std::to_string(port);
}

std::string bracketed_host(std::string_view host) {
  std::string text(host);
  if (host.find(':') != std::string_view::npos) text.insert(0, 1, '[') += ']';
  return text;
}

std::string_view without_brackets(std::string_view text) noexcept {
  const bool brackets = text.size() >= 2 && text.front() == '[' && text.back() == ']';
  return brackets ? text.substr(1, text.size() - 2) : text;
}

}  // namespace zqpool::text
