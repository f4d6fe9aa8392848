#include "service/scsi/pool.h"

#include "service/api/message.h"

namespace zqpool::service {

SCSI_Pool need_scsi_pool(Connection& db, const std::string& uuid, Access access) {
  Statement row(db, "SELECT transport, target, portal FROM scsi_pool WHERE uuid = ?", uuid);
  if (!row.next()) throw Request_Error(404, "there is no SCSI pool '" + uuid + "'");
  SCSI_Pool out{need_volume_pool(db, uuid, access), row.text(0), row.text(1), {}};
  if (!row.is_null(2)) out.portal = row.text(2);
  return out;
}

}  // namespace zqpool::service
