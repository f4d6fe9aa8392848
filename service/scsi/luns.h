#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "service/api/router.h"
#include "service/api/scenario.h"
#include "service/store/database.h"
#include "service/volumes/volumes.h"

namespace zqpool::service {

constexpr std::int64_t default_block_size = 512;

/// The properties that only LUNs have.
struct LUN_Traits {
  std::int64_t block_size = default_block_size;
  std::string retention = "normal";
};

LUN_Traits traits_of(Connection& db, const Volume& lun);
/// Throws Request_Error (404) when there is none; the case of the identifier does not matter.
Volume need_lun(Connection& db, const std::string& pool, const std::string& lun_id);
/// 422 unless offset and length are whole blocks within the LUN.
void need_blocks(Connection& db, const Volume& lun, std::int64_t offset, std::int64_t length);

/// The paths /zq/r/scsipool/lun and /zq/r/scsipool/lun/export.
void add_lun_paths(Router& router);
/// The scenario section "luns": LUNs with their snapshots, contents, exports and shares.
Scenario_Section lun_section();

}  // namespace zqpool::service
