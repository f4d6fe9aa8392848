#include "service/families.h"

#include "service/catalog.h"

namespace zqpool::service {

Families::Families() {
  add_catalog(router, scenario);
}

}  // namespace zqpool::service
