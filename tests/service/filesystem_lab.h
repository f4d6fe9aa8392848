#pragma once

#include <string>

namespace zqpool::test {

/// Identifiers of filesystem_lab().
const std::string fs_scsi_pool = "00000000-0000-4000-8000-00000000c001";
const std::string fs_image_pool = "00000000-0000-4000-8000-00000000c002";
const std::string fs_offline_pool = "00000000-0000-4000-8000-00000000c003";
const std::string fs_readonly_pool = "00000000-0000-4000-8000-00000000c004";

/// Pools that keep filesystems, of a MiB each: a SCSI pool, an image pool, and two more image pools
/// that are offline and readonly, each with a filesystem "kept".
inline std::string filesystem_lab() {
  const auto pool = [](const std::string& uuid, const std::string& name, const std::string& rest) {
    return R"({"uuid":")" + uuid + R"(","name":")" + name + R"(",)" + rest + '}';
  };
  const auto kept = [](const std::string& uuid) {
    return R"({"pool_uuid":")" + uuid + R"(","name":"kept","created":"2026-01-02T03:04:05Z",
               "history":[{"write":{"offset":0,"length":4096}}]})";
  };
  return R"({"pools":[)" + pool(fs_scsi_pool, "scsi", R"("type":"scsi")") + ',' +
         pool(fs_image_pool, "image", R"("type":"image")") + ',' +
         pool(fs_offline_pool, "gone", R"("type":"image","state":"offline")") + ',' +
         pool(fs_readonly_pool, "still", R"("type":"image","state":"readonly")") +
         R"(],"scsi_pools":[{"uuid":")" + fs_scsi_pool +
         R"(","target":"iqn.2026-11.org.zqpool:fs","size":1048576}],"image_pools":[)" +
         R"({"uuid":")" + fs_image_pool + R"(","size":1048576},{"uuid":")" + fs_offline_pool +
         R"(","size":1048576},{"uuid":")" + fs_readonly_pool + R"(","size":1048576}],)" +
         R"("filesystems":[)" + kept(fs_offline_pool) + ',' + kept(fs_readonly_pool) + "]}";
}

}  // namespace zqpool::test
