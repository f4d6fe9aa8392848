#pragma once

#include <ace/INET_Addr.h>

#include <string>

#include "platform/export.h"

/// Writes the address literal `host` to `text` as needed before ":port": an IPv6 literal gets
/// brackets unless it has them. Returns 0, or -1 and leaves `text` alone if `host` is null or not a
/// literal. Looks nothing up. Thread-safe.
ZQ_EXPORT int ip_extended_format(const char* host, std::string& text);

/// An Internet address as numeric text: "192.0.2.1:3260", "[2001:db8::7]:3260", or without the port
/// "192.0.2.1", "2001:db8::7". An IPv4-mapped IPv6 address is written as IPv4. Looks nothing up.
class ZQ_EXPORT ACE_Addr_String {
 public:
  ACE_Addr_String(const ACE_INET_Addr& address, bool with_port);
  const char* c_str() const noexcept { return text_.c_str(); }

 private:
  std::string text_;
};
