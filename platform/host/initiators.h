#pragma once

#include <string>
#include <vector>

#include "platform/export.h"

/// Puts `prefix` before "/etc" and "/sys" wherever the identity of the host is read from there, so
/// that a container or a test can point it at a folder; "" (the beginning) for none. Thread-safe.
ZQ_EXPORT void set_host_root(const std::string& prefix);

/// Appends this host's iSCSI initiator names, the "InitiatorName" lines of
/// "/etc/iscsi/initiatorname.iscsi" in their order. False, with `names` as they were, when there is
/// none. Thread-safe.
ZQ_EXPORT bool get_iscsi_initiator_name(std::vector<std::string>& names);

/// This host's Fibre Channel ports. Distinct objects may be used on any number of threads at once.
class ZQ_EXPORT FC_Info {
 public:
  /// Reads the ports anew from "/sys/class/fc_host". False when there is none.
  bool init();

  /// Appends the WWNs of the ports, as the system writes them ("0x100000109b1c2d3e"), in the order
  /// of the ports' numbers. False, with `wwns` as they were, when there is none.
  bool get_port_wwn(std::vector<std::string>& wwns) const;

 private:
  std::vector<std::string> port_wwns_;
};
