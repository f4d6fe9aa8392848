#pragma once

#include <string>

namespace zqpool::test {

/// Identifiers of scsi_lab().
const std::string iscsi_pool = "00000000-0000-4000-8000-00000000b001";
const std::string fc_pool = "00000000-0000-4000-8000-00000000b002";
const std::string iscsi_target = "iqn.2026-11.org.zqpool:lab";
const std::string fc_target = "naa.5001438024000001";

/// Two empty pools: one of iSCSI, one of Fibre Channel, of so many bytes each.
inline std::string scsi_lab(const std::string& size = "1073741824") {
  return R"({"pools":[
    {"uuid":")" +
         iscsi_pool + R"(","name":"luns","type":"scsi"},
    {"uuid":")" +
         fc_pool + R"(","name":"fabric","type":"scsi"}],
  "scsi_pools":[
    {"uuid":")" +
         iscsi_pool + R"(","target":")" + iscsi_target + R"(","portal":"192.0.2.10:3260","size":)" +
         size + R"(},
    {"uuid":")" +
         fc_pool + R"(","transport":"FC","target":")" + fc_target + R"(","size":)" + size + "}]}";
}

}  // namespace zqpool::test
