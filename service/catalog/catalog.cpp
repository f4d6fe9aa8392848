#include "service/catalog/catalog.h"

#include <limits>
#include <optional>
#include <string>

#include "service/api/paths.h"
#include "service/api/request_fields.h"
#include "service/catalog/metadata.h"
#include "service/catalog/records.h"
#include "service/catalog/scenario.h"

namespace zqpool::service {

namespace {

constexpr std::int64_t max_sum = std::numeric_limits<std::int64_t>::max();

Response rows_answer(Array rows) {
  return json_response(Object{{"rows", std::move(rows)}});
}

/// The query fields "limit" and "offset"; without them, the whole list.
class Page {
 public:
  explicit Page(Query_Fields& query)
      : limit_(query.count("limit")), offset_(query.count("offset")) {}
  std::int64_t limit() const { return limit_.value_or(-1); }
  std::int64_t offset() const { return offset_.value_or(0); }

  /// A response with a part of the list also has the total.
  template <typename Count>
  Response answer(Array rows, Count total) const {
    if (!limit_ && !offset_) return rows_answer(std::move(rows));
    return json_response(Object{{"rows", std::move(rows)}, {"total", total()}});
  }

 private:
  std::optional<std::int64_t> limit_;
  std::optional<std::int64_t> offset_;
};

/// A sum that the database computes in two halves, so that it cannot overflow there.
std::int64_t joined(std::int64_t high, std::int64_t low) {
  high += low >> 20;
  return high > (max_sum >> 20) ? max_sum : (high << 20) | (low & 0xfffff);
}

// Statements that share their columns.

// ---- pools

const std::string pools_select = "SELECT " + pool_columns + R"sql(, count(d.uuid) AS devices,
    coalesce(sum(CASE d.role WHEN 'master' THEN d.size >> 20 END), 0) AS size_high,
    coalesce(sum(CASE d.role WHEN 'master' THEN d.size & 1048575 END), 0) AS size_low,
    coalesce(sum(CASE d.role WHEN 'master' THEN d.used >> 20 END), 0) AS used_high,
    coalesce(sum(CASE d.role WHEN 'master' THEN d.used & 1048575 END), 0) AS used_low
  FROM catalog_pool p LEFT JOIN catalog_device d ON d.pool_uuid = p.uuid)sql";

Array pool_rows(Statement&& pools) {
  Array rows;
  while (pools.next()) {
    // A slave holds a copy of its master's data: it adds no room.
    const std::int64_t size = joined(pools.integer("size_high"), pools.integer("size_low"));
    const std::int64_t used = joined(pools.integer("used_high"), pools.integer("used_low"));
    Object pool = pool_description(pools);
    pool.emplace("device_count", pools.integer("devices"));
    pool.emplace("size", size);
    pool.emplace("used", used);
    pool.emplace("free", size - used);
    rows.emplace_back(std::move(pool));
  }
  return rows;
}

Response get_pools(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const std::optional<std::string> uuid = query.text("uuid");
  if (uuid) {
    return rows_answer(pool_rows({db, pools_select + " WHERE p.uuid = ? GROUP BY p.uuid", *uuid}));
  }
  const Page page(query);
  return page.answer(
      pool_rows({db, pools_select + " GROUP BY p.uuid ORDER BY p.uuid LIMIT ? OFFSET ?",
                 page.limit(), page.offset()}),
      [&db] { return db.integer("SELECT count(*) FROM catalog_pool"); });
}

// ---- devices

Array device_rows(Statement&& devices) {
  Array rows;
  while (devices.next())
    rows.emplace_back(device_record(devices));
  return rows;
}

Response get_devices(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const std::optional<std::string> uuid = query.text("uuid");
  std::optional<std::string> url = query.text("url");
  if (uuid && url) throw Request_Error(400, "give one of the query fields 'uuid' and 'url'");
  if (uuid) {
    return rows_answer(device_rows({db, devices_select + "WHERE d.uuid = ?", *uuid}));
  }
  if (url) {
    return rows_answer(
        device_rows({db, devices_select + "WHERE d.url = ? ORDER BY d.uuid", tidy_url(*url)}));
  }
  const std::optional<std::string> pool = query.text("pool_uuid");
  const Page page(query);
  if (pool) {
    return page.answer(
        device_rows({db, devices_select + "WHERE d.pool_uuid = ? ORDER BY d.uuid LIMIT ? OFFSET ?",
                     *pool, page.limit(), page.offset()}),
        [&] {
          return db.integer("SELECT count(*) FROM catalog_device WHERE pool_uuid = ?", *pool);
        });
  }
  return page.answer(device_rows({db, devices_select + "ORDER BY d.uuid LIMIT ? OFFSET ?",
                                  page.limit(), page.offset()}),
                     [&db] { return db.integer("SELECT count(*) FROM catalog_device"); });
}

const std::string devices_with_pool =
    "SELECT " + device_columns +
    ", p.name AS pool_name, p.type AS pool_type, p.state AS pool_state "
    "FROM catalog_device d JOIN catalog_pool p ON p.uuid = d.pool_uuid ";

/// The response for a row of devices_with_pool.
Object device_info(const Statement& row, std::string path) {
  Object out = device_record(row);
  for (const char* column : {"pool_name", "pool_type", "pool_state"})
    out.emplace(column, row.text(column));
  out.emplace("path", std::move(path));
  return out;
}

/// The device that holds a URL: the one with the longest URL that is a prefix of it, by whole
/// segments.
Response find_device_info(Connection& db, Parsed_Request& request) {
  Request_Fields& fields = request.body;
  const std::optional<std::string> pool = fields.optional_text("pool_uuid");
  const std::string url = read_any_url(fields, "url");

  for (std::string above = url; !above.empty(); above = url_above(above)) {
    Statement row(db, devices_with_pool + "WHERE d.url = ?1 AND (?2 IS NULL OR d.pool_uuid = ?2)",
                  above, pool);
    if (!row.next()) continue;
    const std::size_t rest = above.back() == '/' ? above.size() - 1 : above.size();
    Object out = device_info(row, above == url ? "" : url.substr(rest));
    if (row.next()) {
      throw Request_Error(409, "'" + above + "' is a device of several pools: give 'pool_uuid'");
    }
    return json_response(std::move(out));
  }
  return json_response(Object());
}

/// The device of a pool for new data: the one with the most free space among those that take data
/// from any host.
Response offer_device(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const std::string pool = query.needed_text("pool_uuid");
  need_pool(db, pool);
  Statement row(db,
                devices_with_pool +
                    "WHERE d.pool_uuid = ? AND p.state IN ('online', 'degraded')"
                    " AND d.role = 'master' AND d.state = 'online' AND d.used < d.size"
                    " AND d.bound_host_id IS NULL "
                    "ORDER BY d.size - d.used DESC, d.uuid LIMIT 1",
                pool);
  return json_response(row.next() ? device_info(row, "") : Object());
}

bool is_lanfree(const std::string& url) {
  return url.rfind("lanfree://", 0) == 0 || url.rfind("lanfrees://", 0) == 0;
}

/// A device must be released before another host can bind it: two hosts writing to one LUN would
/// destroy its data.
Response bind_host(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const std::string uuid = query.needed_text("uuid");
  Request_Fields& fields = request.body;
  const std::string host_id = fields.needed_text("host_id");
  const std::string sysname = fields.needed_text("sysname");
  if (host_id.empty() != sysname.empty()) {
    throw Request_Error(422,
                        "give both host_id and sysname, or leave both empty to release the device");
  }

  const std::string by_uuid = devices_select + "WHERE d.uuid = ?";
  {
    Statement row(db, by_uuid, uuid);
    if (!row.next()) throw Request_Error(404, "there is no device '" + uuid + "'");
    const Object device = device_description(row);
    if (!is_lanfree(device.at("url").get_str())) {
      throw Request_Error(409, "device '" + uuid + "' is not LAN-free");
    }
    const Object* bound = json_spirit::object_get_object(device, "bound_host");
    if (bound && !host_id.empty() && bound->at("host_id").get_str() != host_id) {
      throw Request_Error(
          409, "device '" + uuid + "' is bound to host '" + bound->at("host_id").get_str() + "'");
    }
  }
  db.execute(
      "UPDATE catalog_device SET bound_host_id = nullif(?2, ''), bound_sysname = nullif(?3, '') "
      "WHERE uuid = ?1",
      uuid, host_id, sysname);
  Statement row(db, by_uuid, uuid);
  row.next();
  return json_response(device_record(row));
}

}  // namespace

void add_catalog(Router& router, Scenario& scenario) {
  const std::string root = "/zq/r/storage/catalog/";
  router.add(Method::get, root + "pool", Access::read, get_pools);
  router.add(Method::get, root + "device", Access::read, get_devices);
  router.add(Method::put, root + "device", Access::write, bind_host);
  router.add(Method::post, root + "device/info", Access::read, find_device_info);
  router.add(Method::get, root + "device/info", Access::read, offer_device);
  add_metadata_path(router);
  add_catalog_sections(scenario);
}

}  // namespace zqpool::service
