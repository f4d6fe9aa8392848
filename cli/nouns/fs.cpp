#include <memory>
#include <utility>

#include "cli/nouns/filesystem_verbs.h"
#include "utils/pool/scsi_target_manager.h"

namespace zqpool::cli {

namespace {

using std::string;

Filesystems open_scsi_pool(const Target& target, const string& pool_uuid) {
  const auto& [ssl, host, port] = target.endpoint;
  const auto pool = std::make_shared<const SCSI_Target_Manager>(host, port, ssl, target.access_key,
                                                                pool_uuid, nullptr);
  Filesystems out = filesystems_of(pool);
  out.describe = [pool](const string& name, Object& info) {
    return pool->list_filesystem_info(name, info, true, nullptr);
  };
  out.snapshot = [pool](const string& name, string& snapshot_id, bool recyclable) {
    return pool->create_filesystem_snapshot(name, snapshot_id, recyclable);
  };
  out.describe_snapshot = [pool](const string& snapshot_id, Object& info) {
    return pool->get_filesystem_snapshot_info(snapshot_id, info);
  };
  out.previous_snapshot = [pool](const string& snapshot_id, Object& info) {
    return pool->get_previous_filesystem_snapshot(snapshot_id, info);
  };
  out.snapshot_size = [pool](const string& snapshot_id, std::uint64_t& size) {
    ACE_UINT64 bytes = size;
    const bool good = pool->cal_snapshot_size(snapshot_id, bytes, false);
    size = bytes;
    return good;
  };
  out.remove_snapshot = [pool](const string& snapshot_id, bool delete_empty) {
    return pool->delete_filesystem_snapshot(snapshot_id, delete_empty);
  };
  return out;
}

}  // namespace

void add_fs(Command_Line& commands) {
  CLI::App& noun = commands.noun("fs", "Filesystems of SCSI pools");
  add_filesystem_verbs(commands, noun, &open_scsi_pool);
}

}  // namespace zqpool::cli
