#include "service/assemble.h"

#include "service/catalog/catalog.h"
#include "service/catalog/resolution.h"
#include "service/catalog/statfs.h"
#include "service/filesystem/filesystems.h"
#include "service/nfs/nfs.h"
#include "service/scsi/pools.h"

namespace zqpool::service {

Resources assemble(std::chrono::milliseconds nfs_delay) {
  Resources out;
  add_catalog(out.router, out.scenario);
  add_resolution(out.router, out.scenario);
  add_storage_server(out.router);
  add_scsi_pools(out);
  add_filesystems(out);
  add_nfs(out, nfs_delay);
  return out;
}

}  // namespace zqpool::service
