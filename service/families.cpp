#include "service/families.h"

#include "service/catalog.h"
#include "service/filesystems.h"
#include "service/nfs.h"
#include "service/resolution.h"
#include "service/scsi_pools.h"
#include "service/storage_server.h"

namespace zqpool::service {

Families::Families(std::chrono::milliseconds nfs_delay) {
  add_catalog(router, scenario);
  add_resolution(router, scenario);
  add_storage_server(router);
  add_scsi_pools(*this);
  add_filesystems(*this);
  add_nfs(*this, nfs_delay);
}

}  // namespace zqpool::service
