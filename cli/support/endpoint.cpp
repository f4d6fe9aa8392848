#include "cli/support/endpoint.h"

#include "cli/support/exit_code.h"
#include "platform/net/uri.h"
#include "platform/text/host_port.h"

namespace zqpool::cli {

std::string Endpoint::text() const {
  return (ssl ? "https://" : "http://") + text::host_port(host, port);
}

Endpoint parse_endpoint(const std::string& text) {
  URI uri;
  bool good = URI_Parser::parse(text.c_str(), uri);
  // Stricter than a URL: no other parts, schemes or spellings.
  good = good && (text.rfind("https://", 0) == 0 || text.rfind("http://", 0) == 0);
  good = good && text.find_first_of("@?#") == std::string::npos;
  good = good && (uri.path().empty() || uri.path() == "/");
  const std::string_view authority =
      std::string_view(text).substr(0, text.size() - uri.path().size());
  good = good && authority.back() != ':' && uri.port() != 0;
  const bool is_literal = good && uri.host(true).front() == '[';
  good = good && (is_literal || uri.host().find_first_not_of(
                                    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                    "0123456789-._") == std::string::npos);
  if (!good) {
    throw Usage_Error(
        "'" + text +
        "' is not an endpoint: use https://HOST:PORT or http://HOST:PORT, with a port "
        "from 1 to 65535 and an IPv6 address in brackets");
  }
  return {uri.is_ssl(), uri.host(), uri.port()};
}

}  // namespace zqpool::cli
