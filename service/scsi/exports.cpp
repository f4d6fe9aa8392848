#include "service/scsi/exports.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "service/api/text.h"

namespace zqpool::service {

namespace {

constexpr std::size_t max_name_size = 223;  // of iSCSI; a WWN is shorter
constexpr std::size_t max_access_entries = 4096;
constexpr std::int64_t last_lun_num = 16383;

// Statements that share their columns.
const std::string exports_select =
    "SELECT e.number, e.pool, e.target, e.transport, e.lun_num, e.volume, e.snapshot "
    "FROM scsi_export e ";
const std::string export_of_volume = exports_select + "WHERE e.volume = ?";
const std::string exports_of_snapshot = exports_select + "WHERE e.snapshot = ? ORDER BY e.lun_num";
const std::string all_exports = exports_select + "ORDER BY e.target, e.lun_num";
const std::string exports_seen =
    exports_select +
    "JOIN scsi_access a ON a.export = e.number WHERE a.initiator = ? ORDER BY e.target, e.lun_num";

Export read_export(const Statement& row) {
  Export out{row.integer(0), row.text(1), {row.text(2), row.text(3)}, row.integer(4), {}, {}};
  if (!row.is_null(5)) out.volume = row.integer(5);
  if (!row.is_null(6)) out.snapshot = row.integer(6);
  return out;
}

std::vector<Export> read_exports(Statement&& row) {
  std::vector<Export> out;
  while (row.next())
    out.push_back(read_export(row));
  return out;
}

Access_List access_of(Connection& db, const Export& what) {
  Access_List out;
  for (Statement row(db,
                     "SELECT initiator, host_uuid FROM scsi_access WHERE export = ? "
                     "ORDER BY initiator",
                     what.number);
       row.next();) {
    out.push_back({row.text(0), row.text(1)});
  }
  return out;
}

bool is_name(const std::string& text) {
  return text.size() <= max_name_size &&
         std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

std::string read_name(Request_Fields& fields, const std::string& key) {
  std::string name = fields.text(key);
  if (!is_name(name)) {
    fields.refuse(key, "must be at most 223 printable characters without blanks");
  }
  return name;
}

/// A target serves one pool by one transport.
void need_target(Connection& db, const std::string& pool, const Target& target) {
  const auto refuse = [&target](const std::string& why) {
    throw Request_Error(409, "target '" + target.name + "' " + why);
  };
  Statement own(db, "SELECT uuid, transport FROM scsi_pool WHERE target = ?", target.name);
  Statement used(db, "SELECT pool, transport FROM scsi_export WHERE target = ? LIMIT 1",
                 target.name);
  for (Statement* const row : {&own, &used}) {
    if (!row->next()) continue;
    if (lower_case(row->text(0)) != lower_case(pool)) refuse("belongs to another pool");
    if (row->text(1) != target.transport) refuse("is reached by " + row->text(1));
  }
}

/// The lowest number that neither the target nor the snapshot uses.
std::int64_t free_lun_num(Connection& db, const Target& target,
                          const std::optional<std::int64_t>& snapshot) {
  std::int64_t out = 1;
  for (Statement row(db,
                     "SELECT lun_num FROM scsi_export WHERE target = ? "
                     "UNION SELECT lun_num FROM scsi_export WHERE snapshot = ? ORDER BY 1",
                     target.name, snapshot);
       row.next() && row.integer(0) == out;) {
    ++out;
  }
  if (out > last_lun_num) {
    throw Request_Error(409, "target '" + target.name + "' has no free LUN number");
  }
  return out;
}

void need_free(Connection& db, const Target& target, const std::optional<std::int64_t>& snapshot,
               std::int64_t lun_num) {
  if (lun_num < 1 || lun_num > last_lun_num) {
    throw Request_Error(422, "a LUN number must be from 1 to " + std::to_string(last_lun_num));
  }
  if (db.has_row("SELECT 1 FROM scsi_export WHERE (target = ? OR snapshot = ?) AND lun_num = ?",
                 target.name, snapshot, lun_num)) {
    throw Request_Error(409, "LUN number " + std::to_string(lun_num) + " is taken");
  }
}

/// Creates the export `wanted`, whose numbers are set here. Without `lun_num` takes a free one.
Export make_export(Connection& db, Export wanted, std::optional<std::int64_t> lun_num,
                   const Access_List& access) {
  need_target(db, wanted.pool, wanted.target);
  if (lun_num) {
    need_free(db, wanted.target, wanted.snapshot, *lun_num);
    wanted.lun_num = *lun_num;
  } else {
    wanted.lun_num = free_lun_num(db, wanted.target, wanted.snapshot);
  }
  db.execute(
      "INSERT INTO scsi_export (pool, target, transport, lun_num, volume, snapshot) "
      "VALUES (?, ?, ?, ?, ?, ?)",
      wanted.pool, wanted.target.name, wanted.target.transport, wanted.lun_num, wanted.volume,
      wanted.snapshot);
  wanted.number = db.integer("SELECT last_insert_rowid()");
  allow(db, wanted, access);
  return wanted;
}

bool is_same(const Target& a, const Target& b) {
  return lower_case(a.name) == lower_case(b.name);
}

std::set<std::int64_t> exports_seen_by_any(Connection& db, const Access_List& access) {
  std::set<std::int64_t> out;
  for (const Access_Entry& entry : access) {
    for (Statement row(db, "SELECT export FROM scsi_access WHERE initiator = ?", entry.initiator);
         row.next();) {
      out.insert(row.integer(0));
    }
  }
  return out;
}

std::string digits_of(const std::string& id) {
  std::string out;
  std::copy_if(id.begin(), id.end(), std::back_inserter(out), [](char c) { return c != '-'; });
  return out;
}

}  // namespace

// ---- what requests and scenarios say

std::string read_transport(Request_Fields& fields, const std::string& key) {
  const std::string name = lower_case(fields.text(key));
  if (name == "iscsi") return "iSCSI";
  if (name == "fc") return "FC";
  fields.refuse(key, "is not one of iSCSI, FC");
}

std::string read_target_name(Request_Fields& fields, const std::string& key) {
  return read_name(fields, key);
}

Target read_target(Request_Fields& fields, const SCSI_Pool& pool) {
  if (fields.has("type") != fields.has("target")) {
    fields.refuse("target", "must be given together with type");
  }
  if (!fields.has("target")) return {pool.target, pool.transport};
  return {read_target_name(fields, "target"), read_transport(fields, "type")};
}

Access_List read_access(Request_Fields& fields) {
  Access_List out;
  if (const Array* entries = fields.optional_array("acls");
      entries && entries->size() > max_access_entries) {
    fields.refuse("acls", "has more than 4096 elements");
  }
  for (Request_Fields& entry : fields.optional_objects("acls")) {
    out.push_back({read_name(entry, "initiator"), entry.text("host_uuid")});
  }
  return out;
}

Access_List read_needed_access(Request_Fields& fields) {
  Access_List out = read_access(fields);
  if (!fields.has("acls")) fields.refuse("acls", "is missing", 400);
  if (out.empty()) fields.refuse("acls", "must not be empty");
  return out;
}

// ---- exports

std::optional<Export> export_of(Connection& db, const Volume& lun) {
  Statement row(db, export_of_volume, lun.number);
  if (!row.next()) return std::nullopt;
  return read_export(row);
}

std::vector<Export> shares_of(Connection& db, const Snapshot& snapshot) {
  return read_exports({db, exports_of_snapshot, snapshot.number});
}

Export export_lun(Connection& db, const Volume& lun, const Target& target,
                  const Access_List& access, std::optional<std::int64_t> lun_num) {
  if (const std::optional<Export> there = export_of(db, lun)) {
    if (!is_same(there->target, target)) {
      throw Request_Error(409,
                          described(lun) + " is exported on target '" + there->target.name + '\'');
    }
    need_target(db, lun.pool, target);
    allow(db, *there, access);
    return *there;
  }
  return make_export(db, {0, lun.pool, target, 0, lun.number, {}}, lun_num, access);
}

Export share_snapshot(Connection& db, const std::string& pool, const Snapshot& snapshot,
                      const Target& target, const Access_List& access,
                      std::optional<std::int64_t> lun_num) {
  if (!lun_num) {
    const std::set<std::int64_t> seen = exports_seen_by_any(db, access);
    for (const Export& there : shares_of(db, snapshot)) {
      if (!is_same(there.target, target) || seen.count(there.number) == 0) continue;
      need_target(db, pool, target);
      allow(db, there, access);
      return there;
    }
  }
  return make_export(db, {0, pool, target, 0, {}, snapshot.number}, lun_num, access);
}

void allow(Connection& db, const Export& to, const Access_List& access) {
  for (const Access_Entry& entry : access) {
    db.execute(
        "INSERT INTO scsi_access (export, initiator, host_uuid) VALUES (?1, ?2, ?3) "
        "ON CONFLICT (export, initiator) DO UPDATE SET host_uuid = ?3",
        to.number, entry.initiator, entry.host_uuid);
  }
}

void withdraw(Connection& db, const Export& what) {
  db.execute("DELETE FROM scsi_export WHERE number = ?", what.number);
}

std::int64_t hosts_of(Connection& db, const Export& what) {
  return db.integer("SELECT count(DISTINCT host_uuid) FROM scsi_access WHERE export = ?",
                    what.number);
}

std::vector<Export> seen_by(Connection& db, const std::string& initiator) {
  return read_exports({db, exports_seen, initiator});
}

// ---- descriptions

std::string serial_number(const Volume& lun) {
  return digits_of(lun.name);
}

std::string serial_number(const Snapshot& snapshot, const Export& share) {
  std::string number = std::to_string(share.lun_num);
  number.insert(0, 5 - number.size(), '0');
  return digits_of(snapshot.id) + number;
}

void describe_export(Connection& db, const Export& what, Object& out) {
  out["lun_num"] = what.lun_num;
  out["type"] = what.target.transport;
  out["target"] = what.target.name;
  Array acls;
  for (Access_Entry& entry : access_of(db, what)) {
    acls.emplace_back(Object{{"initiator", std::move(entry.initiator)},
                             {"host_uuid", std::move(entry.host_uuid)}});
  }
  out["acls"] = std::move(acls);
}

// ---- what must hold

std::int64_t check_exports(Connection& db, Array& problems) {
  std::set<std::pair<std::string, std::int64_t>> numbers;
  std::set<std::string> serials;
  std::map<std::string, Export> first_on_target;
  std::map<std::string, std::set<std::int64_t>> allowed;
  const std::vector<Export> exports = read_exports({db, all_exports});
  for (const Export& each : exports) {
    const std::string target = lower_case(each.target.name);
    const std::string place = "LUN " + std::to_string(each.lun_num) + " on " + each.target.name;
    if (!numbers.emplace(target, each.lun_num).second) problems.emplace_back(place + ": twice");
    const Export& first = first_on_target.emplace(target, each).first->second;
    if (lower_case(first.pool) != lower_case(each.pool) ||
        first.target.transport != each.target.transport) {
      problems.emplace_back(place + ": the target serves two pools or transports");
    }
    const Volume volume = volume_by_number(
        db, each.volume ? *each.volume : snapshot_by_number(db, *each.snapshot).volume);
    if (lower_case(volume.pool) != lower_case(each.pool) || volume.kind != Volume_Kind::lun) {
      problems.emplace_back(place + ": the LUN is not in the target's pool");
    }
    const std::string serial = each.volume
                                   ? serial_number(volume)
                                   : serial_number(snapshot_by_number(db, *each.snapshot), each);
    if (!serials.insert(lower_case(serial)).second) {
      problems.emplace_back(place + ": another export has its serial number");
    }
    for (const Access_Entry& entry : access_of(db, each)) {
      allowed[lower_case(entry.initiator)].insert(each.number);
    }
  }
  for (const auto& [initiator, expected] : allowed) {
    std::set<std::int64_t> seen;
    for (const Export& each : seen_by(db, initiator))
      seen.insert(each.number);
    if (seen != expected) {
      problems.emplace_back("initiator " + initiator +
                            " does not see exactly the exports that allow it");
    }
  }
  return static_cast<std::int64_t>(exports.size());
}

}  // namespace zqpool::service
