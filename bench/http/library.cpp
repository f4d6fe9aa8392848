#include <string>

#include "bench/http/clients.h"
#include "utils/pool/pool_metadata_manager.h"

namespace zqpool::bench {

Make_Call library(const Target& target) {
  return [target] {
    return [target] {
      Object device;
      std::string uuid;
      return Pool_Metadata_Manager::get_device(target.host, target.port, target.ssl(),
                                               target.access_key, target.device_url, device) &&
             json_spirit::object_get(device, "uuid", uuid) && uuid == target.device_uuid;
    };
  };
}

}  // namespace zqpool::bench
