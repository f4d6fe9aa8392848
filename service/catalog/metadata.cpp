#include "service/catalog/metadata.h"

#include <algorithm>
#include <array>

#include "service/api/paths.h"
#include "service/api/request_fields.h"
#include "service/catalog/records.h"

namespace zqpool::service {

namespace {

constexpr std::size_t max_type_size = 64;

/// The devices that hold a path: those recorded for it, or else for its nearest recorded parent
/// directory. With a grouping, only entries of that grouping count.
Response find_located_devices(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const std::string pool = fields.text("pool_uuid");
  const std::string path = read_path(fields, "path");
  const std::optional<std::string> grouping = fields.optional_text("grouping");

  for (std::string above = path; !above.empty(); above = parent_of(above)) {
    Statement row(
        db,
        "SELECT " + device_columns +
            ", m.type AS path_type, m.grouping_name AS grouping_name, m.size AS recorded_size "
            "FROM catalog_metadata m "
            "JOIN catalog_device d ON d.uuid = m.device_uuid "
            "WHERE m.pool_uuid = ?1 AND m.path = ?2 AND (?3 IS NULL OR m.grouping_name = ?3)"
            " AND (m.type = 'dir' OR ?4) ORDER BY d.role, d.uuid, m.grouping_name",
        pool, above, grouping, above == path);
    std::string type;
    Array devices;
    while (row.next()) {
      type = row.text("path_type");
      Object device = device_record(row);
      Object recorded{{"path", above}, {"type", type}};
      if (const std::string name = row.text("grouping_name"); !name.empty()) {
        recorded.emplace("grouping", name);
      }
      if (!row.is_null("recorded_size")) recorded.emplace("size", row.integer("recorded_size"));
      device.emplace("metadata", std::move(recorded));
      devices.emplace_back(std::move(device));
    }
    if (!devices.empty()) {
      return json_response(Object{{"type", type}, {"devices", std::move(devices)}});
    }
  }
  return json_response(Object());
}

/// The path's type. It is the name of the member that holds the path: {"file": "/a"}.
std::string type_of(const Object& body) {
  constexpr std::array<const char*, 4> others{"pool_uuid", "device_uuid", "grouping", "size"};
  const std::string* type = nullptr;
  for (const auto& [key, value] : body) {
    if (std::find(others.begin(), others.end(), key) != others.end()) continue;
    if (type) throw Request_Error(400, "two paths are given: '" + *type + "' and '" + key + "'");
    type = &key;
  }
  if (!type)
    throw Request_Error(400, "the path is missing: give it in a member named like its type");
  if (type->empty() || type->size() > max_type_size || type->find('\0') != std::string::npos) {
    throw Request_Error(422, "a path's type must have 1 to 64 bytes, none of them zero");
  }
  return *type;
}

Response add_metadata(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const std::string type = type_of(fields.whole());
  const Metadata entry{fields.text("pool_uuid"),       fields.text("device_uuid"),
                       read_path(fields, type),        type,
                       fields.text_or("grouping", ""), fields.optional_count("size")};
  need_pool(db, entry.pool_uuid);
  switch (record(db, entry)) {
    case Recorded::done:
      break;
    case Recorded::no_device:
      throw Request_Error(404, "the pool has no device '" + entry.device_uuid + "'");
    case Recorded::other_type:
      throw Request_Error(409, "'" + entry.path + "' is recorded with another type");
  }
  Statement row(db,
                "SELECT pool_uuid, device_uuid, path, type, grouping_name, size "
                "FROM catalog_metadata "
                "WHERE pool_uuid = ? AND path = ? AND grouping_name = ? AND device_uuid = ?",
                entry.pool_uuid, entry.path, entry.grouping, entry.device_uuid);
  row.next();
  return json_response(metadata_record(row));
}

Response remove_metadata(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const std::string pool = query.needed_text("pool_uuid");
  const std::string path = tidy_path(query.needed_text("path"));
  const std::optional<std::string> grouping = query.text("grouping");
  need_pool(db, pool);
  const int removed = db.execute(
      "DELETE FROM catalog_metadata "
      "WHERE pool_uuid = ?1 AND path = ?2 AND (?3 IS NULL OR grouping_name = ?3)",
      pool, path, grouping);
  return json_response(Object{{"removed", removed}});
}

}  // namespace

Recorded record(Connection& db, const Metadata& entry) {
  if (!db.has_row("SELECT 1 FROM catalog_device WHERE uuid = ? AND pool_uuid = ?",
                  entry.device_uuid, entry.pool_uuid)) {
    return Recorded::no_device;
  }
  if (db.has_row("SELECT 1 FROM catalog_metadata WHERE pool_uuid = ? AND path = ? AND type <> ?",
                 entry.pool_uuid, entry.path, entry.type)) {
    return Recorded::other_type;
  }
  db.execute(
      R"sql(INSERT INTO catalog_metadata (pool_uuid, path, grouping_name, device_uuid, type, size)
            VALUES (?1, ?2, ?3, ?4, ?5, ?6)
            ON CONFLICT (pool_uuid, path, grouping_name, device_uuid) DO UPDATE SET size = ?6)sql",
      entry.pool_uuid, entry.path, entry.grouping, entry.device_uuid, entry.type, entry.size);
  return Recorded::done;
}

Object metadata_record(const Statement& row) {
  Object out{{"pool_uuid", row.text(0)},
             {"device_uuid", row.text(1)},
             {"path", row.text(2)},
             {"type", row.text(3)}};
  if (!row.text(4).empty()) out.emplace("grouping", row.text(4));
  if (!row.is_null(5)) out.emplace("size", row.integer(5));
  return out;
}

void add_metadata_path(Router& router) {
  const std::string path = "/zq/r/storage/catalog/device/metadata";
  router.add(Method::put, path, Access::read, find_located_devices);
  router.add(Method::post, path, Access::write, add_metadata);
  router.add(Method::del, path, Access::write, remove_metadata);
}

}  // namespace zqpool::service
