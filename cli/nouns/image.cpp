#include <memory>

#include "cli/nouns/filesystem_verbs.h"
#include "utils/pool/image_pool_manager.h"

namespace zqpool::cli {

namespace {

using std::string;

Filesystems open_image_pool(const Target& target, const string& pool_uuid) {
  const auto& [ssl, host, port] = target.endpoint;
  const auto pool =
      std::make_shared<const Image_Pool_Manager>(host, port, ssl, target.access_key, pool_uuid);
  Filesystems out = filesystems_of(pool);
  out.describe = [pool](const string& name, Object& info) {
    return pool->list_filesystem_info(name, info, nullptr);
  };
  out.snapshot = [pool](const string& name, string& snapshot_id, bool recyclable) {
    return pool->create_snapshot(name, snapshot_id, recyclable);
  };
  out.describe_snapshot = [pool](const string& snapshot_id, Object& info) {
    return pool->get_snapshot_info(snapshot_id, info);
  };
  out.previous_snapshot = [pool](const string& snapshot_id, Object& info) {
    return pool->get_previous_snapshot(snapshot_id, info);
  };
  out.snapshot_size = [pool](const string& snapshot_id, std::uint64_t& size) {
    return pool->cal_snapshot_size(snapshot_id, size);
  };
  out.remove_snapshot = [pool](const string& snapshot_id, bool delete_empty) {
    return pool->delete_snapshot(snapshot_id, delete_empty);
  };
  return out;
}

}  // namespace

void add_image(Command_Line& commands) {
  CLI::App& noun = commands.noun("image", "Filesystems of image pools");
  add_filesystem_verbs(commands, noun, &open_image_pool);
}

}  // namespace zqpool::cli
