#include "service/scsi/pools.h"

#include "service/api/request_fields.h"
#include "service/scsi/exports.h"
#include "service/scsi/luns.h"
#include "service/scsi/pool.h"
#include "service/scsi/snapshots.h"
#include "service/volumes/check.h"

namespace zqpool::service {

namespace {

// ---- GET /zq/r/pool

Object pool_record(Connection& db, const SCSI_Pool& pool) {
  const Volume_Pool& volumes = pool.volumes;
  Object out{{"pool_id", volumes.uuid},
             {"name", volumes.name},
             {"state", volumes.state},
             {"type", pool.transport},
             {"target", pool.target},
             {"total_size", volumes.total_size},
             {"used_size", volumes.used_size},
             {"free_size", volumes.total_size - volumes.used_size},
             {"lun_count", db.integer("SELECT count(*) FROM volume WHERE pool = ? AND kind = 'lun'",
                                      volumes.uuid)}};
  if (pool.portal) out.emplace("portal", *pool.portal);
  return out;
}

/// `type` is the pool's type in the catalog: only pools of type "scsi" are described here.
Response get_pools(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const bool scsi = query.text("type").value_or("scsi") == "scsi";
  const std::optional<std::string> uuid = query.text("pool_id");
  Array out;
  if (uuid) {
    if (!scsi) throw Request_Error(404, "there is no pool '" + *uuid + "' of this type");
    out.emplace_back(pool_record(db, need_scsi_pool(db, *uuid, Access::read)));
  } else if (scsi) {
    for (Statement row(db, "SELECT uuid FROM scsi_pool ORDER BY uuid"); row.next();) {
      out.emplace_back(pool_record(db, need_scsi_pool(db, row.text(0), Access::read)));
    }
  }
  return json_response(std::move(out));
}

// ---- the scenario section

void load_pool(Connection& db, Request_Fields& fields) {
  const std::string uuid = fields.uuid("uuid");
  if (!db.has_row("SELECT 1 FROM catalog_pool WHERE uuid = ? AND type = 'scsi'", uuid)) {
    fields.refuse("uuid", "there is no pool '" + uuid + "' of type scsi");
  }
  const std::string transport =
      fields.has("transport") ? read_transport(fields, "transport") : "iSCSI";
  const std::string target = read_target_name(fields, "target");
  if (db.has_row("SELECT 1 FROM scsi_pool WHERE target = ?1 AND uuid <> ?2 "
                 "UNION ALL SELECT 1 FROM scsi_export WHERE target = ?1 "
                 "AND (pool <> ?2 OR transport <> ?3)",
                 target, uuid, transport)) {
    fields.refuse("target", "is used already, by another pool or transport");
  }
  const std::int64_t size = fields.count("size");
  if (size == 0) fields.refuse("size", "must not be 0");
  set_volume_pool(db, uuid, size);
  db.execute(
      "INSERT INTO scsi_pool (uuid, transport, target, portal) VALUES (?1, ?2, ?3, ?4) "
      "ON CONFLICT (uuid) DO UPDATE SET transport = ?2, target = ?3, portal = ?4",
      uuid, transport, target, fields.optional_text("portal"));
}

Array dump_pools(Connection& db) {
  Array out;
  for (Statement row(db,
                     "SELECT s.uuid, s.transport, s.target, s.portal, p.total_size "
                     "FROM scsi_pool s JOIN volume_pool p ON p.uuid = s.uuid ORDER BY s.uuid");
       row.next();) {
    Object entry{{"uuid", row.text(0)},
                 {"transport", row.text(1)},
                 {"target", row.text(2)},
                 {"size", row.integer(4)}};
    if (!row.is_null(3)) entry.emplace("portal", row.text(3));
    out.emplace_back(std::move(entry));
  }
  return out;
}

void clear_pools(Connection& db) {
  db.execute("DELETE FROM volume_pool WHERE uuid IN (SELECT uuid FROM scsi_pool)");
}

}  // namespace

void add_scsi_pools(Resources& resources) {
  resources.router.add(Method::get, "/zq/r/pool", Access::read, get_pools);
  add_lun_paths(resources.router);
  add_snapshot_paths(resources.router);
  resources.scenario.add({"scsi_pools", clear_pools, load_pool, identity_by_uuid, dump_pools});
  resources.scenario.add(lun_section());
  resources.checks.push_back(volume_check());
  resources.checks.push_back({"exports", check_exports});
}

}  // namespace zqpool::service
