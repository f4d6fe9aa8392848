#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "service/api/request_fields.h"
#include "service/scsi/pool.h"
#include "service/store/database.h"
#include "service/volumes/volumes.h"

namespace zqpool::service {

// Exports of LUNs and snapshots. An export has a number on a target; the initiators on its access
// list see it there.

/// Who may see an export, by initiator name or port WWN. The case of the names does not matter.
struct Access_Entry {
  std::string initiator;
  std::string host_uuid;
};
using Access_List = std::vector<Access_Entry>;

struct Target {
  std::string name;
  std::string transport;
};

struct Export {
  std::int64_t number = 0;  ///< of its row
  std::string pool;
  Target target;
  std::int64_t lun_num = 0;              ///< unique on the target; stays while it is exported
  std::optional<std::int64_t> volume;    ///< number of the LUN, or
  std::optional<std::int64_t> snapshot;  ///< number of the snapshot
};

/// "iSCSI" or "FC". Throws Request_Error for a member that names another transport; case does not
/// matter.
std::string read_transport(Request_Fields& fields, const std::string& key);
/// A target's name: printable characters without blanks, 223 at most. Throws Request_Error.
std::string read_target_name(Request_Fields& fields, const std::string& key);
/// The members "type" and "target", which come together, or the pool's own. Throws Request_Error.
Target read_target(Request_Fields& fields, const SCSI_Pool& pool);
/// The member "acls", empty when it is missing. Throws Request_Error.
Access_List read_access(Request_Fields& fields);
/// As above; 400 when it is missing, 422 when it is empty.
Access_List read_needed_access(Request_Fields& fields);

/// The LUN's export, if it has one.
std::optional<Export> export_of(Connection& db, const Volume& lun);
/// The snapshot's shares in the order of their numbers.
std::vector<Export> shares_of(Connection& db, const Snapshot& snapshot);

/// Exports the LUN on the target, unless it is already, and adds the initiators to its access list.
/// `lun_num` is the number to take, by default the lowest free one. Throws Request_Error (409) when
/// it is exported on another target, the target belongs to another pool or transport, or the number
/// is taken.
Export export_lun(Connection& db, const Volume& lun, const Target& target,
                  const Access_List& access, std::optional<std::int64_t> lun_num = {});
/// The same for a snapshot, which may be shared several times: a share on the target that one of
/// the initiators sees is reused, otherwise a new one is made. Each share of a snapshot has its own
/// number, even on different targets.
Export share_snapshot(Connection& db, const std::string& pool, const Snapshot& snapshot,
                      const Target& target, const Access_List& access,
                      std::optional<std::int64_t> lun_num = {});
/// Adds to the access list.
void allow(Connection& db, const Export& to, const Access_List& access);
void withdraw(Connection& db, const Export& what);
/// How many hosts are on the access list.
std::int64_t hosts_of(Connection& db, const Export& what);

/// The exports that an initiator sees, ordered by target and number.
std::vector<Export> seen_by(Connection& db, const std::string& initiator);

/// The SCSI serial number of a LUN or of a share of a snapshot. Made from their identifiers, so it
/// is unique and never changes.
std::string serial_number(const Volume& lun);
std::string serial_number(const Snapshot& snapshot, const Export& share);

/// Adds "lun_num", "type", "target" and "acls".
void describe_export(Connection& db, const Export& what, Object& out);

/// The consistency check of exports. Returns how many there are.
std::int64_t check_exports(Connection& db, Array& problems);

}  // namespace zqpool::service
