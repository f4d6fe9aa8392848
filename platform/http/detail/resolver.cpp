#include "platform/http/detail/resolver.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

namespace zqpool::detail {
namespace {

// An abandoned look-up keeps its thread until getaddrinfo() returns.
constexpr int max_abandoned = 64;
std::atomic<int> abandoned_count{0};

Address make_address(const sockaddr* from, socklen_t length, unsigned short port) {
  Address address{};
  std::memcpy(&address.storage, from, length);
  address.length = length;
  if (from->sa_family == AF_INET6) {
    reinterpret_cast<sockaddr_in6*>(&address.storage)->sin6_port = htons(port);
  } else {
    reinterpret_cast<sockaddr_in*>(&address.storage)->sin_port = htons(port);
  }
  return address;
}

addrinfo stream_hints(int flags) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags;
  return hints;
}

/// Calls getaddrinfo() and returns its code. On success sets `addresses`, with `port`.
int look_up(const std::string& host, unsigned short port, int flags, Addresses& addresses) {
  const addrinfo hints = stream_hints(flags);
  addrinfo* list = nullptr;
  const int code = getaddrinfo(host.c_str(), nullptr, &hints, &list);
  if (code != 0) return code;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    if (entry->ai_family != AF_INET && entry->ai_family != AF_INET6) continue;
    addresses.push_back(make_address(entry->ai_addr, entry->ai_addrlen, port));
  }
  return addresses.empty() ? EAI_NONAME : 0;
}

/// Interleaves IPv6 and IPv4 addresses (RFC 8305, section 4), so that a family without a route
/// costs one attempt. Within a family the system's order stays.
void interleave_families(Addresses& addresses) {
  for (auto i = addresses.begin(); i != addresses.end(); ++i) {
    const auto other = std::find_if(i + 1, addresses.end(), [i](const Address& address) {
      return address.storage.ss_family != i->storage.ss_family;
    });
    if (other == addresses.end()) return;
    std::rotate(i + 1, other, other + 1);
  }
}

bool parse_literal(const std::string& host, unsigned short port, Addresses& addresses) {
  sockaddr_in v4{};
  v4.sin_family = AF_INET;
  if (inet_pton(AF_INET, host.c_str(), &v4.sin_addr) == 1) {
    addresses.push_back(make_address(reinterpret_cast<sockaddr*>(&v4), sizeof v4, port));
    return true;
  }
  if (host.find(':') == std::string::npos) return false;
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  if (inet_pton(AF_INET6, host.c_str(), &v6.sin6_addr) == 1) {
    addresses.push_back(make_address(reinterpret_cast<sockaddr*>(&v6), sizeof v6, port));
    return true;
  }
  // inet_pton() knows no zones ("fe80::1%eth0"). AI_NUMERICHOST asks no name server.
  return host.find('%') != std::string::npos && look_up(host, port, AI_NUMERICHOST, addresses) == 0;
}

/// What a look-up and its caller share.
struct Look_Up {
  std::string host;
  unsigned short port = 0;

  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;  // this and all below are guarded by mutex
  bool abandoned = false;
  int code = 0;
  Addresses addresses;

  void run() noexcept {
    Addresses found;
    int result = EAI_MEMORY;
    try {
      result = look_up(host, port, 0, found);
    } catch (const std::bad_alloc&) {
    }
    const std::lock_guard<std::mutex> lock(mutex);
    addresses.swap(found);
    code = result;
    done = true;
    if (abandoned) --abandoned_count;
    finished.notify_one();
  }
};

/// Starts a detached thread with all signals blocked: they are for the process's own threads.
void start_quiet_thread(std::shared_ptr<Look_Up> look_up) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  struct Restore {
    const sigset_t* mask;
    ~Restore() { pthread_sigmask(SIG_SETMASK, mask, nullptr); }
  } restore{&before};
  std::thread([shared = std::move(look_up)] { shared->run(); }).detach();
}

}  // namespace

std::string Address::text() const {
  char buffer[INET6_ADDRSTRLEN] = "";
  const void* const bytes =
      storage.ss_family == AF_INET6
          ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in6*>(&storage)->sin6_addr)
          : &reinterpret_cast<const sockaddr_in*>(&storage)->sin_addr;
  inet_ntop(storage.ss_family, bytes, buffer, sizeof buffer);
  return buffer;
}

bool is_address_literal(const std::string& host) {
  Addresses addresses;
  return parse_literal(host, 0, addresses);
}

bool resolve(const std::string& host, unsigned short port, Deadline deadline, Addresses& addresses,
             Failure& failure) {
  if (parse_literal(host, port, addresses)) return true;
  if (abandoned_count.load() >= max_abandoned) {
    return failure.set(HTTP_Error::name, "too many earlier name look-ups are still unanswered");
  }
  auto look_up = std::make_shared<Look_Up>();
  look_up->host = host;
  look_up->port = port;
  try {
    start_quiet_thread(look_up);
  } catch (const std::system_error& error) {
    return failure.set(HTTP_Error::name, std::string("cannot start the look-up: ") + error.what());
  }
  std::unique_lock<std::mutex> lock(look_up->mutex);
  if (!look_up->finished.wait_until(lock, deadline.end(), [&] { return look_up->done; })) {
    look_up->abandoned = true;
    ++abandoned_count;
    return failure.set(HTTP_Error::timeout, "no answer to the name look-up in time");
  }
  if (look_up->code != 0) return failure.set(HTTP_Error::name, gai_strerror(look_up->code));
  addresses.swap(look_up->addresses);
  interleave_families(addresses);
  return true;
}

}  // namespace zqpool::detail
