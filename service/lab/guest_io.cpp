#include "service/lab/guest_io.h"

#include <optional>
#include <string>
#include <vector>

#include "service/api/request_fields.h"
#include "service/filesystem/filesystems.h"
#include "service/scsi/exports.h"
#include "service/scsi/luns.h"
#include "service/scsi/pool.h"
#include "service/volumes/volumes.h"

namespace zqpool::service {

namespace {

/// The writable LUN that the initiator sees on the target under this number.
Volume need_writable(Connection& db, const std::string& initiator, const std::string& target,
                     std::int64_t lun_num) {
  for (const Export& each : seen_by(db, initiator)) {
    if (each.lun_num != lun_num || each.target.name != target) continue;
    if (!each.volume) throw Request_Error(409, "a snapshot cannot be written to");
    return volume_by_number(db, *each.volume);
  }
  throw Request_Error(404, "initiator '" + initiator + "' sees no LUN " + std::to_string(lun_num) +
                               " on target '" + target + '\'');
}

/// The volume to write to: a LUN as an initiator sees it, any LUN, or a mounted filesystem.
Volume read_written(Connection& db, Request_Fields& fields) {
  if (fields.has("initiator")) {
    const std::string initiator = fields.text("initiator");
    const std::string target = fields.text("target");
    Volume out = need_writable(db, initiator, target, fields.count("lun_num"));
    need_scsi_pool(db, out.pool, Access::write);
    return out;
  }
  if (fields.has("name")) {
    const Volume_Pool pool = need_volume_pool(db, fields.text("pool_id"), Access::write);
    Filesystem out = need_filesystem(db, pool.uuid, fields.text("name"));
    if (!out.mounted) throw Request_Error(409, described(out.volume) + " is not mounted");
    return std::move(out.volume);
  }
  const SCSI_Pool pool = need_scsi_pool(db, fields.text("pool_id"), Access::write);
  return need_lun(db, pool.volumes.uuid, fields.text("lun_id"));
}

Response write_as_guest(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const Volume volume = read_written(db, fields);
  const std::int64_t offset = fields.count("offset");
  const std::int64_t length = fields.count("length");
  const bool discard = fields.flag_or("discard", false);

  const bool is_lun = volume.kind == Volume_Kind::lun;
  if (is_lun) need_blocks(db, volume, offset, length);
  Array reclaimed;
  if (discard) {
    discard_volume(db, volume, offset, length);
  } else {
    for (std::string& id : write_volume(db, volume, offset, length, Reclaim::yes)) {
      reclaimed.emplace_back(std::move(id));
    }
  }
  return json_response(
      Object{{is_lun ? "lun_id" : "name", volume.name},
             {"rfer_size", Extent_Map(db, volume.number).sizes().head.referenced},
             {"used_size", need_volume_pool(db, volume.pool, Access::read).used_size},
             {"reclaimed", std::move(reclaimed)}});
}

Response get_visible(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const std::string initiator = query.needed_text("initiator");
  Array luns;
  for (const Export& each : seen_by(db, initiator)) {
    Object lun{{"pool_id", each.pool},
               {"type", each.target.transport},
               {"target", each.target.name},
               {"lun_num", each.lun_num},
               {"writable", each.volume.has_value()}};
    std::optional<Volume> volume;
    if (each.volume) {
      volume = volume_by_number(db, *each.volume);
      lun.emplace("vpd_serial_number", serial_number(*volume));
    } else {
      const Snapshot snapshot = snapshot_by_number(db, *each.snapshot);
      volume = volume_by_number(db, snapshot.volume);
      lun.emplace("snapshot_id", snapshot.id);
      lun.emplace("vpd_serial_number", serial_number(snapshot, each));
    }
    lun.emplace("lun_id", volume->name);
    lun.emplace("lun_size", volume->size.value_or(0));
    lun.emplace("block_size", traits_of(db, *volume).block_size);
    luns.emplace_back(std::move(lun));
  }
  return json_response(Object{{"luns", std::move(luns)}});
}

}  // namespace

void add_guest_io(Router& router) {
  router.add(Method::post, "/zq/lab/write", Access::write, write_as_guest);
  router.add(Method::get, "/zq/lab/visible", Access::read, get_visible);
}

}  // namespace zqpool::service
