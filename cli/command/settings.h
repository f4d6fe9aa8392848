#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace zqpool::cli {

/// What can be set by an argument, the environment and the configuration files.
enum class Setting_Id {
  endpoint,
  access_key_file,
  cacert,
  s3_secret_file,
  host_root,
  timeout,
  retry,
  jobs,
  output
};

struct Setting {
  Setting_Id id;
  const char* key;       ///< in a configuration file
  const char* option;    ///< on the command line
  const char* variable;  ///< in the environment
  const char* fallback;  ///< when it is set nowhere, or null
  const char* type;
  const char* help;
  bool path;  ///< in a file, relative to the file's folder
};

constexpr std::size_t setting_count = 9;
/// All settings, in the order of Setting_Id.
const std::array<Setting, setting_count>& all_settings() noexcept;

/// One setting's value and where it came from.
struct Setting_Value {
  bool given = false;  ///< false: neither set anywhere nor with a fallback
  std::string text;
  std::string source;  ///< "--endpoint", "ZQPOOL_ENDPOINT", "/etc/zqpool/config", "default", ""
};

/// The configuration files, the user's before the system's; a path may be "" (none).
struct Config_Files {
  std::string user;
  std::string system;
};

/// What a source outside the files says about a setting, or null when it says nothing.
using Setting_Lookup = std::function<const char*(const Setting&)>;

/// The settings in force: argument, then environment, then user's file, then system's file.
class Settings {
 public:
  /// Throws Usage_Error when a file cannot be read or holds what is no setting.
  Settings(const Setting_Lookup& argument, const Setting_Lookup& environment,
           const Config_Files& files);

  const Setting_Value& operator[](Setting_Id id) const noexcept {
    return values_[static_cast<std::size_t>(id)];
  }

 private:
  void read_file(const std::string& path);

  std::array<Setting_Value, setting_count> values_;
};

/// ${XDG_CONFIG_HOME:-~/.config}/zqpool/config and the system's file.
Config_Files config_files();

}  // namespace zqpool::cli
