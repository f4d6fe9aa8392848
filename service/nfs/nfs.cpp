#include "service/nfs/nfs.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <memory>
#include <set>

#include "service/api/paths.h"
#include "service/api/request_fields.h"
#include "service/api/text.h"
#include "service/catalog/records.h"

namespace zqpool::service {

namespace {

using json_spirit::Value;

constexpr std::size_t max_client_size = 255;
constexpr std::size_t max_clients = 4096;

/// An export as requested, with the service's defaults for members that were empty.
struct Export_Record {
  std::string uuid;
  std::string pseudo;
  std::string fsal;
  std::string squash;
  std::string protocols;
  std::string access_type;
  std::string clients;              ///< a JSON array
  std::optional<std::string> path;  ///< this, or
  std::optional<std::string> pool;
  std::string sub_dir;  ///< within the pool, "" for all of it

  bool operator==(const Export_Record& other) const {
    return uuid == other.uuid && pseudo == other.pseudo && fsal == other.fsal &&
           squash == other.squash && protocols == other.protocols &&
           access_type == other.access_type && clients == other.clients && path == other.path &&
           pool == other.pool && sub_dir == other.sub_dir;
  }
};

/// A record in the database. There is no real NFS server: a change counts as applied after a delay.
struct Kept_Record {
  Export_Record record;
  bool withdrawn = false;
  std::int64_t final_at = 0;  ///< milliseconds since 1970

  std::int64_t milliseconds_to_go() const;
  bool is_gone() const { return withdrawn && milliseconds_to_go() == 0; }
  const char* state() const {
    if (milliseconds_to_go() > 0) return withdrawn ? "withdrawing" : "pending";
    return withdrawn ? "withdrawn" : "exported";
  }
};

std::int64_t now_ms() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

std::int64_t Kept_Record::milliseconds_to_go() const {
  return std::max<std::int64_t>(0, final_at - now_ms());
}

// ---- reading

std::string read_absolute(Request_Fields& fields, const std::string& key) {
  std::string path = read_path(fields, key);
  if (path.front() != '/') fields.refuse(key, "must be an absolute path");
  return path;
}

std::string read_clients(Request_Fields& fields) {
  const Array* clients = fields.optional_array("clients");
  if (!clients) fields.refuse("clients", "is missing", 400);
  if (clients->empty()) fields.refuse("clients", "must not be empty");
  if (clients->size() > max_clients) fields.refuse("clients", "has more than 4096 elements");
  std::set<std::string> given;
  for (std::size_t i = 0; i < clients->size(); ++i) {
    const std::string place = "clients[" + std::to_string(i) + ']';
    const Value& value = (*clients)[i];
    if (value.type() != json_spirit::str_type) fields.refuse(place, "must be a string", 400);
    const std::string& client = value.get_str();
    const bool good = !client.empty() && client.size() <= max_client_size &&
                      std::all_of(client.begin(), client.end(),
                                  [](char c) { return c > ' ' && c < 0x7f && c != ','; });
    if (!good) fields.refuse(place, "is not a host, a network or '*'");
    if (!given.insert(client).second) fields.refuse(place, "is given twice");
  }
  return json_spirit::write(*clients);
}

/// A word, or the default when it is empty.
std::string read_word(Request_Fields& fields, const std::string& key,
                      const std::string& otherwise) {
  std::string word = fields.needed_text(key);
  if (word.empty()) return otherwise;
  const bool good = word.size() <= 32 && std::all_of(word.begin(), word.end(), [](char c) {
                      return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                             (c >= '0' && c <= '9') || c == '_';
                    });
  if (!good) fields.refuse(key, "\"" + word + "\" is not a name");
  return word;
}

/// Reads everything but "state". Throws Request_Error.
Export_Record read_record(Connection& db, Request_Fields& fields) {
  Export_Record out;
  out.uuid = lower_case(fields.uuid("uuid"));
  out.fsal = read_word(fields, "fsal", "VFS");
  out.squash = lower_case(read_word(fields, "squash", "root_squash"));
  if (out.squash != "root_squash" && out.squash != "no_root_squash" && out.squash != "all_squash") {
    fields.refuse("squash", "is not one of root_squash, no_root_squash, all_squash");
  }
  out.protocols = fields.one_of("protocols", {"3", "4"});
  out.access_type = fields.one_of("access_type", {"RO", "RW"});
  out.clients = read_clients(fields);
  std::string pool_name;
  if (fields.has("pool_uuid")) {
    if (fields.has("path")) fields.refuse("path", "cannot be combined with pool_uuid");
    const std::string pool = fields.text("pool_uuid");
    Statement row(db, "SELECT uuid, name, state FROM catalog_pool WHERE uuid = ?", pool);
    if (!row.next()) fields.refuse("pool_uuid", "there is no pool '" + pool + "'", 404);
    if (row.text(2) == "offline") fields.refuse("pool_uuid", "the pool is offline", 409);
    out.pool = row.text(0);
    pool_name = row.text(1);
    if (fields.has("sub_dir")) out.sub_dir = read_path(fields, "sub_dir");
  } else {
    out.path = read_absolute(fields, "path");
  }
  // The export of a pool may leave "pseudo" empty.
  if (out.pool && fields.needed_text("pseudo").empty()) {
    out.pseudo = '/' + *out.pool;
  } else {
    out.pseudo = read_path(fields, "pseudo");
    if (out.pseudo.front() != '/') out.pseudo.insert(0, 1, '/');
  }
  return out;
}

// ---- the state

Kept_Record read_row(const Statement& row) {
  Kept_Record out;
  out.record = {row.text(0), row.text(1), row.text(2), row.text(3), row.text(4),
                row.text(5), row.text(6), {},          {},          row.text(9)};
  if (!row.is_null(7)) out.record.path = row.text(7);
  if (!row.is_null(8)) out.record.pool = row.text(8);
  out.withdrawn = row.integer(10) != 0;
  out.final_at = row.integer(11);
  return out;
}

const std::string records_select =
    "SELECT uuid, pseudo, fsal, squash, protocols, access_type, clients, path, pool, sub_dir, "
    "withdrawn, final_at FROM nfs_export ";
const std::string record_by_uuid = records_select + "WHERE uuid = ?";
const std::string records_all = records_select + "ORDER BY uuid";

std::optional<Kept_Record> find_record(Connection& db, const std::string& uuid) {
  Statement row(db, record_by_uuid, uuid);
  if (!row.next()) return std::nullopt;
  return read_row(row);
}

Kept_Record need_record(Connection& db, const std::string& uuid) {
  std::optional<Kept_Record> out = find_record(db, uuid);
  if (!out) throw Request_Error(404, "there is no NFS record '" + uuid + "'");
  return *std::move(out);
}

/// Writes the record, replacing one with its UUID. 409 when another has its pseudo path.
void keep(Connection& db, const Export_Record& record, std::int64_t final_at) {
  Statement other(db,
                  "SELECT uuid FROM nfs_export WHERE pseudo = ? AND uuid <> ? AND withdrawn = 0",
                  record.pseudo, record.uuid);
  if (other.next()) {
    throw Request_Error(
        409, "pseudo path '" + record.pseudo + "' belongs to NFS record '" + other.text(0) + '\'');
  }
  db.execute(
      "INSERT OR REPLACE INTO nfs_export (uuid, pseudo, fsal, squash, protocols, access_type, "
      "clients, path, pool, sub_dir, withdrawn, final_at) "
      "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 0, ?)",
      record.uuid, record.pseudo, record.fsal, record.squash, record.protocols, record.access_type,
      record.clients, record.path, record.pool, record.sub_dir, final_at);
}

Object record_object(const Export_Record& record) {
  Value clients;
  json_spirit::read(record.clients, clients);
  Object out{{"uuid", record.uuid},           {"pseudo", record.pseudo},
             {"fsal", record.fsal},           {"squash", record.squash},
             {"protocols", record.protocols}, {"access_type", record.access_type},
             {"clients", std::move(clients)}};
  if (record.path) out.emplace("path", *record.path);
  if (record.pool) out.emplace("pool_uuid", *record.pool);
  if (!record.sub_dir.empty()) out.emplace("sub_dir", record.sub_dir);
  return out;
}

Object described(const Kept_Record& kept) {
  Object out = record_object(kept.record);
  out.emplace("state", kept.state());
  return out;
}

// ---- /zq/r/nfs

/// The response about a record: at once, or when the NFS server has applied the change. `sync` is
/// how many seconds the client waits at most; negative: no limit.
Outcome answer_in_time(const Kept_Record& kept, unsigned status, std::optional<std::int64_t> sync) {
  const std::int64_t to_go = kept.milliseconds_to_go();
  if (sync.value_or(0) == 0 || to_go == 0) return json_response(described(kept), status);
  constexpr std::int64_t max_sync = std::numeric_limits<std::int64_t>::max() / 1000;
  const std::int64_t patience = *sync < 0 || *sync > max_sync ? to_go : *sync * 1000;
  const std::string uuid = kept.record.uuid;
  return Deferred{std::chrono::milliseconds(std::min(to_go, patience)), Access::read,
                  [uuid, status](Connection& db) {
                    const Kept_Record now = need_record(db, uuid);
                    if (now.milliseconds_to_go() > 0) {
                      throw Request_Error(503, "NFS record '" + uuid + "' is still " + now.state());
                    }
                    return json_response(described(now), status);
                  }};
}

Response get_records(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const std::optional<std::string> uuid = query.text("uuid");
  Array out;
  if (uuid) {
    const Kept_Record kept = need_record(db, *uuid);
    if (kept.is_gone()) throw Request_Error(404, "NFS record '" + *uuid + "' was withdrawn");
    out.emplace_back(described(kept));
  } else {
    for (Statement row(db, records_all); row.next();) {
      const Kept_Record kept = read_row(row);
      if (!kept.is_gone()) out.emplace_back(described(kept));
    }
  }
  return json_response(std::move(out));
}

/// The body and query of a request that makes or changes a record.
struct Wanted {
  Export_Record record;
  std::optional<std::int64_t> sync;
};

Wanted read_wanted(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  Wanted out;
  out.sync = query.integer("sync");
  Request_Fields& fields = request.body;
  out.record = read_record(db, fields);
  fields.one_of("state", {"pending"});
  return out;
}

Outcome make_record(Connection& db, Parsed_Request& request, std::chrono::milliseconds delay) {
  const Wanted wanted = read_wanted(db, request);
  std::optional<Kept_Record> there = find_record(db, wanted.record.uuid);
  if (!there || there->withdrawn) {
    keep(db, wanted.record, now_ms() + delay.count());
    there = need_record(db, wanted.record.uuid);
  } else if (!(there->record == wanted.record)) {
    throw Request_Error(409, "there is an NFS record '" + wanted.record.uuid + "' already");
  }
  return answer_in_time(*there, 201, wanted.sync);
}

Outcome change_record(Connection& db, Parsed_Request& request, std::chrono::milliseconds delay) {
  const Wanted wanted = read_wanted(db, request);
  Kept_Record there = need_record(db, wanted.record.uuid);
  if (there.withdrawn) {
    throw Request_Error(404, "NFS record '" + wanted.record.uuid + "' was withdrawn");
  }
  if (!(there.record == wanted.record)) {
    keep(db, wanted.record, now_ms() + delay.count());
    there = need_record(db, wanted.record.uuid);
  }
  return answer_in_time(there, 200, wanted.sync);
}

Outcome withdraw_record(Connection& db, Parsed_Request& request, std::chrono::milliseconds delay) {
  Query_Fields& query = request.query;
  const std::string uuid = query.needed_text("uuid");
  const std::optional<std::int64_t> sync = query.integer("sync");
  Kept_Record there = need_record(db, uuid);
  if (!there.withdrawn) {
    db.execute("UPDATE nfs_export SET withdrawn = 1, final_at = ? WHERE uuid = ?",
               now_ms() + delay.count(), uuid);
    there = need_record(db, uuid);
  }
  return answer_in_time(there, 200, sync);
}

// ---- the scenario section

void clear_records(Connection& db) {
  db.execute("DELETE FROM nfs_export");
}

void load_record(Connection& db, Request_Fields& fields) {
  keep(db, read_record(db, fields), 0);
}

Array dump_records(Connection& db) {
  Array out;
  for (Statement row(db, records_all); row.next();) {
    const Kept_Record kept = read_row(row);
    if (!kept.withdrawn) out.emplace_back(record_object(kept.record));
  }
  return out;
}

bool lies_at(const std::string& path, const std::string& directory) {
  return path == directory || path.rfind(directory + '/', 0) == 0;
}

}  // namespace

std::optional<std::string> nfs_export_of_mount(Connection& db, const std::string& mount_point) {
  std::set<std::string> mounted;
  for (Statement row(db, "SELECT mount_point FROM filesystem WHERE mounted = 1"); row.next();) {
    mounted.insert(row.text(0));
  }
  for (Statement row(db,
                     "SELECT uuid, path FROM nfs_export "
                     "WHERE withdrawn = 0 AND path IS NOT NULL ORDER BY uuid");
       row.next();) {
    std::string path = row.text(1);
    if (!lies_at(path, mount_point)) continue;
    // A filesystem that is mounted further down hides this one.
    while (path != mount_point && mounted.count(path) == 0)
      path = parent_of(path);
    if (path == mount_point) return row.text(0);
  }
  return std::nullopt;
}

void add_nfs(Resources& resources, std::chrono::milliseconds delay) {
  const auto with_delay =
      [delay](Outcome (*handler)(Connection&, Parsed_Request&, std::chrono::milliseconds)) {
        return [handler, delay](Connection& db, Parsed_Request& request) {
          return handler(db, request, delay);
        };
      };
  const std::string path = "/zq/r/nfs";
  resources.router.add(Method::get, path, Access::read, get_records);
  resources.router.add(Method::post, path, Access::write, with_delay(make_record));
  resources.router.add(Method::put, path, Access::write, with_delay(change_record));
  resources.router.add(Method::del, path, Access::write, with_delay(withdraw_record));
  resources.scenario.add(
      {"nfs_exports", clear_records, load_record, identity_by_uuid, dump_records});
}

}  // namespace zqpool::service
