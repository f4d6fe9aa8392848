#include "tests/platform/http/interposed.h"

#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>

namespace zqpool::test {
namespace {

struct Known_Name {
  std::vector<std::string> addresses;
  int code = 0;
  bool blocked = false;
};

struct State {
  std::mutex mutex;
  std::condition_variable changed;
  bool active = false;
  std::map<std::string, Known_Name> names;
  std::map<std::string, int> look_ups;
  std::map<unsigned short, unsigned short> ports;
  std::vector<std::string> connects;
  int under_way = 0;
  std::function<void()> after_connect;
};

// Never destroyed: look-ups may outlive main().
State& state() {
  static State& instance = *new State;
  return instance;
}

template <typename Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

Interposed_Network::Interposed_Network() {
  const std::lock_guard lock(state().mutex);
  state().names.clear();
  state().look_ups.clear();
  state().ports.clear();
  state().connects.clear();
  state().after_connect = nullptr;
  state().active = true;
}

Interposed_Network::~Interposed_Network() {
  release();
  std::unique_lock lock(state().mutex);
  state().active = false;
  state().changed.wait(lock, [] { return state().under_way == 0; });
}

void Interposed_Network::name(const std::string& name, std::vector<std::string> addresses) {
  const std::lock_guard lock(state().mutex);
  state().names[name].addresses = std::move(addresses);
}

void Interposed_Network::no_name(const std::string& name, int code) {
  const std::lock_guard lock(state().mutex);
  state().names[name].code = code;
}

void Interposed_Network::block(const std::string& name) {
  const std::lock_guard lock(state().mutex);
  state().names[name].blocked = true;
}

void Interposed_Network::release() {
  const std::lock_guard lock(state().mutex);
  for (auto& [name, known] : state().names)
    known.blocked = false;
  state().changed.notify_all();
}

int Interposed_Network::look_ups(const std::string& name) const {
  const std::lock_guard lock(state().mutex);
  const auto found = state().look_ups.find(name);
  return found != state().look_ups.end() ? found->second : 0;
}

std::vector<std::string> Interposed_Network::connects() const {
  const std::lock_guard lock(state().mutex);
  return state().connects;
}

void Interposed_Network::redirect(unsigned short port, unsigned short to) {
  const std::lock_guard lock(state().mutex);
  state().ports[port] = to;
}

void Interposed_Network::after_connect(std::function<void()> hook) {
  const std::lock_guard lock(state().mutex);
  state().after_connect = std::move(hook);
}

}  // namespace zqpool::test

using zqpool::test::real;
using zqpool::test::state;

// The parameters have the names that glibc's headers give them.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name,
                                                                  const char* service,
                                                                  const addrinfo* req,
                                                                  addrinfo** pai) {
  static auto* const look_up = real<decltype(getaddrinfo)>("getaddrinfo");
  zqpool::test::Known_Name known;
  {
    std::unique_lock lock(state().mutex);
    const auto found =
        name != nullptr && state().active ? state().names.find(name) : state().names.end();
    if (found == state().names.end()) {
      lock.unlock();
      return look_up(name, service, req, pai);
    }
    const std::string wanted = name;
    ++state().look_ups[wanted];
    ++state().under_way;
    state().changed.wait(lock, [&wanted] { return !state().names[wanted].blocked; });
    known = state().names[wanted];
    --state().under_way;
    state().changed.notify_all();
  }
  if (known.code != 0) return known.code;
  *pai = nullptr;
  addrinfo** end = pai;
  for (const std::string& address : known.addresses) {
    addrinfo numeric{};
    numeric.ai_family = AF_UNSPEC;
    numeric.ai_socktype = SOCK_STREAM;
    numeric.ai_flags = AI_NUMERICHOST;
    if (const int code = look_up(address.c_str(), service, &numeric, end); code != 0) return code;
    while (*end != nullptr)
      end = &(*end)->ai_next;
  }
  return *pai != nullptr ? 0 : EAI_NONAME;
}

extern "C" __attribute__((visibility("default"))) int connect(int fd, const sockaddr* addr,
                                                              socklen_t len) {
  static auto* const join = real<decltype(connect)>("connect");
  sockaddr_storage changed{};
  if (addr->sa_family != AF_INET && addr->sa_family != AF_INET6) {
    return join(fd, addr, len);
  }
  std::memcpy(&changed, addr, len);
  // Both families have the port in the same place.
  auto& port = reinterpret_cast<sockaddr_in*>(&changed)->sin_port;
  {
    const std::lock_guard lock(state().mutex);
    char text[INET6_ADDRSTRLEN];
    getnameinfo(addr, len, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
    state().connects.emplace_back(text);
    const auto found = state().ports.find(ntohs(port));
    if (state().active && found != state().ports.end()) port = htons(found->second);
  }
  const int result = join(fd, reinterpret_cast<const sockaddr*>(&changed), len);
  const int error = errno;
  std::function<void()> hook;
  {
    const std::lock_guard lock(state().mutex);
    if (state().active) hook.swap(state().after_connect);
  }
  if (hook) hook();
  errno = error;
  return result;
}
