#include "service/api/resources.h"

#include "service/catalog/catalog.h"
#include "service/catalog/resolution.h"
#include "service/catalog/statfs.h"
#include "service/filesystem/filesystems.h"
#include "service/nfs/nfs.h"
#include "service/scsi/pools.h"

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
