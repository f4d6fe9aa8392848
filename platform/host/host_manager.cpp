#include "platform/host/host_manager.h"

#include <mutex>

namespace {

struct Access_Key {
  std::mutex mutex;
  std::string text;
};

Access_Key& current() {
  // Never destroyed: other threads may still use it when the process ends.
  static Access_Key& instance = *new Access_Key;
  return instance;
}

}  // namespace

Host_Manager* Host_Manager::instance() noexcept {
  static Host_Manager instance;
  return &instance;
}

std::string Host_Manager::access_key() const {
  const std::lock_guard<std::mutex> lock(current().mutex);
  return current().text;
}

void Host_Manager::access_key(const std::string& key) {
  const std::lock_guard<std::mutex> lock(current().mutex);
  current().text = key;
}
