#pragma once

#include <string>

#include "platform/export.h"

/// This host's access key for the services of the backup server. Thread-safe.
class ZQ_EXPORT Host_Manager {
 public:
  /// Never null; valid until the process ends.
  static Host_Manager* instance() noexcept;

  /// The access key, "" until one is set. A secret: do not log it.
  std::string access_key() const;
  void access_key(const std::string& key);

  Host_Manager(const Host_Manager&) = delete;
  Host_Manager& operator=(const Host_Manager&) = delete;

 private:
  Host_Manager() = default;
  ~Host_Manager() = default;
};
