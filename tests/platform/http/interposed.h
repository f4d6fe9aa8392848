#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace zqpool::test {

/// Controls the test program's own getaddrinfo() and connect(), which replace the C library's.
/// While an object lives, the names that it knows have the addresses given here; others go to the
/// system. The destructor waits for all look-ups. One object at a time.
class Interposed_Network {
 public:
  Interposed_Network();
  ~Interposed_Network();
  Interposed_Network(const Interposed_Network&) = delete;
  Interposed_Network& operator=(const Interposed_Network&) = delete;

  /// The name has these addresses, in this order.
  void name(const std::string& name, std::vector<std::string> addresses);
  /// The name has no address; `code` is what getaddrinfo() returns, e.g. EAI_NONAME.
  void no_name(const std::string& name, int code);
  /// Look-ups of the name block until release().
  void block(const std::string& name);
  void release();
  /// The number of look-ups of the name that were started.
  int look_ups(const std::string& name) const;
  /// The addresses passed to connect(), in order.
  std::vector<std::string> connects() const;
  /// Connections to the first port go to the second.
  void redirect(unsigned short port, unsigned short to);
  /// Calls `hook` once, after the next connect().
  void after_connect(std::function<void()> hook);
};

}  // namespace zqpool::test
