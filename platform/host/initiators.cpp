#include "platform/host/initiators.h"

#include <algorithm>
#include <boost/algorithm/string/trim.hpp>
#include <filesystem>
#include <fstream>
#include <locale>
#include <system_error>
#include <utility>

#include "platform/host/detail/host_root.h"

namespace {

std::string trimmed(const std::string& text) {
  return boost::algorithm::trim_copy(text, std::locale::classic());
}

/// The name in a line "InitiatorName = NAME  # comment", "" for any other line.
std::string initiator_in(const std::string& line) {
  const std::string setting = line.substr(0, line.find('#'));
  const std::size_t sign = setting.find('=');
  if (sign == std::string::npos || trimmed(setting.substr(0, sign)) != "InitiatorName") return "";
  const std::string name = trimmed(setting.substr(sign + 1));
  return name.substr(0, name.find_first_of(" \t"));  // a name has no blanks
}

/// Orders by number: "host2" before "host10".
bool comes_before(const std::string& a, const std::string& b) {
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

/// The names in a folder; none if it cannot be read.
std::vector<std::string> entries_of(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    names.push_back(entry->path().filename().string());
  }
  return names;
}

/// Ports that are not up yet have no WWN, or one of two placeholders.
bool is_wwn(const std::string& text) {
  return !text.empty() && text != "0x0" && text != "0xffffffffffffffff";
}

bool append(std::vector<std::string>& all, const std::vector<std::string>& more) {
  all.insert(all.end(), more.begin(), more.end());
  return !more.empty();
}

}  // namespace

bool get_iscsi_initiator_name(std::vector<std::string>& names) {
  std::ifstream file(zqpool::detail::host_path("/etc/iscsi/initiatorname.iscsi"));
  std::vector<std::string> found;
  for (std::string line; std::getline(file, line);) {
    std::string name = initiator_in(line);
    if (!name.empty()) found.push_back(std::move(name));
  }
  return append(names, found);
}

bool FC_Info::init() {
  port_wwns_.clear();
  const std::filesystem::path folder = zqpool::detail::host_path("/sys/class/fc_host");
  std::vector<std::string> hosts = entries_of(folder);
  std::sort(hosts.begin(), hosts.end(), comes_before);
  for (const std::string& host : hosts) {
    std::ifstream file(folder / host / "port_name");
    std::string wwn;
    std::getline(file, wwn);
    wwn = trimmed(wwn);
    if (is_wwn(wwn)) port_wwns_.push_back(std::move(wwn));
  }
  return !port_wwns_.empty();
}

bool FC_Info::get_port_wwn(std::vector<std::string>& wwns) const {
  return append(wwns, port_wwns_);
}
