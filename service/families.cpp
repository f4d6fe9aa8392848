#include "service/families.h"

#include "service/catalog.h"
#include "service/resolution.h"
#include "service/scsi_pools.h"
#include "service/storage_server.h"

namespace zqpool::service {

Families::Families() {
  add_catalog(router, scenario);
  add_resolution(router, scenario);
  add_storage_server(router);
  add_scsi_pools(*this);
}

}  // namespace zqpool::service
