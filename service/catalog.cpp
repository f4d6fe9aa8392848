#include "service/catalog.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "service/text.h"

namespace zqpool::service {

namespace {

constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t longest_path = 4096;

Answer rows_answer(Array rows) {
  return json_answer(Object{{"rows", std::move(rows)}});
}

/// The part of a list that was asked for; all of it when nothing was said.
class Page {
 public:
  explicit Page(Query_Fields& query)
      : limit_(query.count("limit")), offset_(query.count("offset")) {}
  std::int64_t limit() const { return limit_.value_or(-1); }
  std::int64_t offset() const { return offset_.value_or(0); }

  /// A part of a list also says how long the whole is.
  template <typename Count>
  Answer answer(Array rows, Count total) const {
    if (!limit_ && !offset_) return rows_answer(std::move(rows));
    return json_answer(Object{{"rows", std::move(rows)}, {"total", total()}});
  }

 private:
  std::optional<std::int64_t> limit_;
  std::optional<std::int64_t> offset_;
};

/// Repeated slashes count as one, a slash at the end not at all.
std::string tidy_path(const std::string& path) {
  std::string out;
  for (const char c : path) {
    if (c != '/' || out.empty() || out.back() != '/') out += c;
  }
  if (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

/// The path member of a body or scenario entry, tidy.
std::string read_path(Fields& fields, const std::string& key) {
  std::string path = tidy_path(fields.text(key));
  if (path.size() > longest_path) fields.refuse(key, "is longer than 4096 bytes");
  const std::string closed = path + '/';
  if (closed.find("/../") != std::string::npos || closed.rfind("../", 0) == 0) {
    fields.refuse(key, "must not hold '..'");
  }
  return path;
}

/// The directory above, "" when there is none.
std::string parent_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || path == "/") return "";
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// Where the path of a URL begins: behind its host.
std::size_t url_path_start(const std::string& url) {
  const std::size_t scheme = url.find("://");
  if (scheme == std::string::npos) return std::string::npos;
  return std::min(url.find('/', scheme + 3), url.size());
}

/// Without slashes at its end; "file:///", which has no host, keeps its one.
std::string tidy_url(std::string url) {
  const std::size_t start = url_path_start(url);
  if (start == std::string::npos) return url;
  const std::size_t least = start > 0 && url[start - 1] == '/' ? start + 1 : start;
  while (url.size() > least && url.back() == '/')
    url.pop_back();
  return url;
}

/// The URL one segment above a tidy one, "" when there is none.
std::string url_above(const std::string& url) {
  const std::size_t slash = url.rfind('/');
  if (slash == std::string::npos || slash < url_path_start(url)) return "";
  std::string above = tidy_url(url.substr(0, slash + 1));
  return above == url ? "" : above;
}

std::string read_url(Fields& fields, const std::string& key) {
  std::string url = tidy_url(fields.text(key));
  const std::size_t scheme = url.find("://");
  if (scheme == std::string::npos || scheme == 0) fields.refuse(key, "is no URL");
  if (url.substr(0, url_path_start(url)).find('@', scheme) != std::string::npos) {
    fields.refuse(key, "must not carry a user or password");
  }
  return url;
}

std::string read_created(Fields& fields) {
  std::string created = fields.text_or("created", utc_now());
  const std::string_view shape = "dddd-dd-ddTdd:dd:dd";
  bool good = created.size() > shape.size() && created.back() == 'Z';
  for (std::size_t i = 0; good && i < shape.size(); ++i) {
    good = shape[i] == 'd' ? created[i] >= '0' && created[i] <= '9' : created[i] == shape[i];
  }
  if (!good) fields.refuse("created", "must look like 2026-11-21T09:30:00Z");
  return created;
}

/// A sum that came from the data base in two halves, so that it cannot overflow there.
std::int64_t joined(std::int64_t high, std::int64_t low) {
  high += low >> 20;
  return high > (most >> 20) ? most : (high << 20) | (low & 0xfffff);
}

// Texts of statements that share their columns. They live as long as the process, as the store's
// cache of statements asks.

// ---- pools

const std::string pools_select = R"sql(
  SELECT p.uuid, p.name, p.type, p.state, p.description, p.created, count(d.uuid),
    coalesce(sum(CASE d.role WHEN 'master' THEN d.size >> 20 END), 0),
    coalesce(sum(CASE d.role WHEN 'master' THEN d.size & 1048575 END), 0),
    coalesce(sum(CASE d.role WHEN 'master' THEN d.used >> 20 END), 0),
    coalesce(sum(CASE d.role WHEN 'master' THEN d.used & 1048575 END), 0)
  FROM catalog_pool p LEFT JOIN catalog_device d ON d.pool_uuid = p.uuid)sql";
const std::string pool_by_uuid = pools_select + " WHERE p.uuid = ? GROUP BY p.uuid";
const std::string pools_all = pools_select + " GROUP BY p.uuid ORDER BY p.uuid LIMIT ? OFFSET ?";

Object pool_description(const Store::Query& row) {
  return {{"uuid", row.text(0)},  {"name", row.text(1)},        {"type", row.text(2)},
          {"state", row.text(3)}, {"description", row.text(4)}, {"created", row.text(5)}};
}

Object pool_record(const Store::Query& row) {
  // A slave holds a copy of its master's data: it adds no room.
  const std::int64_t size = joined(row.integer(7), row.integer(8));
  const std::int64_t used = joined(row.integer(9), row.integer(10));
  Object out = pool_description(row);
  out.emplace("device_count", row.integer(6));
  out.emplace("size", size);
  out.emplace("used", used);
  out.emplace("free", size - used);
  return out;
}

Answer get_pools(Store& store, const Request& request) {
  Query_Fields query(request);
  const std::optional<std::string> uuid = query.text("uuid");
  if (uuid) {
    query.finish();
    Array rows;
    for (Store::Query row(store, pool_by_uuid.c_str(), *uuid); row.next();) {
      rows.emplace_back(pool_record(row));
    }
    return rows_answer(std::move(rows));
  }
  const Page page(query);
  query.finish();
  Array rows;
  for (Store::Query row(store, pools_all.c_str(), page.limit(), page.offset()); row.next();) {
    rows.emplace_back(pool_record(row));
  }
  return page.answer(std::move(rows), [&store] {
    Store::Query count(store, "SELECT count(*) FROM catalog_pool");
    count.next();
    return count.integer(0);
  });
}

void clear_pools(Store& store) {
  store.execute("DELETE FROM catalog_pool");
}

void load_pool(Store& store, Fields& fields) {
  const std::string uuid = fields.uuid("uuid");
  const std::string name = fields.text("name");
  Store::Query other(store, "SELECT 1 FROM catalog_pool WHERE name = ? AND uuid <> ?", name, uuid);
  if (other.next()) fields.refuse("name", "another pool is called '" + name + "'");
  store.execute(
      R"sql(INSERT INTO catalog_pool (uuid, name, type, state, description, created)
            VALUES (?1, ?2, ?3, ?4, ?5, ?6)
            ON CONFLICT (uuid) DO UPDATE SET uuid = ?1, name = ?2, type = ?3, state = ?4,
              description = ?5, created = ?6)sql",
      uuid, name,
      fields.one_of("type", {"file", "dedup", "object", "hbr", "lanfree", "scsi", "image"}),
      fields.one_of_or("state", {"online", "degraded", "readonly", "offline"}, "online"),
      fields.text_or("description", ""), read_created(fields));
}

std::string identity_by_uuid(const Object& entry) {
  return lower_case(json_spirit::object_get_str_or_throw(entry, "uuid"));
}

Array dump_pools(Store& store) {
  Array out;
  for (Store::Query row(store, "SELECT * FROM catalog_pool ORDER BY uuid"); row.next();) {
    out.emplace_back(pool_description(row));
  }
  return out;
}

// ---- devices

/// One row of catalog_device, whose columns begin the row, as it is kept.
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

Array device_rows(Store::Query&& devices) {
  Array rows;
  while (devices.next())
    rows.emplace_back(device_record(devices));
  return rows;
}

Answer get_devices(Store& store, const Request& request) {
  Query_Fields query(request);
  const std::optional<std::string> uuid = query.text("uuid");
  std::optional<std::string> url = query.text("url");
  if (uuid && url) throw Refusal(400, "give one of the query fields 'uuid' and 'url'");
  if (uuid) {
    query.finish();
    return rows_answer(device_rows({store, "SELECT * FROM catalog_device WHERE uuid = ?", *uuid}));
  }
  if (url) {
    query.finish();
    return rows_answer(device_rows(
        {store, "SELECT * FROM catalog_device WHERE url = ? ORDER BY uuid", tidy_url(*url)}));
  }
  const std::optional<std::string> pool = query.text("pool_uuid");
  const Page page(query);
  query.finish();
  if (pool) {
    return page.answer(
        device_rows({store,
                     "SELECT * FROM catalog_device WHERE pool_uuid = ? ORDER BY uuid "
                     "LIMIT ? OFFSET ?",
                     *pool, page.limit(), page.offset()}),
        [&] {
          Store::Query count(store, "SELECT count(*) FROM catalog_device WHERE pool_uuid = ?",
                             *pool);
          count.next();
          return count.integer(0);
        });
  }
  return page.answer(
      device_rows({store, "SELECT * FROM catalog_device ORDER BY uuid LIMIT ? OFFSET ?",
                   page.limit(), page.offset()}),
      [&store] {
        Store::Query count(store, "SELECT count(*) FROM catalog_device");
        count.next();
        return count.integer(0);
      });
}

/// The device on which a URL lies: the one whose own URL is the longest that the asked one begins
/// with, segment by segment.
Answer find_device_info(Store& store, const Request& request) {
  const Object body = body_object(request);
  Fields fields(body, "");
  const std::optional<std::string> pool = fields.optional_text("pool_uuid");
  const std::string url = tidy_url(fields.text("url"));
  fields.finish();

  for (std::string above = url; !above.empty(); above = url_above(above)) {
    Store::Query row(store,
                     "SELECT d.*, p.name, p.type, p.state FROM catalog_device d "
                     "JOIN catalog_pool p ON p.uuid = d.pool_uuid "
                     "WHERE d.url = ?1 AND (?2 IS NULL OR d.pool_uuid = ?2)",
                     above, pool);
    if (!row.next()) continue;
    Object out = device_record(row);
    out.emplace("pool_name", row.text(13));
    out.emplace("pool_type", row.text(14));
    out.emplace("pool_state", row.text(15));
    const std::size_t rest = above.back() == '/' ? above.size() - 1 : above.size();
    out.emplace("path", above == url ? "" : url.substr(rest));
    if (row.next()) {
      throw Refusal(409, "'" + above + "' is a device of several pools: give 'pool_uuid'");
    }
    return json_answer(std::move(out));
  }
  return json_answer(Object());
}

void clear_devices(Store& store) {
  store.execute("DELETE FROM catalog_device");
}

void load_device(Store& store, Fields& fields) {
  const std::string uuid = fields.uuid("uuid");
  const std::string pool = fields.uuid("pool_uuid");
  if (!Store::Query(store, "SELECT 1 FROM catalog_pool WHERE uuid = ?", pool).next()) {
    fields.refuse("pool_uuid", "there is no pool '" + pool + "'");
  }
  if (Store::Query(store, "SELECT 1 FROM catalog_device WHERE uuid = ? AND pool_uuid <> ?", uuid,
                   pool)
          .next()) {
    fields.refuse("pool_uuid", "the device belongs to another pool");
  }
  const std::string url = read_url(fields, "url");
  if (Store::Query(store,
                   "SELECT 1 FROM catalog_device WHERE pool_uuid = ? AND url = ? AND uuid <> ?",
                   pool, url, uuid)
          .next()) {
    fields.refuse("url", "another device of the pool has it");
  }
  const std::int64_t size = fields.count("size");
  const std::int64_t used = fields.count_or("used", 0);
  if (used > size) fields.refuse("used", "is more than size");

  std::optional<std::string> host_id;
  std::optional<std::string> sysname;
  if (const Object* bound = fields.optional_object("bound_host")) {
    Fields host(*bound, fields.place("bound_host"));
    host_id = host.text("host_id");
    sysname = host.text("sysname");
    host.finish();
  }
  store.execute(
      R"sql(INSERT INTO catalog_device (uuid, pool_uuid, name, type, role, state, url, path_prefix,
              size, used, bound_host_id, bound_sysname, created)
            VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13)
            ON CONFLICT (uuid) DO UPDATE SET uuid = ?1, name = ?3, type = ?4, role = ?5, state = ?6,
              url = ?7, path_prefix = ?8, size = ?9, used = ?10, bound_host_id = ?11,
              bound_sysname = ?12, created = ?13)sql",
      uuid, pool, fields.text("name"), fields.one_of("type", {"disk", "flash", "tape", "object"}),
      fields.one_of_or("role", {"master", "slave"}, "master"),
      fields.one_of_or("state", {"online", "readonly", "full", "offline"}, "online"), url,
      fields.has("path_prefix") ? read_path(fields, "path_prefix") : "/", size, used, host_id,
      sysname, read_created(fields));
}

Array dump_devices(Store& store) {
  Array out;
  for (Store::Query row(store, "SELECT * FROM catalog_device ORDER BY uuid"); row.next();) {
    out.emplace_back(device_description(row));
  }
  return out;
}

// ---- metadata

/// The devices on which a path lies: those recorded for it, else for the nearest directory above it
/// that is recorded. With a grouping only what was recorded under it counts.
Answer find_located_devices(Store& store, const Request& request) {
  const Object body = body_object(request);
  Fields fields(body, "");
  const std::string pool = fields.text("pool_uuid");
  const std::string path = read_path(fields, "path");
  const std::optional<std::string> grouping = fields.optional_text("grouping");
  fields.finish();

  for (std::string above = path; !above.empty(); above = parent_of(above)) {
    Store::Query row(
        store,
        "SELECT d.*, m.type, m.grouping_name, m.size FROM catalog_metadata m "
        "JOIN catalog_device d ON d.uuid = m.device_uuid "
        "WHERE m.pool_uuid = ?1 AND m.path = ?2 AND (?3 IS NULL OR m.grouping_name = ?3)"
        " AND (m.type = 'dir' OR ?4) ORDER BY d.role, d.uuid, m.grouping_name",
        pool, above, grouping, above == path);
    std::string type;
    Array devices;
    while (row.next()) {
      type = row.text(13);
      Object device = device_record(row);
      Object recorded{{"path", above}, {"type", type}};
      if (!row.text(14).empty()) recorded.emplace("grouping", row.text(14));
      if (!row.is_null(15)) recorded.emplace("size", row.integer(15));
      device.emplace("metadata", std::move(recorded));
      devices.emplace_back(std::move(device));
    }
    if (!devices.empty()) {
      return json_answer(Object{{"type", type}, {"devices", std::move(devices)}});
    }
  }
  return json_answer(Object());
}

void clear_metadata(Store& store) {
  store.execute("DELETE FROM catalog_metadata");
}

void load_metadata(Store& store, Fields& fields) {
  const std::string pool = fields.uuid("pool_uuid");
  const std::string device = fields.uuid("device_uuid");
  if (!Store::Query(store, "SELECT 1 FROM catalog_device WHERE uuid = ? AND pool_uuid = ?", device,
                    pool)
           .next()) {
    fields.refuse("device_uuid", "the pool has no device '" + device + "'");
  }
  const std::string path = read_path(fields, "path");
  const std::string type = fields.has("type") ? fields.text("type") : "file";
  if (Store::Query(store,
                   "SELECT 1 FROM catalog_metadata WHERE pool_uuid = ? AND path = ? AND type <> ?",
                   pool, path, type)
          .next()) {
    fields.refuse("type", "the path is recorded with another type");
  }
  store.execute(
      R"sql(INSERT INTO catalog_metadata (pool_uuid, path, grouping_name, device_uuid, type, size)
            VALUES (?1, ?2, ?3, ?4, ?5, ?6)
            ON CONFLICT (pool_uuid, path, grouping_name, device_uuid) DO UPDATE SET size = ?6)sql",
      pool, path, fields.text_or("grouping", ""), device, type, fields.optional_count("size"));
}

std::string identity_of_metadata(const Object& entry) {
  const std::string* grouping = json_spirit::object_get_str(entry, "grouping");
  // No member holds a zero character.
  return lower_case(json_spirit::object_get_str_or_throw(entry, "pool_uuid")) + '\0' +
         tidy_path(json_spirit::object_get_str_or_throw(entry, "path")) + '\0' +
         (grouping ? *grouping : "") + '\0' +
         lower_case(json_spirit::object_get_str_or_throw(entry, "device_uuid"));
}

Array dump_metadata(Store& store) {
  Array out;
  for (Store::Query row(store,
                        "SELECT pool_uuid, path, grouping_name, device_uuid, type, size "
                        "FROM catalog_metadata ORDER BY pool_uuid, path, grouping_name, "
                        "device_uuid");
       row.next();) {
    Object entry{{"pool_uuid", row.text(0)},
                 {"path", row.text(1)},
                 {"device_uuid", row.text(3)},
                 {"type", row.text(4)}};
    if (!row.text(2).empty()) entry.emplace("grouping", row.text(2));
    if (!row.is_null(5)) entry.emplace("size", row.integer(5));
    out.emplace_back(std::move(entry));
  }
  return out;
}

}  // namespace

void add_catalog(Router& router, Scenario& scenario) {
  const std::string root = "/zq/r/storage/catalog/";
  router.add(Method::get, root + "pool", Access::read, get_pools);
  router.add(Method::get, root + "device", Access::read, get_devices);
  router.add(Method::post, root + "device/info", Access::read, find_device_info);
  router.add(Method::put, root + "device/metadata", Access::read, find_located_devices);

  scenario.add({"pools", clear_pools, load_pool, identity_by_uuid, dump_pools});
  scenario.add({"devices", clear_devices, load_device, identity_by_uuid, dump_devices});
  scenario.add({"metadata", clear_metadata, load_metadata, identity_of_metadata, dump_metadata});
}

}  // namespace zqpool::service
