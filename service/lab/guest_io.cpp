#include "service/lab/guest_io.h"

#include <optional>
#include <string>
#include <vector>

#include "service/api/request_fields.h"
#include "service/filesystem/filesystems.h"
#include "service/scsi/exports.h"
#include "service/scsi/luns.h"
#include "service/scsi/pools.h"
#include "service/volumes/volumes.h"

namespace zqpool::service {

namespace {

/// The LUN that a guest sees there and may write to.
Volume need_writable(Store& store, const std::string& initiator, const std::string& target,
                     std::int64_t lun_num) {
  for (const Export& each : seen_by(store, initiator)) {
    if (each.lun_num != lun_num || each.target.name != target) continue;
    if (!each.volume) throw Refusal(409, "a snapshot cannot be written to");
    return volume_by_number(store, *each.volume);
  }
  throw Refusal(404, "initiator '" + initiator + "' sees no LUN " + std::to_string(lun_num) +
                         " on target '" + target + '\'');
}

/// What is written to: a LUN as an initiator sees it, any LUN, or a filesystem that is mounted.
Volume read_written(Store& store, Fields& fields) {
  if (fields.has("initiator")) {
    const std::string initiator = fields.text("initiator");
    const std::string target = fields.text("target");
    Volume out = need_writable(store, initiator, target, fields.count("lun_num"));
    need_scsi_pool(store, out.pool, Access::change);
    return out;
  }
  if (fields.has("name")) {
    const Volume_Pool pool = need_volume_pool(store, fields.text("pool_id"), Access::change);
    Filesystem out = need_filesystem(store, pool.uuid, fields.text("name"));
    if (!out.mounted) throw Refusal(409, described(out.volume) + " is not mounted");
    return std::move(out.volume);
  }
  const SCSI_Pool pool = need_scsi_pool(store, fields.text("pool_id"), Access::change);
  return need_lun(store, pool.volumes.uuid, fields.text("lun_id"));
}

Answer write_as_guest(Store& store, const Request& request) {
  no_query(request);
  const Object body = body_object(request);
  Fields fields(body, "");
  const Volume volume = read_written(store, fields);
  const std::int64_t offset = fields.count("offset");
  const std::int64_t length = fields.count("length");
  const bool discard = fields.flag_or("discard", false);
  fields.finish();

  const bool is_lun = volume.kind == Volume_Kind::lun;
  if (is_lun) need_blocks(store, volume, offset, length);
  Array reclaimed;
  if (discard) {
    discard_volume(store, volume, offset, length);
  } else {
    for (std::string& id : write_volume(store, volume, offset, length, Reclaim::yes)) {
      reclaimed.emplace_back(std::move(id));
    }
  }
  return json_answer(
      Object{{is_lun ? "lun_id" : "name", volume.name},
             {"rfer_size", Block_Map(store, volume.number).sizes().head.referenced},
             {"used_size", need_volume_pool(store, volume.pool, Access::read).used_size},
             {"reclaimed", std::move(reclaimed)}});
}

Answer get_visible(Store& store, const Request& request) {
  Query_Fields query(request);
  const std::string initiator = query.needed_text("initiator");
  query.finish();
  Array luns;
  for (const Export& each : seen_by(store, initiator)) {
    Object lun{{"pool_id", each.pool},
               {"type", each.target.transport},
               {"target", each.target.name},
               {"lun_num", each.lun_num},
               {"writable", each.volume.has_value()}};
    std::optional<Volume> volume;
    if (each.volume) {
      volume = volume_by_number(store, *each.volume);
      lun.emplace("vpd_serial_number", serial_number(*volume));
    } else {
      const Snapshot snapshot = snapshot_by_number(store, *each.snapshot);
      volume = volume_by_number(store, snapshot.volume);
      lun.emplace("snapshot_id", snapshot.id);
      lun.emplace("vpd_serial_number", serial_number(snapshot, each));
    }
    lun.emplace("lun_id", volume->name);
    lun.emplace("lun_size", volume->size.value_or(0));
    lun.emplace("block_size", traits_of(store, *volume).block_size);
    luns.emplace_back(std::move(lun));
  }
  return json_answer(Object{{"luns", std::move(luns)}});
}

}  // namespace

void add_guest_io(Router& router) {
  router.add(Method::post, "/zq/lab/write", Access::change, write_as_guest);
  router.add(Method::get, "/zq/lab/visible", Access::read, get_visible);
}

}  // namespace zqpool::service
