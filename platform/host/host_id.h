#pragma once

#include <string>

#include "platform/export.h"

/// The UUID by which this host is known to the services. Thread-safe.
class ZQ_EXPORT Host_ID {
 public:
  /// Never null, and good until the process ends.
  static Host_ID* instance() noexcept;

  /// What the process set, or else the system's machine id ("/etc/machine-id") in the form of a
  /// UUID, read once. "" when there is neither; then the next call looks again. The text stays good
  /// and unchanged until the process ends, also when another one is set.
  const char* c_str() const;

  /// Sets the UUID, as it is. "" takes it back: the machine id counts again and is read anew.
  void set(const std::string& uuid);

  Host_ID(const Host_ID&) = delete;
  Host_ID& operator=(const Host_ID&) = delete;

 private:
  Host_ID() = default;
  ~Host_ID() = default;
};
