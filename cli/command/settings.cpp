#include "cli/command/settings.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include <CLI/Config.hpp>

#include "cli/support/exit_code.h"

namespace zqpool::cli {

namespace {

/// One `key = value` per line; no arrays; "#" begins a comment.
class Plain_Config : public CLI::ConfigBase {
 public:
  Plain_Config() {
    // With these bounds, which no text holds, blanks and commas belong to the value.
    arrayStart = '\x01';
    arrayEnd = '\x02';
  }
};

const Setting* find_setting(const std::string& key) {
  for (const Setting& setting : all_settings()) {
    if (key == setting.key) return &setting;
  }
  return nullptr;
}

/// A path in a file: "~/" is the home folder, a relative path starts at the folder of the file.
std::string resolve_path(const std::string& path, const std::string& file) {
  if (path.rfind("~/", 0) == 0) {
    const char* const home = std::getenv("HOME");
    return (home != nullptr ? home : "") + path.substr(1);
  }
  if (path.empty() || path.front() == '/') return path;
  return file.substr(0, file.rfind('/') + 1) + path;
}

}  // namespace

const std::array<Setting, setting_count>& all_settings() noexcept {
  static constexpr std::array<Setting, setting_count> table = {{
      {Setting_Id::endpoint, "endpoint", "--endpoint", "ZQPOOL_ENDPOINT", nullptr,
       "https://HOST:PORT", "The service", false},
      {Setting_Id::access_key_file, "access_key_file", "--access-key-file",
       "ZQPOOL_ACCESS_KEY_FILE", nullptr, "FILE",
       "File that holds the access key; without it the key is asked for on the terminal", true},
      {Setting_Id::cacert, "cacert", "--cacert", "ZQPOOL_CACERT", nullptr, "FILE|DIR",
       "Certificate authorities to trust (PEM file or hashed directory) in place of the system's",
       true},
      {Setting_Id::s3_secret_file, "s3_secret_file", "--s3-secret-file", "ZQPOOL_S3_SECRET_FILE",
       nullptr, "FILE", "File that holds the secret that encrypts the keys of S3 pools", true},
      {Setting_Id::host_root, "host_root", "--host-root", "ZQPOOL_HOST_ROOT", nullptr, "DIR",
       "Read this host's identity and initiators from etc and sys below it, as in a container",
       true},
      {Setting_Id::timeout, "timeout", "--timeout", "ZQPOOL_TIMEOUT", "1m", "DURATION",
       "Longest time for one exchange with the service: 90, 90s, 1m30s", false},
      {Setting_Id::retry, "retry", "--retry", "ZQPOOL_RETRY", "0", "DURATION",
       "How long pool show, pool resolve and device show --uuid retry after a failure", false},
      {Setting_Id::jobs, "jobs", "--jobs", "ZQPOOL_JOBS", "4", "N",
       "Objects worked on at the same time, 1 to 64", false},
      {Setting_Id::output, "output", "--output", "ZQPOOL_OUTPUT", "table", "table|json|tsv",
       "How results are printed", false},
  }};
  return table;
}

Settings::Settings(const Setting_Lookup& argument, const Setting_Lookup& environment,
                   const Config_Files& files) {
  for (const Setting& setting : all_settings()) {
    Setting_Value& value = values_[static_cast<std::size_t>(setting.id)];
    if (const char* const text = argument(setting)) {
      value = {true, text, setting.option};
    } else if (const char* const variable = environment(setting);
               variable != nullptr && *variable != '\0') {
      value = {true, variable, setting.variable};
    }
  }
  read_file(files.user);
  read_file(files.system);
  for (const Setting& setting : all_settings()) {
    Setting_Value& value = values_[static_cast<std::size_t>(setting.id)];
    if (!value.given && setting.fallback != nullptr) value = {true, setting.fallback, "default"};
  }
}

void Settings::read_file(const std::string& path) {
  if (path.empty()) return;
  std::ifstream file(path);
  if (!file) {
    if (errno == ENOENT || errno == ENOTDIR) return;
    throw Usage_Error("configuration " + path + ": " + std::strerror(errno));
  }
  const std::vector<CLI::ConfigItem> items = Plain_Config().from_config(file);
  if (file.bad()) throw Usage_Error("configuration " + path + ": it cannot be read");
  std::array<bool, setting_count> seen{};
  for (const CLI::ConfigItem& item : items) {
    const Setting* const setting = item.parents.empty() ? find_setting(item.name) : nullptr;
    if (setting == nullptr) {
      throw Usage_Error("configuration " + path + ": " +
                        (item.name == "access_key"
                             ? "the access key itself is never read from a configuration; name its "
                               "file with access_key_file"
                             : "'" + item.fullname() + "' is not a setting"));
    }
    const auto index = static_cast<std::size_t>(setting->id);
    if (seen[index] || item.inputs.size() != 1) {
      throw Usage_Error("configuration " + path + ": '" + item.name + "' is set twice");
    }
    seen[index] = true;
    if (values_[index].given) continue;
    values_[index] = {true, setting->path ? resolve_path(item.inputs[0], path) : item.inputs[0],
                      path};
  }
}

Config_Files config_files() {
  Config_Files files{"", ZQPOOL_SYSTEM_CONFIG};
  const char* const xdg = std::getenv("XDG_CONFIG_HOME");
  const char* const home = std::getenv("HOME");
  if (xdg != nullptr && *xdg == '/') {
    files.user = std::string(xdg) + "/zqpool/config";
  } else if (home != nullptr && *home == '/') {
    files.user = std::string(home) + "/.config/zqpool/config";
  }
  return files;
}

}  // namespace zqpool::cli
