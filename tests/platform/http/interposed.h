#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace zqpool::test {

/// The test program's own getaddrinfo() and connect(), which the transport meets instead of the C
/// library's. While an object lives, names that it knows have the addresses it says; others go to
/// the system. At its end it waits for every look-up that is still under way. One at a time.
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
  /// A look-up of the name does not end before release().
  void block(const std::string& name);
  void release();
  /// How many look-ups of the name began.
  int look_ups(const std::string& name) const;
  /// The addresses that connecting was begun to, in that order.
  std::vector<std::string> connects() const;
  /// Connections to the first port go to the second.
  void redirect(unsigned short port, unsigned short to);
  /// Called once, after the next connect() of the transport has returned.
  void after_connect(std::function<void()> hook);
};

}  // namespace zqpool::test
