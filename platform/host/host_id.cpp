#include "platform/host/host_id.h"

#include <fstream>
#include <utility>

#include "platform/host/detail/host_root.h"
#include "platform/host/detail/published.h"
#include "platform/text/hex.h"

namespace {

using zqpool::detail::host_path;
using zqpool::detail::Published;

Published<std::string>& identity() {
  // Never destroyed: other threads may still hold its texts when the process ends.
  static auto& instance = *new Published<std::string>;
  return instance;
}

// "" unless the file holds 32 hexadecimal digits: before an image's first boot it does not.
std::string read_machine_uuid() {
  std::ifstream file(host_path("/etc/machine-id"));
  std::string text;
  std::getline(file, text);
  if (text.size() != 32 ||
      text.find_first_not_of(zqpool::text::lower_hex_digits) != std::string::npos) {
    return "";
  }
  for (const std::size_t hyphen : {8U, 13U, 18U, 23U})
    text.insert(hyphen, 1, '-');
  return text;
}

}  // namespace

Host_ID* Host_ID::instance() noexcept {
  static Host_ID instance;
  return &instance;
}

const char* Host_ID::c_str() const {
  if (const std::string* const known = identity().get()) return known->c_str();
  std::string uuid = read_machine_uuid();
  if (uuid.empty()) return "";
  return identity().publish_if_none(std::move(uuid))->c_str();
}

void Host_ID::set(const std::string& uuid) {
  if (uuid.empty()) {
    identity().clear();
  } else {
    identity().publish(uuid);
  }
}
