#pragma once

#include <string>

#include "platform/export.h"

/// The UUID that identifies this host to services. Thread-safe.
class ZQ_EXPORT Host_ID {
 public:
  /// Never null; valid until the process ends.
  static Host_ID* instance() noexcept;

  /// Returns the UUID given to set(), else the machine id ("/etc/machine-id") as a UUID, which is
  /// read once. Returns "" if there is neither; the next call tries again. The text stays valid and
  /// unchanged until the process ends, also after set().
  const char* c_str() const;

  /// Sets the UUID, without checking it. "" goes back to the machine id, which is read again.
  void set(const std::string& uuid);

  Host_ID(const Host_ID&) = delete;
  Host_ID& operator=(const Host_ID&) = delete;

 private:
  Host_ID() = default;
  ~Host_ID() = default;
};
