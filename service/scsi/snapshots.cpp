#include "service/scsi/snapshots.h"

#include <optional>
#include <string>

#include "service/api/request_fields.h"
#include "service/api/text.h"
#include "service/scsi/exports.h"
#include "service/scsi/luns.h"
#include "service/scsi/pool.h"
#include "service/volumes/volumes.h"

namespace zqpool::service {

namespace {

constexpr Volume_Kind lun_kind = Volume_Kind::lun;

Snapshot need_lun_snapshot(Connection& db, const SCSI_Pool& pool, const std::string& id) {
  return need_snapshot(db, pool.volumes.uuid, lun_kind, lower_case(id));
}

/// One description, or one for each number under which the snapshot is shared.
void add_records(Connection& db, const Volume& lun, const Snapshot& snapshot,
                 const Chain_Sizes& sizes, Array& out) {
  const Sizes& own = sizes.snapshots.at(snapshot.seq);
  const Object record{{"snapshot_id", snapshot.id},
                      {"pool_id", lun.pool},
                      {"parent_id", lun.name},
                      {"seq", snapshot.seq},
                      {"recycle", snapshot.recyclable},
                      {"created", snapshot.created},
                      {"lun_size", lun.size.value_or(0)},
                      {"rfer_size", own.referenced},
                      {"excl_size", own.exclusive}};
  const std::vector<Export> shares = shares_of(db, snapshot);
  if (shares.empty()) out.emplace_back(record);
  for (const Export& share : shares) {
    Object shared = record;
    describe_export(db, share, shared);
    shared.emplace("vpd_serial_number", serial_number(snapshot, share));
    out.emplace_back(std::move(shared));
  }
}

// ---- /zq/r/scsipool/snapshot

Response create_snapshot_of_lun(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const SCSI_Pool pool = need_scsi_pool(db, fields.text("pool_id"), Access::write);
  const Volume lun = need_lun(db, pool.volumes.uuid, fields.text("lun_id"));
  Snapshot wanted;
  wanted.id = random_uuid();
  wanted.recyclable = fields.flag("recycle");
  wanted.created = utc_now();
  return json_response(Object{{"snapshot_id", create_snapshot(db, lun, wanted).id}}, 201);
}

Response get_snapshots(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const SCSI_Pool pool = need_scsi_pool(db, query.needed_text("pool_id"), Access::read);
  const std::optional<std::string> id = query.text("snapshot_id");
  const std::optional<std::string> lun_id = query.text("lun_id");
  if (id && lun_id)
    throw Request_Error(400, "give one of the query fields 'snapshot_id' and 'lun_id'");

  Array out;
  const auto add_all_of = [&](const Volume& lun) {
    const Chain_Sizes sizes = Extent_Map(db, lun.number).sizes();
    for (const Snapshot& snapshot : snapshots_of(db, lun)) {
      add_records(db, lun, snapshot, sizes, out);
    }
  };
  if (id) {
    const Snapshot snapshot = need_lun_snapshot(db, pool, *id);
    const Volume lun = volume_by_number(db, snapshot.volume);
    add_records(db, lun, snapshot, Extent_Map(db, lun.number).sizes(), out);
  } else if (lun_id) {
    add_all_of(need_lun(db, pool.volumes.uuid, *lun_id));
  } else {
    for (const Volume& lun : volumes_of(db, pool.volumes.uuid, lun_kind))
      add_all_of(lun);
  }
  return json_response(std::move(out));
}

/// The snapshot of a DELETE, absent when it was deleted before.
std::optional<Snapshot> find_undeleted(Connection& db, const SCSI_Pool& pool,
                                       const std::string& id) {
  if (was_snapshot_deleted(db, pool.volumes.uuid, lun_kind, id)) return std::nullopt;
  return need_lun_snapshot(db, pool, id);
}

Response delete_snapshot_of_lun(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const SCSI_Pool pool = need_scsi_pool(db, query.needed_text("pool_id"), Access::write);
  const std::string id = lower_case(query.needed_text("snapshot_id"));
  const bool delete_empty = query.flag_or("delete_empty_lun", false);
  if (const auto snapshot = find_undeleted(db, pool, id)) {
    delete_snapshot(db, *snapshot, delete_empty);
  }
  return json_response(Object{{"snapshot_id", id}});
}

// ---- /zq/r/scsipool/snapshot/export

Response create_share(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const SCSI_Pool pool = need_scsi_pool(db, fields.text("pool_id"), Access::write);
  const Snapshot snapshot = need_lun_snapshot(db, pool, fields.text("snapshot_id"));
  const Target target = read_target(fields, pool);
  const Access_List access = read_needed_access(fields);
  const Export share = share_snapshot(db, pool.volumes.uuid, snapshot, target, access);
  return json_response(Object{{"lun_num", share.lun_num}});
}

std::optional<Export> find_share(Connection& db, const Snapshot& snapshot, std::int64_t lun_num) {
  for (const Export& share : shares_of(db, snapshot)) {
    if (share.lun_num == lun_num) return share;
  }
  return std::nullopt;
}

Response add_access(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const SCSI_Pool pool = need_scsi_pool(db, fields.text("pool_id"), Access::write);
  const Snapshot snapshot = need_lun_snapshot(db, pool, fields.text("snapshot_id"));
  const std::int64_t lun_num = fields.count("lun_num");
  fields.one_of("action", {"add"});
  const Access_List access = read_needed_access(fields);
  const std::optional<Export> share = find_share(db, snapshot, lun_num);
  if (!share) {
    throw Request_Error(409, "snapshot '" + snapshot.id + "' is not shared under number " +
                                 std::to_string(lun_num));
  }
  allow(db, *share, access);
  Object out;
  describe_export(db, *share, out);
  return json_response(std::move(out));
}

Response delete_share(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const SCSI_Pool pool = need_scsi_pool(db, query.needed_text("pool_id"), Access::write);
  const std::string id = lower_case(query.needed_text("snapshot_id"));
  const std::int64_t lun_num = query.needed_count("lun_num");
  if (const auto snapshot = find_undeleted(db, pool, id)) {
    const std::optional<Export> share = find_share(db, *snapshot, lun_num);
    if (share) withdraw(db, *share);
  }
  return json_response(Object{{"snapshot_id", id}});
}

}  // namespace

void add_snapshot_paths(Router& router) {
  const std::string snapshot = "/zq/r/scsipool/snapshot";
  router.add(Method::post, snapshot, Access::write, create_snapshot_of_lun);
  router.add(Method::get, snapshot, Access::read, get_snapshots);
  router.add(Method::del, snapshot, Access::write, delete_snapshot_of_lun);
  router.add(Method::post, snapshot + "/export", Access::write, create_share);
  router.add(Method::put, snapshot + "/export", Access::write, add_access);
  router.add(Method::del, snapshot + "/export", Access::write, delete_share);
}

}  // namespace zqpool::service
