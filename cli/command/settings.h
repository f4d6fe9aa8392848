#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace zqpool::cli {

/// Settings come from an argument, the environment or a configuration file.
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
  const char* fallback;  ///< its default, or null
  const char* type;
  const char* help;
  bool path;  ///< a path; relative to the folder of its configuration file
};

constexpr std::size_t setting_count = 9;
/// All settings, in the order of Setting_Id.
const std::array<Setting, setting_count>& all_settings() noexcept;

/// The value of a setting and where it came from.
struct Setting_Value {
  bool given = false;  ///< false: not set and without a default
  std::string text;
  std::string source;  ///< "--endpoint", "ZQPOOL_ENDPOINT", "/etc/zqpool/config", "default", ""
};

/// The paths of the configuration files, "" for none.
struct Config_Files {
  std::string user;
  std::string system;
};

/// Looks a setting up in a source other than the files; null when it is not set there.
using Setting_Lookup = std::function<const char*(const Setting&)>;

/// The settings in force. Arguments override the environment, then comes the user's file, then the
/// system's.
class Settings {
 public:
  /// Throws Usage_Error when a file cannot be read or holds an unknown setting.
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
