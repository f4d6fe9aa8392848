#pragma once

#include <ostream>
#include <string>

/// scheme://host:port/rest
class URI {
 public:
  const std::string& scheme() const { return scheme_; }
  std::string host(bool with_brackets = false) const;
  void host(const std::string& name, bool) { host_ = name; }
  unsigned short port() const;
  void port(unsigned short number) { port_ = number; }
  bool is_ssl() const;
  void ssl(bool wanted);
  void path(const std::string& rest, bool) { rest_ = rest; }
  void build(std::ostream& to) const;

 private:
  friend struct URI_Parser;
  std::string scheme_, host_, rest_;
  int port_ = -1;  // none is written
};

struct URI_Parser {
  bool parse(const char* text, URI& to);
};
