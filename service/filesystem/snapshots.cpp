#include <set>

#include "service/api/request_fields.h"
#include "service/api/text.h"
#include "service/filesystem/filesystems.h"
#include "service/volumes/extent_map.h"

namespace zqpool::service {

namespace {

constexpr Volume_Kind kind = Volume_Kind::filesystem;

Object snapshot_record(const Volume& filesystem, const Snapshot& snapshot,
                       const Chain_Sizes& sizes) {
  const Sizes& own = sizes.snapshots.at(snapshot.seq);
  return {{"snapshot_id", snapshot.id},     {"pool_id", filesystem.pool},
          {"parent_id", filesystem.name},   {"seq", snapshot.seq},
          {"recycle", snapshot.recyclable}, {"created", snapshot.created},
          {"rfer_size", own.referenced},    {"excl_size", own.exclusive}};
}

/// The member "names", each at most once.
std::vector<std::string> read_names(Request_Fields& fields) {
  const Array* names = fields.optional_array("names");
  if (!names) fields.refuse("names", "is missing", 400);
  if (names->empty()) fields.refuse("names", "must not be empty");
  std::vector<std::string> out;
  std::set<std::string> given;
  for (std::size_t i = 0; i < names->size(); ++i) {
    const std::string place = "names[" + std::to_string(i) + ']';
    if ((*names)[i].type() != json_spirit::str_type) fields.refuse(place, "must be a string", 400);
    out.push_back((*names)[i].get_str());
    if (!given.insert(out.back()).second) fields.refuse(place, "is given twice");
  }
  return out;
}

/// Creates all snapshots at the same moment, or none.
Response create_snapshots(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const Volume_Pool pool = need_volume_pool(db, fields.text("pool_id"), Access::write);
  const std::vector<std::string> names = read_names(fields);
  Snapshot wanted;
  wanted.recyclable = fields.flag("recycle");
  wanted.created = utc_now();
  Array out;
  for (const std::string& name : names) {
    const Volume filesystem = need_volume(db, pool.uuid, kind, name);
    wanted.id = random_uuid();
    create_snapshot(db, filesystem, wanted);
    out.emplace_back(Object{{"name", name}, {"snapshot_id", wanted.id}});
  }
  return json_response(std::move(out), 201);
}

Response get_snapshots(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const Volume_Pool pool = need_volume_pool(db, query.needed_text("pool_id"), Access::read);
  const std::optional<std::string> id = query.text("snapshot_id");
  const std::optional<std::string> name = query.text("name");
  if (id && name) throw Request_Error(400, "give one of the query fields 'snapshot_id' and 'name'");

  Array out;
  const auto add_all_of = [&](const Volume& filesystem) {
    const Chain_Sizes sizes = Extent_Map(db, filesystem.number).sizes();
    for (const Snapshot& snapshot : snapshots_of(db, filesystem))
      out.emplace_back(snapshot_record(filesystem, snapshot, sizes));
  };
  if (id) {
    const Snapshot snapshot = need_snapshot(db, pool.uuid, kind, lower_case(*id));
    const Volume filesystem = volume_by_number(db, snapshot.volume);
    out.emplace_back(
        snapshot_record(filesystem, snapshot, Extent_Map(db, filesystem.number).sizes()));
  } else if (name) {
    add_all_of(need_volume(db, pool.uuid, kind, *name));
  } else {
    for (const Volume& filesystem : volumes_of(db, pool.uuid, kind))
      add_all_of(filesystem);
  }
  return json_response(std::move(out));
}

Response delete_snapshot_of_filesystem(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const Volume_Pool pool = need_volume_pool(db, query.needed_text("pool_id"), Access::write);
  const std::string id = lower_case(query.needed_text("snapshot_id"));
  const bool delete_empty = query.flag_or("delete_empty_fs", false);
  if (!was_snapshot_deleted(db, pool.uuid, kind, id)) {
    delete_snapshot(db, need_snapshot(db, pool.uuid, kind, id), delete_empty);
  }
  return json_response(Object{{"snapshot_id", id}});
}

}  // namespace

void add_filesystem_snapshot_path(Router& router) {
  const std::string path = "/zq/r/scsipool/fs/snapshot";
  router.add(Method::post, path, Access::write, create_snapshots);
  router.add(Method::get, path, Access::read, get_snapshots);
  router.add(Method::del, path, Access::write, delete_snapshot_of_filesystem);
}

}  // namespace zqpool::service
