#include "service/catalog/records.h"

#include <stdexcept>

#include "service/api/message.h"

namespace zqpool::service {

Object kept_object(const Store::Query& row, int column) {
  json_spirit::Value value;
  if (!json_spirit::read(row.text(column), value) || value.type() != json_spirit::obj_type) {
    throw std::runtime_error("the state holds a text that is no JSON object");
  }
  return std::move(value.get_obj());
}

Object pool_description(const Store::Query& row) {
  return {{"uuid", row.text(0)},  {"name", row.text(1)},        {"type", row.text(2)},
          {"state", row.text(3)}, {"description", row.text(4)}, {"created", row.text(5)}};
}

void need_pool(Store& store, const std::string& uuid) {
  if (!Store::Query(store, "SELECT 1 FROM catalog_pool WHERE uuid = ?", uuid).next()) {
    throw Refusal(404, "there is no pool '" + uuid + "'");
  }
}

Object device_description(const Store::Query& row) {
  Object out{{"uuid", row.text(0)},    {"pool_uuid", row.text(1)},   {"name", row.text(2)},
             {"type", row.text(3)},    {"role", row.text(4)},        {"state", row.text(5)},
             {"url", row.text(6)},     {"path_prefix", row.text(7)}, {"size", row.integer(8)},
             {"used", row.integer(9)}, {"created", row.text(12)}};
  if (!row.is_null(10)) {
    out.emplace("bound_host", Object{{"host_id", row.text(10)}, {"sysname", row.text(11)}});
  }
  return out;
}

Object device_record(const Store::Query& row) {
  Object out = device_description(row);
  out.emplace("free", row.integer(8) - row.integer(9));
  return out;
}

}  // namespace zqpool::service
