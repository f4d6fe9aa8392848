#include "platform/net/address.h"

#include <arpa/inet.h>

#include <string_view>

#include "platform/net/detail/ip_literal.h"
#include "platform/text/host_port.h"

int ip_extended_format(const char* host, std::string& text) {
  if (host == nullptr) return -1;
  in_addr address;
  if (inet_pton(AF_INET, host, &address) == 1) {
    text = host;
    return 0;
  }
  const std::string_view literal = zqpool::text::without_brackets(host);
  if (!zqpool::detail::parse_ipv6_literal(literal)) return -1;
  text.assign("[").append(literal).append("]");
  return 0;
}

ACE_Addr_String::ACE_Addr_String(const ACE_INET_Addr& address, bool with_port) {
  char buffer[INET6_ADDRSTRLEN + 16];  // with room for a zone
  const char* host = address.get_host_addr(buffer, sizeof buffer);
  if (host == nullptr) return;
  constexpr std::string_view mapped_prefix = "::ffff:";
  if (address.is_ipv4_mapped_ipv6()) host += mapped_prefix.size();
  text_ = with_port ? zqpool::text::host_port(host, address.get_port_number()) : host;
}
