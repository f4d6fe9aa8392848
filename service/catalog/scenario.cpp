#include "service/catalog/scenario.h"

#include <optional>
#include <string>

#include "service/api/paths.h"
#include "service/api/text.h"
#include "service/catalog/metadata.h"
#include "service/catalog/records.h"
#include "service/catalog/resolution.h"

namespace zqpool::service {

namespace {

// ---- pools

void clear_pools(Connection& db) {
  db.execute("DELETE FROM catalog_pool");
}

void load_pool(Connection& db, Request_Fields& fields) {
  const std::string uuid = fields.uuid("uuid");
  const std::string name = fields.text("name");
  Statement other(db, "SELECT 1 FROM catalog_pool WHERE name = ? AND uuid <> ?", name, uuid);
  if (other.next()) fields.refuse("name", "another pool is called '" + name + "'");
  db.execute(
      R"sql(INSERT INTO catalog_pool (uuid, name, type, state, description, created, attributes)
            VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)
            ON CONFLICT (uuid) DO UPDATE SET uuid = ?1, name = ?2, type = ?3, state = ?4,
              description = ?5, created = ?6, attributes = ?7)sql",
      uuid, name,
      fields.one_of("type",
                    {"file", "dedup", "object", "hbr", "lanfree", "scsi", "image", "plain"}),
      fields.one_of_or("state", {"online", "degraded", "readonly", "offline"}, "online"),
      fields.text_or("description", ""), read_created(fields),
      json_spirit::write(read_pool_attributes(fields)));
}

Array dump_pools(Connection& db) {
  Array out;
  for (Statement row(db, "SELECT " + pool_columns + " FROM catalog_pool p ORDER BY p.uuid");
       row.next();) {
    Object entry = pool_description(row);
    entry.merge(attributes_of(row));
    out.emplace_back(std::move(entry));
  }
  return out;
}

// ---- devices

void clear_devices(Connection& db) {
  db.execute("DELETE FROM catalog_device");
}

void load_device(Connection& db, Request_Fields& fields) {
  const std::string uuid = fields.uuid("uuid");
  const std::string pool = fields.uuid("pool_uuid");
  if (!db.has_row("SELECT 1 FROM catalog_pool WHERE uuid = ?", pool)) {
    fields.refuse("pool_uuid", "there is no pool '" + pool + "'");
  }
  if (db.has_row("SELECT 1 FROM catalog_device WHERE uuid = ? AND pool_uuid <> ?", uuid, pool)) {
    fields.refuse("pool_uuid", "the device belongs to another pool");
  }
  const std::string url = read_url(fields, "url");
  if (db.has_row("SELECT 1 FROM catalog_device WHERE pool_uuid = ? AND url = ? AND uuid <> ?", pool,
                 url, uuid)) {
    fields.refuse("url", "another device of the pool has it");
  }
  const std::int64_t size = fields.count("size");
  const std::int64_t used = fields.count_or("used", 0);
  if (used > size) fields.refuse("used", "is more than size");

  std::optional<std::string> host_id;
  std::optional<std::string> sysname;
  if (Request_Fields* const host = fields.optional_object("bound_host")) {
    host_id = host->text("host_id");
    sysname = host->text("sysname");
  }
  db.execute(
      R"sql(INSERT INTO catalog_device (uuid, pool_uuid, name, type, role, state, url, path_prefix,
              size, used, bound_host_id, bound_sysname, created, attributes)
            VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14)
            ON CONFLICT (uuid) DO UPDATE SET uuid = ?1, name = ?3, type = ?4, role = ?5, state = ?6,
              url = ?7, path_prefix = ?8, size = ?9, used = ?10, bound_host_id = ?11,
              bound_sysname = ?12, created = ?13, attributes = ?14)sql",
      uuid, pool, fields.text("name"), fields.one_of("type", {"disk", "flash", "tape", "object"}),
      fields.one_of_or("role", {"master", "slave"}, "master"),
      fields.one_of_or("state", {"online", "readonly", "full", "offline"}, "online"), url,
      fields.has("path_prefix") ? read_path(fields, "path_prefix") : "/", size, used, host_id,
      sysname, read_created(fields), json_spirit::write(read_storage_attributes(fields, url)));
}

Array dump_devices(Connection& db) {
  Array out;
  for (Statement row(db, devices_select + "ORDER BY d.uuid"); row.next();) {
    Object entry = device_description(row);
    entry.merge(attributes_of(row));
    out.emplace_back(std::move(entry));
  }
  return out;
}

// ---- metadata

void clear_metadata(Connection& db) {
  db.execute("DELETE FROM catalog_metadata");
}

void load_metadata(Connection& db, Request_Fields& fields) {
  const Metadata entry{
      fields.uuid("pool_uuid"),       fields.uuid("device_uuid"),
      read_path(fields, "path"),      fields.has("type") ? fields.text("type") : "file",
      fields.text_or("grouping", ""), fields.optional_count("size")};
  switch (record(db, entry)) {
    case Recorded::done:
      return;
    case Recorded::no_device:
      fields.refuse("device_uuid", "the pool has no device '" + entry.device_uuid + "'");
    case Recorded::other_type:
      fields.refuse("type", "the path is recorded with another type");
  }
}

std::string identity_of_metadata(const Object& entry) {
  const std::string* grouping = json_spirit::object_get_str(entry, "grouping");
  // No member contains a zero character.
  return lower_case(json_spirit::object_get_str_or_throw(entry, "pool_uuid")) + '\0' +
         tidy_path(json_spirit::object_get_str_or_throw(entry, "path")) + '\0' +
         (grouping ? *grouping : "") + '\0' +
         lower_case(json_spirit::object_get_str_or_throw(entry, "device_uuid"));
}

Array dump_metadata(Connection& db) {
  Array out;
  for (Statement row(db,
                     "SELECT pool_uuid, device_uuid, path, type, grouping_name, size "
                     "FROM catalog_metadata ORDER BY pool_uuid, path, grouping_name, "
                     "device_uuid");
       row.next();) {
    out.emplace_back(metadata_record(row));
  }
  return out;
}

}  // namespace

void add_catalog_sections(Scenario& scenario) {
  scenario.add({"pools", clear_pools, load_pool, identity_by_uuid, dump_pools});
  scenario.add({"devices", clear_devices, load_device, identity_by_uuid, dump_devices});
  scenario.add({"metadata", clear_metadata, load_metadata, identity_of_metadata, dump_metadata});
}

}  // namespace zqpool::service
