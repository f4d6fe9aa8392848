#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "service/api/router.h"
#include "service/store/database.h"

namespace zqpool::service {

/// One entry of the catalog's metadata: that a path of a pool lies on a device.
struct Metadata {
  std::string pool_uuid;
  std::string device_uuid;
  std::string path;                  ///< tidy
  std::string type;                  ///< "file", "dir"...: all entries of a path have one
  std::string grouping;              ///< "": none
  std::optional<std::int64_t> size;  ///< absent: not known
};

enum class Recorded { done, no_device, other_type };

/// Writes the entry, replacing one for the same pool, path, grouping and device. Writes nothing
/// when the pool has no such device or the path has another type.
Recorded record(Connection& db, const Metadata& entry);

/// A row of pool_uuid, device_uuid, path, type, grouping_name and size as an object.
Object metadata_record(const Statement& row);

/// Adds the path /zq/r/storage/catalog/device/metadata.
void add_metadata_path(Router& router);

}  // namespace zqpool::service
