#pragma once

#include <string>
#include <utility>
#include <vector>

namespace zqpool::test {

/// A file descriptor that is closed at the end of its scope.
class File_Descriptor {
 public:
  explicit File_Descriptor(int number = -1) noexcept : number_(number) {}
  ~File_Descriptor();
  File_Descriptor(File_Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  File_Descriptor& operator=(File_Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  int get() const noexcept { return number_; }
  void close() noexcept;

 private:
  int number_;
};

/// A loopback socket bound to `address` ("127.0.0.1", "::1") and `port` (0: any free one).
/// Throws std::system_error.
File_Descriptor bound_socket(const std::string& address, unsigned short port = 0);
/// A socket connected, or still connecting, to the address. Never blocks.
File_Descriptor connected_socket(const std::string& address, unsigned short port);
/// Whether it is connected within so many milliseconds.
bool connects_within(const File_Descriptor& socket, int milliseconds);
unsigned short port_of(const File_Descriptor& socket);

/// Whether this machine has the IPv6 loopback address.
bool has_ipv6();

/// A port on which every connection is refused, for as long as the object lives.
class Refused_Port {
 public:
  explicit Refused_Port(const std::string& address = "127.0.0.1", unsigned short port = 0)
      : socket_(bound_socket(address, port)) {}
  unsigned short port() const { return port_of(socket_); }

 private:
  File_Descriptor socket_;
};

/// A port where connecting neither works nor fails: its listener's queue is full and never served.
class Black_Hole {
 public:
  explicit Black_Hole(const std::string& address = "127.0.0.1", unsigned short port = 0);
  unsigned short port() const { return port_of(listener_); }
  /// Accepts connections from now on, without serving them. Those already waiting get through when
  /// their SYN is sent again, after a second.
  void open_up();
  /// Refuses connections from now on, also those already waiting.
  void refuse();

 private:
  File_Descriptor listener_;
  std::vector<File_Descriptor> fillers_;
};

}  // namespace zqpool::test
