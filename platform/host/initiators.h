#pragma once

#include <string>
#include <vector>

#include "platform/export.h"

/// Sets the folder under which the host's identity is read from "etc" and "sys", for containers and
/// tests. The default is "", the root. Thread-safe.
ZQ_EXPORT void set_host_root(const std::string& prefix);

/// Appends this host's iSCSI initiator names, from the "InitiatorName" lines of
/// "/etc/iscsi/initiatorname.iscsi". Returns false and leaves `names` alone if there is none.
/// Thread-safe.
ZQ_EXPORT bool get_iscsi_initiator_name(std::vector<std::string>& names);

/// This host's Fibre Channel ports. Not thread-safe.
class ZQ_EXPORT FC_Info {
 public:
  /// Reads the ports from "/sys/class/fc_host". Returns false if there is none.
  bool init();

  /// Appends the WWNs of the ports as the system writes them ("0x100000109b1c2d3e"), ordered by
  /// port number. Returns false and leaves `wwns` alone if there is none.
  bool get_port_wwn(std::vector<std::string>& wwns) const;

 private:
  std::vector<std::string> port_wwns_;
};
