// SCSI_Target_Manager against the service: random operations of many concurrent hosts, each with a
// model of its LUNs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/http/http_exchange_report.h"
#include "tests/service/fixtures/http_client.h"
#include "tests/service/fixtures/scsi_lab.h"
#include "tests/support/guards.h"
#include "tests/support/log_capture.h"
#include "tests/support/service_process.h"
#include "utils/pool/scsi_target_manager.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using testing::IsEmpty;

constexpr int hosts = 16;
constexpr int rounds = 10;
constexpr int operations_a_round = 100;
constexpr std::size_t cells = 16;
constexpr std::int64_t cell = 4096;
constexpr std::int64_t lun_size = static_cast<std::int64_t>(cells) * cell;

/// The service that all hosts use. It may be down for a while and come back on another port.
class Service_Access {
 public:
  explicit Service_Access(const Service_Process& service) { moved(service); }

  void moved(const Service_Process& service) {
    const std::lock_guard<std::mutex> hold(mutex_);
    plain_ = service.http();
    tls_ = service.https();
    key_ = service.access_key();
    away_ = false;
    back_.notify_all();
  }
  void gone() {
    const std::lock_guard<std::mutex> hold(mutex_);
    away_ = true;
  }
  /// Waits while it is down.
  Endpoint endpoint(bool tls) {
    std::unique_lock<std::mutex> hold(mutex_);
    back_.wait(hold, [this] { return !away_; });
    return tls ? tls_ : plain_;
  }
  const std::string& key() const { return key_; }

  /// One request to the lab; none if the connection broke.
  std::optional<Http_Answer> lab(const std::string& method, const std::string& target,
                                 const std::string& body = "") {
    try {
      Http_Client client(endpoint(false));
      if (!client.send(request_text(method, target, key_, body, "Connection: close\r\n"))) {
        return std::nullopt;
      }
      return client.read();
    } catch (const std::exception&) {
      return std::nullopt;
    }
  }

 private:
  std::mutex mutex_;
  std::condition_variable back_;
  bool away_ = false;
  Endpoint plain_;
  Endpoint tls_;
  std::string key_;
};

/// The outcome of a change.
enum class Fate {
  done,      ///< the service reported success
  refused,   ///< by the service itself
  not_done,  ///< a scripted error, or nothing was sent
  unknown,
};

/// For each cell the number of the write that wrote it, 0 for none.
using Image = std::array<int, cells>;

struct Snapshot_Model {
  std::string id;
  Image image{};
  std::map<int, std::set<std::string>> shares;  ///< who sees it, by number
};

struct LUN_Model {
  std::string id;
  std::string origin;  ///< the snapshot it is a clone of, or ""
  std::optional<int> number;
  std::set<std::string> access;
  std::string serial;
  Image now{};
  std::list<Snapshot_Model> snapshots;
};

/// One host and its partner, which use LUNs of their own. Used by one thread at a time.
class Host {
 public:
  /// With `faults`, responses to reads may be wrong.
  Host(Service_Access& service, int number, unsigned seed, bool faults)
      : service_(service),
        faults_(faults),
        random_(seed * 1000 + static_cast<unsigned>(number)),
        own_(make_manager("a", number)),
        partner_(make_manager("b", number)) {}

  void work(std::atomic<int>& left) {
    while (left.fetch_sub(1) > 0) {
      // A step that finds nothing to do does not count.
      for (const int before = asked_; asked_ == before;)
        step();
    }
  }
  /// Compares everything the service returns with the model. Returns the host's LUNs.
  void compare(const Array& all_luns);

  std::set<std::string> lun_ids() const {
    std::set<std::string> out;
    for (const LUN_Model& lun : luns_)
      out.insert(lun.id);
    return out;
  }
  const std::vector<std::string>& complaints() const { return complaints_; }
  int unknown_creations() const { return unknown_creations_; }
  void forget_unknown_creations() { unknown_creations_ = 0; }
  int count(Fate fate) const { return fates_.at(static_cast<std::size_t>(fate)); }
  int repeated() const { return repeated_; }

 private:
  using Manager = SCSI_Target_Manager;

  Manager make_manager(const std::string& which, int number) {
    const Endpoint to = service_.endpoint(true);
    const std::vector<std::string> names{"iqn.2026-11.test:" + which + std::to_string(number)};
    Manager out(to.host, to.port, to.ssl, service_.key(), iscsi_pool, &names);
    out.host_uuid_ = "host-" + which + std::to_string(number);
    return out;
  }
  static const std::string& name_of(const Manager& manager) { return manager.initiators_.front(); }

  std::size_t below(std::size_t bound) { return random_() % bound; }
  void complain(const std::string& what) {
    complaints_.push_back(name_of(own_) + ": " + what + " (" +
                          last_http_exchange().service_message + ' ' + last_http_exchange().text +
                          ')');
  }

  /// Makes one change, once.
  template <typename Call>
  Fate once(Manager& manager, const Call& call) {
    ++asked_;
    manager.port_ = service_.endpoint(true).port;
    const bool ok = call(manager);
    const HTTP_Exchange_Report report = last_http_exchange();
    Fate fate = Fate::unknown;
    if (ok) {
      fate = Fate::done;
    } else if (report.error == HTTP_Error::status) {
      fate = report.service_message == "scripted fault" ? Fate::not_done : Fate::refused;
    } else if (!report.sent || report.path == "/zq/r/pool") {
      fate = Fate::not_done;  // also when the pool's transport could not be asked for
    }
    ++fates_.at(static_cast<std::size_t>(fate));
    return fate;
  }
  /// Repeats a repeatable change until its outcome is known, and compares it with the expected one.
  /// True if the change was made.
  template <typename Call>
  bool change(Manager& manager, bool allowed, const char* what, const Call& call) {
    bool may_be_done = false;
    for (int i = 0; i < 50; ++i) {
      const Fate fate = once(manager, call);
      may_be_done = may_be_done || fate == Fate::unknown;
      if (fate == Fate::unknown || (fate == Fate::not_done && may_be_done)) {
        ++repeated_;
        continue;
      }
      if (fate == Fate::done && !allowed) complain(std::string(what) + " was done");
      if (fate == Fate::refused && allowed) complain(std::string(what) + " was refused");
      return fate == Fate::done;
    }
    complain(std::string(what) + " had no end");
    return false;
  }

  /// Reads a list of the pool, repeatedly until it succeeds.
  Array listed(const std::string& path, const std::string& query) {
    const std::string target = path + "?pool_id=" + iscsi_pool + query;
    while (true) {
      const auto answer = service_.lab("GET", target);
      Value list;
      if (answer && answer->status == 200 && json_spirit::read(answer->body, list) &&
          list.type() == json_spirit::array_type) {
        return std::move(list.get_array());
      }
    }
  }
  bool write(const LUN_Model& lun, const std::string& who, std::size_t from, std::size_t count,
             bool discard);
  bool has_clone(const Snapshot_Model& snapshot) const {
    return std::any_of(luns_.begin(), luns_.end(),
                       [&](const LUN_Model& lun) { return lun.origin == snapshot.id; });
  }
  bool has_clone(const LUN_Model& lun) const {
    return std::any_of(lun.snapshots.begin(), lun.snapshots.end(),
                       [this](const Snapshot_Model& each) { return has_clone(each); });
  }

  void step();
  void create_lun();
  void create_from_snapshot(const LUN_Model& parent);
  void took(Fate fate, LUN_Model lun, int number, bool exported);
  void write_some(LUN_Model& lun);
  void create_snapshot(LUN_Model& lun);
  void work_on_export(LUN_Model& lun);
  void work_on_share(LUN_Model& lun);
  void roll_back(LUN_Model& lun);
  void delete_snapshot(std::list<LUN_Model>::iterator lun);
  void delete_lun(std::list<LUN_Model>::iterator lun);
  void ask_about_chain(const LUN_Model& lun);

  struct Sizes {
    std::int64_t referenced = 0;
    std::int64_t exclusive = 0;
  };
  Sizes sizes_of(const Image& image) const;
  std::string expected_lun(const LUN_Model& lun) const;

  Service_Access& service_;
  bool faults_;
  std::mt19937 random_;
  Manager own_;
  Manager partner_;
  std::list<LUN_Model> luns_;
  int last_write_ = 0;
  int unknown_creations_ = 0;
  int asked_ = 0;
  int repeated_ = 0;
  std::array<int, 4> fates_{};
  std::vector<std::string> complaints_;
};

void Host::step() {
  if (luns_.size() < 2 || (luns_.size() < 6 && below(8) == 0)) {
    create_lun();
    return;
  }
  auto lun = luns_.begin();
  std::advance(lun, below(luns_.size()));
  const std::size_t action = below(20);
  if (action < 6) {
    write_some(*lun);
  } else if (action < 9) {
    create_snapshot(*lun);
  } else if (action < 12) {
    work_on_export(*lun);
  } else if (action < 14) {
    work_on_share(*lun);
  } else if (action < 15) {
    ask_about_chain(*lun);
  } else if (action < 16) {
    roll_back(*lun);
  } else if (action < 17) {
    create_from_snapshot(*lun);
  } else if (action < 19) {
    delete_snapshot(lun);
  } else {
    delete_lun(lun);
  }
}

void Host::took(Fate fate, LUN_Model lun, int number, bool exported) {
  if (fate == Fate::unknown) ++unknown_creations_;
  if (fate != Fate::done) return;
  if (exported) lun.number = number;
  luns_.push_back(std::move(lun));
}

void Host::create_lun() {
  LUN_Model lun;
  int number = 0;
  const std::size_t kind = below(8);
  const auto size = static_cast<ACE_UINT64>(lun_size);
  const Fate fate = once(own_, [&](Manager& manager) {
    if (kind < 4) return manager.create_newest_lun(size, lun.id, number);
    // The pool is smaller than the last one.
    return manager.create_lun(kind < 7 ? size : size << 40, lun.id, number, 4096, false, true,
                              Manager::TYPE_NORMAL);
  });
  if (fate == Fate::refused ? kind < 7 : fate == Fate::done && kind == 7) {
    complain("a LUN was made or refused wrongly");
  }
  if (kind < 4) lun.access = {name_of(own_)};
  took(fate, std::move(lun), number, kind < 4);
}

void Host::create_from_snapshot(const LUN_Model& parent) {
  if (parent.snapshots.empty() || luns_.size() > 7) return;
  auto snapshot = parent.snapshots.begin();
  std::advance(snapshot, below(parent.snapshots.size()));
  LUN_Model lun;
  lun.origin = snapshot->id;
  lun.now = snapshot->image;
  int number = 0;
  const bool exported = below(2) == 0;
  const Fate fate = once(own_, [&](Manager& manager) {
    return manager.create_lun(snapshot->id, lun.id, number, exported);
  });
  if (fate == Fate::refused) complain("a LUN of a snapshot was refused");
  if (fate == Fate::unknown) {
    // Nobody else clones this snapshot, so an unknown clone is the new one.
    for (const Value& each : listed("/zq/r/scsipool/lun", "")) {
      const Object& there = each.get_obj();
      const std::string* origin = json_spirit::object_get_str(there, "origin");
      if (!origin || *origin != lun.origin || lun_ids().count(there.at("lun_id").get_str()) != 0) {
        continue;
      }
      lun.id = there.at("lun_id").get_str();
      json_spirit::object_get(there, "lun_num", number);
      took(Fate::done, std::move(lun), number, exported);
      return;
    }
    return;
  }
  took(fate, std::move(lun), number, exported);
}

/// Writes as the guest `who` if the LUN is exported, else directly. True if it was written.
bool Host::write(const LUN_Model& lun, const std::string& who, std::size_t from, std::size_t count,
                 bool discard) {
  const std::string range =
      R"("offset":)" + std::to_string(static_cast<std::int64_t>(from) * cell) + R"(,"length":)" +
      std::to_string(static_cast<std::int64_t>(count) * cell) +
      (discard ? R"(,"discard":true})" : "}");
  const std::string body =
      lun.number ? R"({"initiator":")" + who + R"(","target":")" + iscsi_target +
                       R"(","lun_num":)" + std::to_string(*lun.number) + ',' + range
                 : R"({"pool_id":")" + iscsi_pool + R"(","lun_id":")" + lun.id + "\"," + range;
  ++asked_;
  // Writing the same twice has the effect of one write.
  std::optional<Http_Answer> answer;
  while (!answer)
    answer = service_.lab("POST", "/zq/lab/write", body);
  const bool allowed = !lun.number || lun.access.count(who) != 0;
  if (answer->status != (allowed ? 200U : 404U)) {
    complain(who + " writes to " + lun.id + ": " + answer->body);
  }
  return answer->status == 200;
}

void Host::write_some(LUN_Model& lun) {
  const std::size_t from = below(cells);
  const std::size_t count = 1 + below(cells - from);
  const bool discard = below(5) == 0;
  const std::string who = below(4) == 0 ? name_of(partner_) : name_of(own_);
  if (!write(lun, who, from, count, discard)) return;
  std::fill_n(lun.now.begin() + static_cast<std::ptrdiff_t>(from), count,
              discard ? 0 : ++last_write_);
}

void Host::create_snapshot(LUN_Model& lun) {
  Snapshot_Model snapshot;
  snapshot.image = lun.now;
  const Fate fate = once(own_, [&](Manager& manager) {
    return manager.create_snapshot(lun.id, snapshot.id, below(2) == 0);
  });
  if (fate == Fate::refused) complain("a snapshot was refused");
  if (fate == Fate::unknown) {
    // Nobody else takes snapshots of this LUN, so an unknown one is the new one.
    std::optional<std::string> found;
    for (const Value& each : listed("/zq/r/scsipool/snapshot", "&lun_id=" + lun.id)) {
      const std::string& id = each.get_obj().at("snapshot_id").get_str();
      if (std::none_of(lun.snapshots.begin(), lun.snapshots.end(),
                       [&id](const Snapshot_Model& known) { return known.id == id; })) {
        found = id;
      }
    }
    if (found) {
      snapshot.id = *found;
      lun.snapshots.push_back(std::move(snapshot));
    }
    return;
  }
  if (fate == Fate::done) lun.snapshots.push_back(std::move(snapshot));
}

void Host::work_on_export(LUN_Model& lun) {
  const std::size_t kind = below(5);
  Manager& manager = below(3) == 0 ? partner_ : own_;
  if (kind < 2) {
    int number = 0;
    if (!change(manager, true, "an export",
                [&](Manager& by) { return by.export_lun(lun.id, number, nullptr, nullptr); })) {
      return;
    }
    if (lun.number && *lun.number != number) complain("the number of " + lun.id + " changed");
    lun.number = number;
    lun.access.insert(name_of(manager));
  } else if (kind < 4) {
    if (change(manager, lun.number.has_value(), "an access list's growth",
               [&](Manager& by) { return by.add_lun_acls(lun.id, nullptr); })) {
      lun.access.insert(name_of(manager));
    }
  } else {
    const bool force = below(2) == 0;
    if (change(manager, force || lun.access.size() < 2, "an export's end",
               [&](Manager& by) { return by.unexport_lun(lun.id, force); })) {
      lun.number.reset();
      lun.access.clear();
    }
  }
}

void Host::work_on_share(LUN_Model& lun) {
  if (lun.snapshots.empty()) return;
  auto snapshot = lun.snapshots.begin();
  std::advance(snapshot, below(lun.snapshots.size()));
  Manager& manager = below(2) == 0 ? partner_ : own_;
  const std::size_t kind = below(4);
  if (kind < 2 || snapshot->shares.empty()) {
    int number = 0;
    if (!change(manager, true, "a share", [&](Manager& by) {
          return by.share_snapshot(snapshot->id, nullptr, nullptr, number);
        })) {
      return;
    }
    for (const auto& [other, who] : snapshot->shares) {
      if (who.count(name_of(manager)) == 0) continue;
      if (snapshot->shares.count(number) == 0 ||
          snapshot->shares.at(number).count(name_of(manager)) == 0) {
        complain("a second share for one host");
      }
    }
    snapshot->shares[number].insert(name_of(manager));
    return;
  }
  const int number = snapshot->shares.begin()->first;
  if (kind == 2) {
    if (change(manager, true, "a share's growth",
               [&](Manager& by) { return by.add_snapshot_acls(snapshot->id, number); })) {
      snapshot->shares[number].insert(name_of(manager));
    }
  } else if (change(manager, true, "a share's end",
                    [&](Manager& by) { return by.unexport_snapshot(snapshot->id, number); })) {
    snapshot->shares.erase(number);
  }
}

void Host::roll_back(LUN_Model& lun) {
  const bool force = below(2) == 0;
  if (change(own_, !lun.snapshots.empty() && (force || !lun.number), "a rollback",
             [&](Manager& manager) { return manager.rollback_lun(lun.id, force); })) {
    lun.now = lun.snapshots.back().image;
  }
}

void Host::delete_snapshot(std::list<LUN_Model>::iterator lun) {
  if (lun->snapshots.empty()) return;
  auto snapshot = lun->snapshots.begin();
  std::advance(snapshot, below(lun->snapshots.size()));
  const bool delete_empty = below(2) == 0;
  if (!change(
          own_, snapshot->shares.empty() && !has_clone(*snapshot), "a snapshot's deletion",
          [&](Manager& manager) { return manager.delete_snapshot(snapshot->id, delete_empty); })) {
    return;
  }
  const bool left_empty =
      delete_empty && lun->snapshots.size() == 1 && !lun->number && lun->now == snapshot->image;
  lun->snapshots.erase(snapshot);
  if (left_empty) luns_.erase(lun);
}

void Host::delete_lun(std::list<LUN_Model>::iterator lun) {
  const bool force = below(2) == 0;
  int status = -1;
  if (change(own_, !has_clone(*lun) && (force || (!lun->number && lun->snapshots.empty())),
             "a LUN's deletion",
             [&](Manager& manager) { return manager.delete_lun(lun->id, force, &status); })) {
    luns_.erase(lun);
  }
}

Host::Sizes Host::sizes_of(const Image& image) const {
  Sizes out;
  for (std::size_t i = 0; i < cells; ++i) {
    if (image[i] == 0) continue;
    out.referenced += cell;
    // Each cell of each write has distinct data.
    int reached = 0;
    for (const LUN_Model& lun : luns_) {
      reached += lun.now[i] == image[i];
      for (const Snapshot_Model& snapshot : lun.snapshots)
        reached += snapshot.image[i] == image[i];
    }
    if (reached == 1) out.exclusive += cell;
  }
  return out;
}

/// Predecessor and increment according to the model.
void Host::ask_about_chain(const LUN_Model& lun) {
  if (faults_ || lun.snapshots.empty()) return;
  auto snapshot = lun.snapshots.begin();
  std::advance(snapshot, below(lun.snapshots.size()));
  if (snapshot->shares.size() > 1) return;  // it has several descriptions
  ++asked_;
  own_.port_ = service_.endpoint(true).port;
  Object previous;
  ACE_UINT64 size = 0;
  own_.get_previous_snapshot(snapshot->id, previous);
  const bool asked_well = last_http_exchange().ok();
  const bool sized = own_.cal_snapshot_size(snapshot->id, size, true);
  const bool sized_well = last_http_exchange().ok();
  if (snapshot == lun.snapshots.begin()) {
    if (!previous.empty()) complain("a first snapshot has a predecessor");
    const Sizes own = sizes_of(snapshot->image);
    if (sized && static_cast<std::int64_t>(size) != own.referenced + own.exclusive) {
      complain("the size of a first snapshot is " + std::to_string(size));
    }
    return;
  }
  if (previous.empty()) {
    if (asked_well) complain("no predecessor of " + snapshot->id);
    return;
  }
  const Snapshot_Model& before = *std::prev(snapshot);
  if (previous.at("snapshot_id").get_str() != before.id) complain("another predecessor");
  const Sizes earlier = sizes_of(before.image);
  const Sizes now = sizes_of(snapshot->image);
  // An empty predecessor counts as none.
  const std::int64_t expected =
      earlier.referenced == 0 && earlier.exclusive == 0
          ? now.referenced + now.exclusive
          : std::max<std::int64_t>(0, now.referenced - earlier.referenced + earlier.exclusive);
  if (sized && sized_well && static_cast<std::int64_t>(size) != expected) {
    complain("the size of " + snapshot->id + " is " + std::to_string(size) + ", not " +
             std::to_string(expected));
  }
}

std::set<std::string> names_in(const Object& description) {
  std::set<std::string> out;
  if (const Array* acls = json_spirit::object_get_array(description, "acls")) {
    for (const Value& entry : *acls)
      out.insert(entry.get_obj().at("initiator").get_str());
  }
  return out;
}

void Host::compare(const Array& all_luns) {
  own_.port_ = service_.endpoint(true).port;
  const auto same = [this](const std::string& what, std::int64_t told, std::int64_t expected) {
    if (told != expected) {
      complain(what + " is " + std::to_string(told) + ", not " + std::to_string(expected));
    }
  };
  std::map<std::string, const Object*> told;
  for (const Value& each : all_luns)
    told[each.get_obj().at("lun_id").get_str()] = &each.get_obj();
  std::map<std::string, std::set<std::string>> visible;  // by initiator, what the model says
  for (LUN_Model& lun : luns_) {
    const auto at = told.find(lun.id);
    if (at == told.end()) {
      complain("LUN " + lun.id + " is gone");
      continue;
    }
    const Object& description = *at->second;
    const Sizes sizes = sizes_of(lun.now);
    same(lun.id + " rfer_size", description.at("rfer_size").get_int64(), sizes.referenced);
    same(lun.id + " excl_size", description.at("excl_size").get_int64(), sizes.exclusive);
    int number = -1;
    json_spirit::object_get(description, "lun_num", number);
    same(lun.id + " lun_num", number, lun.number.value_or(-1));
    if (names_in(description) != lun.access) complain("access list of " + lun.id);
    const std::string& serial = description.at("vpd_serial_number").get_str();
    if (!lun.serial.empty() && serial != lun.serial) complain("serial number of " + lun.id);
    lun.serial = serial;
    for (const std::string& who : lun.access)
      visible[who].insert(std::to_string(number) + ':' + lun.id);

    const Array list = listed("/zq/r/scsipool/snapshot", "&lun_id=" + lun.id);
    std::size_t descriptions = 0;
    int last_seq = 0;
    auto next = list.begin();
    for (const Snapshot_Model& snapshot : lun.snapshots) {
      const Sizes own = sizes_of(snapshot.image);
      const std::size_t count = std::max<std::size_t>(1, snapshot.shares.size());
      descriptions += count;
      std::set<int> numbers;
      for (std::size_t i = 0; i < count && next != list.end(); ++i, ++next) {
        const Object& each = next->get_obj();
        if (each.at("snapshot_id").get_str() != snapshot.id) complain("another snapshot");
        same(snapshot.id + " rfer_size", each.at("rfer_size").get_int64(), own.referenced);
        same(snapshot.id + " excl_size", each.at("excl_size").get_int64(), own.exclusive);
        const int seq = each.at("seq").get_int();
        if (i == 0 && seq <= last_seq) complain("seq does not grow");
        last_seq = seq;
        int share = -1;
        if (!json_spirit::object_get(each, "lun_num", share)) continue;
        numbers.insert(share);
        const auto who = snapshot.shares.find(share);
        if (who == snapshot.shares.end() || who->second != names_in(each)) {
          complain("access list of " + snapshot.id);
          continue;
        }
        for (const std::string& name : who->second)
          visible[name].insert(std::to_string(share) + ':' + snapshot.id);
        std::string told_serial;
        if (!own_.get_snapshot_serial_number(snapshot.id, share, told_serial) ||
            told_serial != each.at("vpd_serial_number").get_str()) {
          complain("serial number of " + snapshot.id);
        }
      }
      same(snapshot.id + " shares", static_cast<std::int64_t>(numbers.size()),
           static_cast<std::int64_t>(snapshot.shares.size()));
    }
    same(lun.id + " descriptions", static_cast<std::int64_t>(list.size()),
         static_cast<std::int64_t>(descriptions));
  }
  for (const std::string& who : {name_of(own_), name_of(partner_)}) {
    const auto answer = service_.lab("GET", "/zq/lab/visible?initiator=" + who);
    std::set<std::string> seen;
    if (answer) {
      const Value list = answer->json();
      for (const Value& each : list.get_obj().at("luns").get_array()) {
        const Object& lun = each.get_obj();
        const std::string* snapshot = json_spirit::object_get_str(lun, "snapshot_id");
        seen.insert(std::to_string(lun.at("lun_num").get_int()) + ':' +
                    (snapshot ? *snapshot : lun.at("lun_id").get_str()));
      }
    }
    if (seen != visible[who]) complain(who + " sees something else than it may");
  }
}

// ---- the scenario

class SCSI_Scenario_Of_Hosts : public testing::Test {
 protected:
  void begin(bool faults) {
    std::cout << "ZQ_SEED=" << seed_ << '\n';
    for (int i = 0; i < hosts; ++i)
      hosts_.push_back(std::make_unique<Host>(access_, i, seed_, faults));
  }

  /// Runs a round of operations of all hosts concurrently, and `meanwhile` beside them.
  template <typename Meanwhile>
  void play_round(const Meanwhile& meanwhile) {
    std::atomic<int> left{operations_a_round};
    std::vector<std::thread> threads;
    threads.reserve(hosts);
    for (const auto& host : hosts_)
      threads.emplace_back([&left, &host] { host->work(left); });
    meanwhile(left);
    for (std::thread& thread : threads)
      thread.join();
  }

  Array list_luns() {
    const Endpoint to = access_.endpoint(true);
    const std::vector<std::string> nobody{"iqn.2026-11.test:nobody"};
    SCSI_Target_Manager manager(to.host, to.port, to.ssl, access_.key(), iscsi_pool, &nobody);
    Array luns;
    EXPECT_TRUE(manager.list_scsi_pool_luns(luns)) << log_.all();
    return luns;
  }

  /// Checks that the service is consistent with itself and with the hosts' models. Nothing else may
  /// run.
  void check() {
    const Array luns = list_luns();
    std::set<std::string> known;
    int unknown = 0;
    for (const auto& host : hosts_) {
      known.merge(host->lun_ids());
      unknown += host->unknown_creations();
      host->forget_unknown_creations();
    }
    // Unknown objects were made by requests whose response was lost.
    const std::string by_id = "/zq/r/scsipool/lun?pool_id=" + iscsi_pool + "&force=true&lun_id=";
    int orphans = 0;
    for (const Value& each : luns) {
      const std::string& id = each.get_obj().at("lun_id").get_str();
      if (known.count(id) != 0) continue;
      ++orphans;
      EXPECT_EQ(ask(service_, "DELETE", by_id + id).status, 200U);
    }
    EXPECT_LE(orphans, unknown) << "a LUN that was refused is there";
    for (const auto& host : hosts_)
      host->compare(luns);
    complain();
    const Value found = ask(service_, "GET", "/zq/lab/check").json();
    EXPECT_EQ(found.get_obj().at("problems"), Value(Array()));
    EXPECT_GE(found.get_obj().at("checked").get_obj().at("volumes").get_int64(),
              static_cast<std::int64_t>(known.size()));
    EXPECT_EQ(ask(service_, "GET", "/zq/lab/visible?initiator=iqn.2026-11.test:nobody").body,
              R"({"luns":[]})");
  }
  void complain() {
    for (const auto& host : hosts_)
      EXPECT_THAT(host->complaints(), IsEmpty());
  }
  int count(Fate fate) const {
    int out = 0;
    for (const auto& host : hosts_)
      out += host->count(fate);
    return out;
  }
  int repeated() const {
    int out = 0;
    for (const auto& host : hosts_)
      out += host->repeated();
    return out;
  }
  void tell() const {
    std::cout << "changes done " << count(Fate::done) << ", refused " << count(Fate::refused)
              << ", not done " << count(Fate::not_done) << ", unknown " << count(Fate::unknown)
              << ", repeated " << repeated() << '\n';
  }

  void script_faults(int round) {
    // One request in ten in total.
    const auto fault = [this, round](const std::string& what, const std::string& probability,
                                     int number) {
      return R"({"path":"/zq/r/*","probability":)" + probability + R"(,"seed":)" +
             std::to_string(seed_ * 100 + static_cast<unsigned>(round * 10 + number)) + ',' + what +
             '}';
    };
    const std::string body = R"({"faults":[)" +
                             fault(R"("kind":"status","status":503)", "0.03", 1) + ',' +
                             fault(R"("kind":"reset_before_commit")", "0.02", 2) + ',' +
                             fault(R"("kind":"reset_after_commit")", "0.02", 3) + ',' +
                             fault(R"("kind":"cut","bytes":3)", "0.01", 4) + ',' +
                             fault(R"("kind":"garbage","bytes":50)", "0.01", 5) + ',' +
                             fault(R"("kind":"wrong_type","type":"number")", "0.01", 6) + "]}";
    EXPECT_EQ(ask(service_, "POST", "/zq/lab/faults", body).status, 201U);
  }
  /// Removes the script; returns how many faults happened.
  std::int64_t end_faults() {
    const Value list = ask(service_, "GET", "/zq/lab/faults").json();
    std::int64_t fired = 0;
    for (const Value& each : list.get_obj().at("faults").get_array())
      fired += each.get_obj().at("fired").get_int64();
    ask(service_, "DELETE", "/zq/lab/faults");
    return fired;
  }

  /// A fixed seed, unless the environment sets one.
  const unsigned seed_ = [] {
    const char* const seed = std::getenv("ZQ_SEED");
    return seed ? static_cast<unsigned>(std::stoul(seed)) : 20261121U;
  }();

  const Options_Guard options_{options_with_test_ca()};
  const Sleep_Recorder sleeps_;
  Log_Capture log_;
  Service_Process service_{{scsi_lab(), {}}};
  Service_Access access_{service_};
  std::vector<std::unique_ptr<Host>> hosts_;
};

TEST_F(SCSI_Scenario_Of_Hosts, a_thousand_operations_of_sixteen_hosts) {
  begin(false);
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    play_round([](const std::atomic<int>&) {});
    check();
  }
  EXPECT_EQ(count(Fate::unknown), 0);
  EXPECT_EQ(count(Fate::not_done), 0);
  tell();
  EXPECT_GT(count(Fate::done), 300);
  EXPECT_GT(count(Fate::refused), 30);
  EXPECT_EQ(service_.stop(), 0) << service_.messages();
}

TEST_F(SCSI_Scenario_Of_Hosts, with_a_fault_on_one_request_in_ten) {
  begin(true);
  std::int64_t fired = 0;
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    script_faults(round);
    play_round([](const std::atomic<int>&) {});
    fired += end_faults();
    check();
  }
  EXPECT_GT(fired, 50);
  EXPECT_GT(count(Fate::unknown), 5);
  EXPECT_GT(count(Fate::not_done), 5);
  EXPECT_GT(repeated(), 0);
  tell();
  EXPECT_GT(count(Fate::done), 300);
}

TEST_F(SCSI_Scenario_Of_Hosts, with_a_kill_in_the_middle) {
  begin(false);
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    play_round([&](const std::atomic<int>& left) {
      if (round != rounds / 2) return;
      while (left > operations_a_round / 2)
        std::this_thread::yield();
      access_.gone();
      service_.kill();
      service_.start();
      access_.moved(service_);
    });
    check();
  }
  tell();
  EXPECT_GT(count(Fate::done), 300);
}

}  // namespace
}  // namespace zqpool::test
