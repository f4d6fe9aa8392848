#pragma once

#include <ace/INET_Addr.h>

#include <string>

/// 0 when `host` is a literal, which then stands in `to` as in a URL; else -1.
int ip_extended_format(const char* host, std::string& to);

class ACE_Addr_String {
 public:
  ACE_Addr_String(const ACE_INET_Addr& from, bool port);
  const char* c_str() const { return text_.c_str(); }

 private:
  std::string text_;
};
