#pragma once

#include <ace/INET_Addr.h>

#include <string>

#include "platform/export.h"

/// Writes an address literal as it stands before ":port": an IPv4 one as it is, an IPv6 one in
/// brackets (which `host` may already have). Returns 0; -1, with `text` untouched, when `host` is
/// null or no literal (a name). Looks nothing up. Thread-safe.
ZQ_EXPORT int ip_extended_format(const char* host, std::string& text);

/// An Internet address as text, numeric always: "192.0.2.1:3260", "[2001:db8::7]:3260", or without
/// the port "192.0.2.1", "2001:db8::7". An IPv4 address mapped into IPv6 shows as IPv4. Looks
/// nothing up.
class ZQ_EXPORT ACE_Addr_String {
 public:
  ACE_Addr_String(const ACE_INET_Addr& address, bool with_port);
  const char* c_str() const noexcept { return text_.c_str(); }

 private:
  std::string text_;
};
