#include "platform/host/detail/host_root.h"

#include "platform/host/detail/published.h"
#include "platform/host/initiators.h"

namespace {

zqpool::detail::Published<std::string>& root() {
  // Never destroyed: other threads may still ask when the process ends.
  static auto& instance = *new zqpool::detail::Published<std::string>;
  return instance;
}

}  // namespace

void set_host_root(const std::string& prefix) {
  root().publish(prefix);
}

std::string zqpool::detail::host_path(const char* path) {
  const std::string* const prefix = root().get();
  return prefix != nullptr ? *prefix + path : path;
}
