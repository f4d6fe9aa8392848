#include <optional>
#include <string>
#include <vector>

#include "service/fields.h"
#include "service/scsi_exports.h"
#include "service/scsi_luns.h"
#include "service/scsi_pools.h"
#include "service/volumes.h"

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

Answer write_as_guest(Store& store, const Request& request) {
  no_query(request);
  const Object body = body_object(request);
  Fields fields(body, "");
  const Volume lun = [&] {
    if (!fields.has("initiator")) {
      const SCSI_Pool pool = need_scsi_pool(store, fields.text("pool_id"), Access::change);
      return need_lun(store, pool.volumes.uuid, fields.text("lun_id"));
    }
    const std::string initiator = fields.text("initiator");
    const std::string target = fields.text("target");
    Volume out = need_writable(store, initiator, target, fields.count("lun_num"));
    need_scsi_pool(store, out.pool, Access::change);
    return out;
  }();
  const std::int64_t offset = fields.count("offset");
  const std::int64_t length = fields.count("length");
  const bool discard = fields.flag_or("discard", false);
  fields.finish();

  need_blocks(store, lun, offset, length);
  Array reclaimed;
  if (discard) {
    discard_volume(store, lun, offset, length);
  } else {
    for (std::string& id : write_volume(store, lun, offset, length, Reclaim::yes)) {
      reclaimed.emplace_back(std::move(id));
    }
  }
  return json_answer(
      Object{{"lun_id", lun.name},
             {"rfer_size", Block_Map(store, lun.number).sizes().head.referenced},
             {"used_size", need_volume_pool(store, lun.pool, Access::read).used_size},
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

void add_scsi_lab(Router& router) {
  router.add(Method::post, "/zq/lab/write", Access::change, write_as_guest);
  router.add(Method::get, "/zq/lab/visible", Access::read, get_visible);
}

}  // namespace zqpool::service
