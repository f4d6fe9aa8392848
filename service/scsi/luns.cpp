#include "service/scsi/luns.h"

#include "service/api/text.h"
#include "service/scsi/exports.h"
#include "service/volumes/history.h"

namespace zqpool::service {

namespace {

constexpr Volume_Kind lun_kind = Volume_Kind::lun;
constexpr std::int64_t max_block_size = std::int64_t{1} << 20;

/// The optional members "block_size" and "retention_type".
LUN_Traits read_traits(Request_Fields& fields) {
  LUN_Traits out;
  out.retention = fields.one_of_or("retention_type", {"normal", "newest"}, out.retention);
  out.block_size = fields.count_or("block_size", out.block_size);
  if (out.block_size < default_block_size || out.block_size > max_block_size ||
      (out.block_size & (out.block_size - 1)) != 0) {
    fields.refuse("block_size", "must be a power of two from 512 to 1048576");
  }
  return out;
}

std::int64_t read_size(Request_Fields& fields, const std::string& key, const LUN_Traits& traits) {
  const std::int64_t size = fields.count(key);
  if (size == 0) fields.refuse(key, "must not be 0");
  if (size % traits.block_size != 0) fields.refuse(key, "must be whole blocks");
  return size;
}

Volume make_lun(Connection& db, Volume wanted, const LUN_Traits& traits,
                const std::optional<Snapshot>& origin) {
  // Unique in all pools, because serial numbers are made from them.
  if (db.has_row("SELECT 1 FROM volume WHERE kind = 'lun' AND name = ?", wanted.name)) {
    throw Request_Error(409, "there is a LUN '" + wanted.name + "' already");
  }
  wanted = origin ? clone_volume(db, *origin, wanted) : create_volume(db, wanted);
  db.execute("INSERT INTO scsi_lun (volume, block_size, retention) VALUES (?, ?, ?)", wanted.number,
             traits.block_size, traits.retention);
  return wanted;
}

Object lun_record(Connection& db, const Volume& lun) {
  const LUN_Traits traits = traits_of(db, lun);
  const Chain_Sizes sizes = Extent_Map(db, lun.number).sizes();
  Object out{{"lun_id", lun.name},
             {"pool_id", lun.pool},
             {"lun_size", lun.size.value_or(0)},
             {"block_size", traits.block_size},
             {"retention_type", traits.retention},
             {"vpd_serial_number", serial_number(lun)},
             {"created", lun.created},
             {"snapshot_count", static_cast<std::int64_t>(sizes.snapshots.size())},
             {"rfer_size", sizes.head.referenced},
             {"excl_size", sizes.head.exclusive}};
  if (lun.origin) out.emplace("origin", snapshot_by_number(db, *lun.origin).id);
  if (const auto exported = export_of(db, lun)) describe_export(db, *exported, out);
  return out;
}

// ---- /zq/r/scsipool/lun

Response create_lun(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const SCSI_Pool pool = need_scsi_pool(db, fields.text("pool_id"), Access::write);
  const bool to_export = fields.flag("export");
  Volume wanted;
  wanted.pool = pool.volumes.uuid;
  wanted.name = random_uuid();
  wanted.created = utc_now();
  LUN_Traits traits;
  Access_List access;
  std::optional<Snapshot> origin;
  if (fields.has("snapshot_id")) {
    origin = need_snapshot(db, wanted.pool, lun_kind, lower_case(fields.text("snapshot_id")));
    const Volume parent = volume_by_number(db, origin->volume);
    wanted.size = parent.size;
    traits.block_size = traits_of(db, parent).block_size;
  } else {
    traits = read_traits(fields);
    wanted.size = read_size(fields, "lun_size", traits);
    access = read_access(fields);
  }

  // Space is allocated by writing, but a LUN that would not fit is refused.
  if (!origin) make_room(db, wanted.pool, *wanted.size);
  const Volume lun = make_lun(db, wanted, traits, origin);
  Object out{{"lun_id", lun.name}};
  if (to_export) {
    const Target target{pool.target, pool.transport};
    out.emplace("lun_num", export_lun(db, lun, target, access).lun_num);
  }
  return json_response(std::move(out), 201);
}

Response get_luns(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const SCSI_Pool pool = need_scsi_pool(db, query.needed_text("pool_id"), Access::read);
  const std::optional<std::string> id = query.text("lun_id");
  Array out;
  if (id) {
    out.emplace_back(lun_record(db, need_lun(db, pool.volumes.uuid, *id)));
  } else {
    for (const Volume& lun : volumes_of(db, pool.volumes.uuid, lun_kind)) {
      out.emplace_back(lun_record(db, lun));
    }
  }
  return json_response(std::move(out));
}

Response roll_back_lun(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const SCSI_Pool pool = need_scsi_pool(db, fields.text("pool_id"), Access::write);
  const Volume lun = need_lun(db, pool.volumes.uuid, fields.text("lun_id"));
  const bool force = fields.flag("force");
  // A guest that uses the disk would be corrupted.
  if (!force && export_of(db, lun)) throw Request_Error(409, described(lun) + " is exported");
  const Snapshot newest = roll_back_volume(db, lun);
  return json_response(Object{{"lun_id", lun.name}, {"snapshot_id", newest.id}});
}

/// The query of a DELETE. The LUN is absent when it was deleted before.
struct Removal {
  std::string lun_id;
  std::optional<Volume> lun;
  bool force = false;
};

Removal read_removal(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const SCSI_Pool pool = need_scsi_pool(db, query.needed_text("pool_id"), Access::write);
  Removal out;
  out.lun_id = lower_case(query.needed_text("lun_id"));
  out.force = query.flag_or("force", false);
  if (!was_volume_deleted(db, pool.volumes.uuid, lun_kind, out.lun_id)) {
    out.lun = need_lun(db, pool.volumes.uuid, out.lun_id);
  }
  return out;
}

Response delete_lun(Connection& db, Parsed_Request& request) {
  const Removal what = read_removal(db, request);
  if (what.lun) delete_volume(db, *what.lun, what.force);
  return json_response(Object{{"lun_id", what.lun_id}});
}

// ---- /zq/r/scsipool/lun/export

Response create_export(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const SCSI_Pool pool = need_scsi_pool(db, fields.text("pool_id"), Access::write);
  const Volume lun = need_lun(db, pool.volumes.uuid, fields.text("lun_id"));
  const Target target = read_target(fields, pool);
  const Access_List access = read_needed_access(fields);
  const Export made = export_lun(db, lun, target, access);
  return json_response(Object{{"lun_num", made.lun_num}});
}

Response add_access(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const SCSI_Pool pool = need_scsi_pool(db, fields.text("pool_id"), Access::write);
  const Volume lun = need_lun(db, pool.volumes.uuid, fields.text("lun_id"));
  fields.one_of("action", {"add"});
  const Access_List access = read_needed_access(fields);
  const std::optional<Export> there = export_of(db, lun);
  if (!there) throw Request_Error(409, described(lun) + " is not exported");
  allow(db, *there, access);
  Object out;
  describe_export(db, *there, out);
  return json_response(std::move(out));
}

Response delete_export(Connection& db, Parsed_Request& request) {
  const Removal what = read_removal(db, request);
  const std::optional<Export> there = what.lun ? export_of(db, *what.lun) : std::nullopt;
  if (there) {
    if (!what.force && hosts_of(db, *there) > 1) {
      throw Request_Error(409, described(*what.lun) + " is exported to several hosts");
    }
    withdraw(db, *there);
  }
  return json_response(Object{{"lun_id", what.lun_id}});
}

// ---- the scenario section

std::string read_id(Request_Fields& fields, const std::string& key) {
  return lower_case(fields.uuid(key));
}

/// An export or share of a scenario: target, access list and number, all optional.
struct Wanted_Export {
  Target target;
  Access_List access;
  std::optional<std::int64_t> lun_num;
};

Wanted_Export read_wanted_export(Request_Fields& fields, const SCSI_Pool& pool) {
  return {read_target(fields, pool), read_access(fields), fields.optional_count("lun_num")};
}

void load_shares(Connection& db, const SCSI_Pool& pool, Request_Fields& fields,
                 const Snapshot& snapshot) {
  for (Request_Fields& share : fields.optional_objects("shares")) {
    const Wanted_Export wanted = read_wanted_export(share, pool);
    share_snapshot(db, pool.volumes.uuid, snapshot, wanted.target, wanted.access, wanted.lun_num);
  }
}

void load_lun(Connection& db, Request_Fields& fields) {
  Volume wanted;
  wanted.name = read_id(fields, "lun_id");
  const SCSI_Pool pool = need_scsi_pool(db, fields.uuid("pool_uuid"), Access::read);
  wanted.pool = pool.volumes.uuid;
  if (const auto before = find_volume(db, wanted.pool, lun_kind, wanted.name)) {
    delete_volume(db, *before, true);
  }
  wanted.created = read_created(fields);
  const LUN_Traits traits = read_traits(fields);
  wanted.size = read_size(fields, "lun_size", traits);
  std::optional<Snapshot> origin;
  if (fields.has("origin")) {
    origin = find_snapshot(db, wanted.pool, lun_kind, read_id(fields, "origin"));
    if (!origin) fields.refuse("origin", "no LUN before this one has that snapshot");
    if (volume_by_number(db, origin->volume).size != wanted.size) {
      fields.refuse("lun_size", "differs from the origin's");
    }
  }
  const Volume lun = make_lun(db, wanted, traits, origin);
  load_history(db, lun, fields, [&](Request_Fields& step, const Snapshot& snapshot) {
    load_shares(db, pool, step, snapshot);
  });
  if (Request_Fields* const exported = fields.optional_object("export")) {
    const Wanted_Export how = read_wanted_export(*exported, pool);
    export_lun(db, lun, how.target, how.access, how.lun_num);
  }
}

std::string identity_of_lun(const Object& entry) {
  return lower_case(json_spirit::object_get_str_or_throw(entry, "lun_id"));
}

Array dump_luns(Connection& db) {
  Array out;
  // A clone comes after its origin.
  for (Statement row(db, "SELECT number FROM volume WHERE kind = 'lun' ORDER BY number");
       row.next();) {
    const Volume lun = volume_by_number(db, row.integer(0));
    const LUN_Traits traits = traits_of(db, lun);
    Object entry{{"lun_id", lun.name},
                 {"pool_uuid", lun.pool},
                 {"lun_size", lun.size.value_or(0)},
                 {"block_size", traits.block_size},
                 {"retention_type", traits.retention},
                 {"created", lun.created}};
    if (lun.origin) entry.emplace("origin", snapshot_by_number(db, *lun.origin).id);
    dump_history(db, lun, entry, [&db](Object& step, const Snapshot& snapshot) {
      Array shares;
      for (const Export& share : shares_of(db, snapshot)) {
        Object described_share;
        describe_export(db, share, described_share);
        shares.emplace_back(std::move(described_share));
      }
      if (!shares.empty()) step.emplace("shares", std::move(shares));
    });
    if (const auto exported = export_of(db, lun)) {
      Object how;
      describe_export(db, *exported, how);
      entry.emplace("export", std::move(how));
    }
    out.emplace_back(std::move(entry));
  }
  return out;
}

void clear_luns(Connection& db) {
  db.execute("DELETE FROM volume WHERE kind = 'lun'");
}

}  // namespace

LUN_Traits traits_of(Connection& db, const Volume& lun) {
  Statement row(db, "SELECT block_size, retention FROM scsi_lun WHERE volume = ?", lun.number);
  if (!row.next()) return {};
  return {row.integer(0), row.text(1)};
}

Volume need_lun(Connection& db, const std::string& pool, const std::string& lun_id) {
  return need_volume(db, pool, lun_kind, lower_case(lun_id));
}

void need_blocks(Connection& db, const Volume& lun, std::int64_t offset, std::int64_t length) {
  const std::int64_t block = traits_of(db, lun).block_size;
  if (offset % block != 0 || length % block != 0) {
    throw Request_Error(
        422, described(lun) + " is written in blocks of " + std::to_string(block) + " bytes");
  }
  need_range(lun, offset, length);
}

void add_lun_paths(Router& router) {
  const std::string lun = "/zq/r/scsipool/lun";
  router.add(Method::post, lun, Access::write, create_lun);
  router.add(Method::get, lun, Access::read, get_luns);
  router.add(Method::put, lun, Access::write, roll_back_lun);
  router.add(Method::del, lun, Access::write, delete_lun);
  router.add(Method::post, lun + "/export", Access::write, create_export);
  router.add(Method::put, lun + "/export", Access::write, add_access);
  router.add(Method::del, lun + "/export", Access::write, delete_export);
}

Scenario_Section lun_section() {
  return {"luns", clear_luns, load_lun, identity_of_lun, dump_luns};
}

}  // namespace zqpool::service
