#include "service/catalog/records.h"

#include <initializer_list>
#include <stdexcept>

#include "service/api/message.h"

namespace zqpool::service {

namespace {

Object texts_of(const Statement& row, std::initializer_list<const char*> columns) {
  Object out;
  for (const char* column : columns)
    out.emplace(column, row.text(column));
  return out;
}

}  // namespace

Object pool_description(const Statement& row) {
  return texts_of(row, {"uuid", "name", "type", "state", "description", "created"});
}

Object device_description(const Statement& row) {
  Object out = texts_of(
      row, {"uuid", "pool_uuid", "name", "type", "role", "state", "url", "path_prefix", "created"});
  out.emplace("size", row.integer("size"));
  out.emplace("used", row.integer("used"));
  if (!row.is_null("bound_host_id")) {
    out.emplace("bound_host", Object{{"host_id", row.text("bound_host_id")},
                                     {"sysname", row.text("bound_sysname")}});
  }
  return out;
}

Object attributes_of(const Statement& row) {
  json_spirit::Value value;
  if (!json_spirit::read(row.text("attributes"), value) || value.type() != json_spirit::obj_type) {
    throw std::runtime_error("the state holds attributes that are not a JSON object");
  }
  return std::move(value.get_obj());
}

Object device_record(const Statement& row) {
  Object out = device_description(row);
  out.emplace("free", row.integer("size") - row.integer("used"));
  return out;
}

void need_pool(Connection& db, const std::string& uuid) {
  if (!db.has_row("SELECT 1 FROM catalog_pool WHERE uuid = ?", uuid)) {
    throw Request_Error(404, "there is no pool '" + uuid + "'");
  }
}

}  // namespace zqpool::service
