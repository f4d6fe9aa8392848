// Filesystems, image pools and NFS exports: the library against the service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/service/fixtures/filesystem_lab.h"
#include "tests/service/fixtures/http_client.h"
#include "tests/support/guards.h"
#include "tests/support/log_capture.h"
#include "tests/support/service_process.h"
#include "utils/pool/image_pool_manager.h"
#include "utils/pool/nfs_operator.h"
#include "utils/pool/scsi_target_manager.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using std::string;
using testing::HasSubstr;
using testing::IsEmpty;

const string fs_path = "/zq/r/scsipool/fs";
const string mount_path = "/zq/r/scsipool/fs/mount";
const string snapshot_path = "/zq/r/scsipool/fs/snapshot";
const string nfs_path = "/zq/r/nfs";

/// The filesystem operations of both classes under common names.
struct Pool {
  string uuid;
  std::function<bool(const string&, const string*, const string*)> create;
  std::function<bool(const string&, int*)> remove;
  std::function<bool(const string&)> roll_back;
  std::function<bool(const string&, Object&, int*)> show;
  std::function<bool(const string&, string&)> mount;
  std::function<bool(Array&, const string*)> mounts;
  std::function<bool(const string&, const string&, string&)> move;
  std::function<bool(const string&)> unmount;
  std::function<bool(const string&, string&, bool)> snap;
  std::function<bool(const string&, bool)> drop;
  std::function<bool(const string&, Object&)> show_snapshot;
  std::function<bool(const string&, Object&)> previous;
  std::function<bool(const string&, std::uint64_t&)> added;
};

/// Operations that have the same name in both.
template <typename Manager>
Pool pool_of(const string& uuid, const std::shared_ptr<Manager>& manager) {
  Pool out;
  out.uuid = uuid;
  out.create = [manager](const string& name, const string* snapshot, const string* place) {
    return manager->create_filesystem(name, snapshot, place);
  };
  out.remove = [manager](const string& name, int* status) {
    return manager->delete_filesystem(name, status);
  };
  out.roll_back = [manager](const string& name) { return manager->rollback_filesystem(name); };
  out.mount = [manager](const string& name, string& place) {
    return manager->mount_filesystem(name, place);
  };
  out.mounts = [manager](Array& list, const string* name) {
    return manager->list_mounted_filesystem(list, name);
  };
  out.move = [manager](const string& name, const string& place, string& answered) {
    return manager->update_filesystem_mountpoint(name, place, answered);
  };
  out.unmount = [manager](const string& name) { return manager->umount_filesystem(name); };
  return out;
}

Pool scsi_pool(const Endpoint& to, const string& key) {
  const auto manager =
      std::make_shared<SCSI_Target_Manager>(to.host, to.port, to.ssl, key, fs_scsi_pool, nullptr);
  Pool out = pool_of(fs_scsi_pool, manager);
  out.show = [manager](const string& name, Object& info, int* status) {
    return manager->list_filesystem_info(name, info, false, status);
  };
  out.snap = [manager](const string& name, string& id, bool recyclable) {
    return manager->create_filesystem_snapshot(name, id, recyclable);
  };
  out.drop = [manager](const string& id, bool delete_empty) {
    return manager->delete_filesystem_snapshot(id, delete_empty);
  };
  out.show_snapshot = [manager](const string& id, Object& info) {
    return manager->get_filesystem_snapshot_info(id, info);
  };
  out.previous = [manager](const string& id, Object& info) {
    return manager->get_previous_filesystem_snapshot(id, info);
  };
  out.added = [manager](const string& id, std::uint64_t& size) {
    ACE_UINT64 found = 0;
    const bool result = manager->cal_snapshot_size(id, found, false);
    size = found;
    return result;
  };
  return out;
}

Pool image_pool(const Endpoint& to, const string& key) {
  const string url = (to.ssl ? "https://" : "http://") + to.host + ':' + std::to_string(to.port);
  const auto manager = std::make_shared<Image_Pool_Manager>(url, key, fs_image_pool);
  Pool out = pool_of(fs_image_pool, manager);
  out.show = [manager](const string& name, Object& info, int* status) {
    return manager->list_filesystem_info(name, info, status);
  };
  out.snap = [manager](const string& name, string& id, bool recyclable) {
    return manager->create_snapshot(name, id, recyclable);
  };
  out.drop = [manager](const string& id, bool delete_empty) {
    return manager->delete_snapshot(id, delete_empty);
  };
  out.show_snapshot = [manager](const string& id, Object& info) {
    return manager->get_snapshot_info(id, info);
  };
  out.previous = [manager](const string& id, Object& info) {
    return manager->get_previous_snapshot(id, info);
  };
  out.added = [manager](const string& id, std::uint64_t& size) {
    return manager->cal_snapshot_size(id, size);
  };
  return out;
}

struct Way {
  bool image;
  bool ssl;
};

class Filesystem_Library : public testing::TestWithParam<Way> {
 public:
  ~Filesystem_Library() override {
    if (service_.pid() == 0) return;
    const Value checked = ask(service_, "GET", "/zq/lab/check").json();
    EXPECT_EQ(checked.get_obj().at("problems"), Value(Array()));
  }

 protected:
  Filesystem_Library() { connect(); }

  /// Connects to the service's current port.
  void connect() {
    const Endpoint to = service_.endpoint(GetParam().ssl);
    const string& key = service_.access_key();
    pool_ = GetParam().image ? image_pool(to, key) : scsi_pool(to, key);
  }
  void write(const string& name, std::uint64_t offset, std::uint64_t length) {
    const Http_Answer answer =
        ask(service_, "POST", "/zq/lab/write",
            json_spirit::write(Object{
                {"pool_id", pool_.uuid}, {"name", name}, {"offset", offset}, {"length", length}}));
    EXPECT_EQ(answer.status, 200U) << answer.body;
  }
  /// The filesystem's mount point, "" if it is not mounted.
  string place_of(const string& name) {
    Array list;
    EXPECT_TRUE(pool_.mounts(list, &name));
    return list.empty() ? "" : list.at(0).get_obj().at("mountpoint").get_str();
  }
  string snap(const string& name) {
    string id;
    EXPECT_TRUE(pool_.snap(name, id, false));
    return id;
  }
  std::uint64_t added(const string& id) {
    std::uint64_t size = 0;
    EXPECT_TRUE(pool_.added(id, size));
    return size;
  }
  void script(const string& method, const string& path, const string& rest) {
    const Http_Answer answer = ask(service_, "POST", "/zq/lab/faults",
                                   R"({"faults":[{"method":")" + method + R"(","path":")" + path +
                                       R"(","times":1,)" + rest + "}]}");
    EXPECT_EQ(answer.status, 201U) << answer.body;
  }

  const Options_Guard options_{options_with_test_ca()};
  const Sleep_Recorder sleeps_;
  Log_Capture log_;
  Service_Process service_{{filesystem_lab(), {}}};
  Pool pool_;
};

INSTANTIATE_TEST_SUITE_P(Of, Filesystem_Library,
                         testing::Values(Way{false, false}, Way{true, true}), [](const auto& test) {
                           return string(test.param.image ? "an_image_pool" : "a_scsi_pool") +
                                  (test.param.ssl ? "_over_https" : "_over_http");
                         });

TEST_P(Filesystem_Library, a_backups_cycle) {
  string place;
  ASSERT_TRUE(pool_.create("daily", nullptr, nullptr));
  ASSERT_TRUE(pool_.mount("daily", place));
  EXPECT_EQ(place, place_of("daily"));
  write("daily", 0, 1000);
  const string monday = snap("daily");
  write("daily", 500, 1500);
  const string tuesday = snap("daily");
  EXPECT_EQ(added(monday), 1500U) << "what it refers to, and what it holds alone";
  EXPECT_EQ(added(tuesday), 1500U) << "grown by 1000, and 500 of the one before were written over";

  Object before;
  EXPECT_FALSE(pool_.previous(tuesday, before));
  EXPECT_EQ(before.at("snapshot_id"), Value(monday));
  Object none;
  EXPECT_TRUE(pool_.previous(monday, none));
  EXPECT_TRUE(none.empty());

  write("daily", 0, 2000);
  EXPECT_FALSE(pool_.roll_back("daily")) << "it is mounted";
  EXPECT_TRUE(pool_.unmount("daily"));
  EXPECT_TRUE(pool_.roll_back("daily"));
  Object info;
  EXPECT_TRUE(pool_.show("daily", info, nullptr));
  EXPECT_EQ(info.at("rfer_size"), Value(2000));
  EXPECT_EQ(info.at("excl_size"), Value(0));

  const string restored_at = "/restore/daily";
  EXPECT_TRUE(pool_.create("restored", &monday, &restored_at));
  EXPECT_EQ(place_of("restored"), restored_at);
  EXPECT_FALSE(pool_.drop(monday, false)) << "the clone depends on it";
  int status = 0;
  EXPECT_FALSE(pool_.remove("restored", &status));
  EXPECT_EQ(status, 409) << "it is mounted";
  EXPECT_TRUE(pool_.unmount("restored"));
  EXPECT_TRUE(pool_.remove("restored", &status));
  EXPECT_EQ(status, 200);
  EXPECT_TRUE(pool_.drop(monday, false));
  EXPECT_TRUE(pool_.drop(tuesday, true)) << "and the filesystem with its last snapshot";
  EXPECT_FALSE(pool_.show("daily", info, &status));
  EXPECT_EQ(status, 404);
}

TEST_P(Filesystem_Library, empty_texts_make_a_plain_filesystem) {
  const string empty;
  EXPECT_TRUE(pool_.create("daily", &empty, &empty));
  EXPECT_EQ(place_of("daily"), "");
}

TEST_P(Filesystem_Library, a_moved_mount_is_read_back) {
  const string place = "/srv/daily";
  ASSERT_TRUE(pool_.create("daily", nullptr, &place));
  string answered = "before";
  // The response is a string, which is then read as an object.
  EXPECT_THROW(pool_.move("daily", "/srv/moved", answered), std::runtime_error);
  EXPECT_EQ(answered, "before");
  EXPECT_EQ(place_of("daily"), "/srv/moved");
  EXPECT_FALSE(pool_.move("daily", "relative", answered));
  EXPECT_EQ(place_of("daily"), "/srv/moved");
}

TEST_P(Filesystem_Library, unknown_objects_are_reported_by_status) {
  Object info;
  int status = 0;
  EXPECT_FALSE(pool_.show("none", info, &status));
  EXPECT_EQ(status, 404);
  EXPECT_EQ(log_.lines().size(), GetParam().image ? 1U : 0U) << "only the one can be silenced";
  log_.take();
  EXPECT_FALSE(pool_.remove("none", &status));
  EXPECT_EQ(status, 404);
  string text;
  EXPECT_FALSE(pool_.snap("none", text, false));
  EXPECT_FALSE(pool_.mount("none", text));
  EXPECT_FALSE(pool_.unmount("none"));
  EXPECT_FALSE(pool_.show_snapshot("none", info));
  Array list;
  EXPECT_TRUE(pool_.mounts(list, nullptr));
  EXPECT_TRUE(list.empty());
}

TEST_P(Filesystem_Library, what_was_committed_before_a_kill_is_there_after_a_restart) {
  const string late = R"("kind":"delay","delay_ms":600000,"delay_after_commit":true)";
  const auto killed_during = [&](const std::function<bool()>& change, const string& target,
                                 const std::function<bool(const Array&)>& is_done) {
    const auto done = [&] {
      const Http_Answer answer = ask(service_, "GET", target);
      return answer.status == 200 && is_done(answer.json().get_array());
    };
    bool result = true;
    std::thread client([&] { result = change(); });
    while (!done())
      std::this_thread::yield();
    service_.kill();
    client.join();
    EXPECT_FALSE(result);
    service_.start();
    connect();
    EXPECT_TRUE(done()) << "it was lost: " << target;
  };
  const string in_pool = "?pool_id=" + pool_.uuid;
  const auto has_one = [](const Array& list) { return list.size() == 1; };

  script("POST", fs_path, late);
  killed_during([&] { return pool_.create("daily", nullptr, nullptr); },
                fs_path + in_pool + "&name=daily", has_one);
  EXPECT_TRUE(pool_.create("daily", nullptr, nullptr)) << "a second request does what it did";
  script("POST", mount_path, late);
  string place;
  killed_during([&] { return pool_.mount("daily", place); }, mount_path + in_pool, has_one);
  write("daily", 0, 100);
  script("POST", snapshot_path, late);
  string id;
  killed_during([&] { return pool_.snap("daily", id, false); }, snapshot_path + in_pool, has_one);
  script("DELETE", mount_path, late);
  killed_during([&] { return pool_.unmount("daily"); }, mount_path + in_pool,
                [](const Array& list) { return list.empty(); });
  EXPECT_TRUE(pool_.unmount("daily"));
}

/// Bytes of a filesystem, each with the number of the write that wrote it.
using Image = std::vector<int>;

std::uint64_t written(const Image& image) {
  std::uint64_t out = 0;
  for (const int byte : image)
    out += byte != 0;
  return out;
}

TEST_P(Filesystem_Library, sizes_of_random_chains_are_those_of_a_plain_model) {
  constexpr int chains = 10;
  constexpr std::size_t cells = 12;
  constexpr std::uint64_t cell = 1000;
  for (unsigned seed = 1; seed <= chains; ++seed) {
    std::mt19937 random(seed);
    const string name = "chain-" + std::to_string(seed);
    ASSERT_TRUE(pool_.create(name, nullptr, nullptr));
    string place;
    ASSERT_TRUE(pool_.mount(name, place));
    int writes = 0;
    Image now(cells, 0);
    std::vector<std::pair<string, Image>> snapshots;
    for (int step = 0; step < 12; ++step) {
      const unsigned what = random() % 8;
      if (what < 4) {
        const std::size_t from = random() % cells;
        const std::size_t to = from + 1 + random() % (cells - from);
        write(name, from * cell, (to - from) * cell);
        ++writes;
        for (std::size_t i = from; i < to; ++i)
          now[i] = writes;
      } else if (what < 7 || snapshots.empty()) {
        snapshots.emplace_back(snap(name), now);
      } else {
        const std::size_t which = random() % snapshots.size();
        EXPECT_TRUE(pool_.drop(snapshots[which].first, false));
        snapshots.erase(snapshots.begin() + static_cast<std::ptrdiff_t>(which));
      }
    }
    // The exclusive size: bytes that neither another snapshot nor the head has.
    const auto exclusive = [&](std::size_t which) {
      std::uint64_t out = 0;
      for (std::size_t i = 0; i < cells; ++i) {
        const int byte = snapshots[which].second[i];
        bool alone = byte != 0 && byte != now[i];
        for (std::size_t other = 0; other < snapshots.size(); ++other)
          alone = alone && (other == which || snapshots[other].second[i] != byte);
        out += alone;
      }
      return out;
    };
    for (std::size_t i = 0; i < snapshots.size(); ++i) {
      const string& id = snapshots[i].first;
      Object before;
      EXPECT_EQ(pool_.previous(id, before), i == 0) << name;
      if (i > 0) {
        EXPECT_EQ(before.at("snapshot_id"), Value(snapshots[i - 1].first)) << name;
      }
      std::int64_t expected = 0;
      const auto refers = static_cast<std::int64_t>(written(snapshots[i].second));
      const std::uint64_t before_refers = i > 0 ? written(snapshots[i - 1].second) : 0;
      const std::uint64_t before_alone = i > 0 ? exclusive(i - 1) : 0;
      if (before_refers == 0 && before_alone == 0) {
        expected = refers + static_cast<std::int64_t>(exclusive(i));
      } else {
        expected = refers - static_cast<std::int64_t>(before_refers) +
                   static_cast<std::int64_t>(before_alone);
      }
      EXPECT_EQ(added(id), static_cast<std::uint64_t>(std::max<std::int64_t>(expected, 0)) * cell)
          << name << " snapshot " << i;
    }
  }
}

// ---- NFS

class NFS_Library : public testing::TestWithParam<bool> {
 protected:
  /// `delay`: how long a record stays pending, in seconds.
  void start(const string& delay) {
    service_ = std::make_unique<Service_Process>(
        Service_Settings{filesystem_lab(), {"--nfs-delay", delay}});
    connect();
  }
  void connect() {
    const Endpoint to = service_->endpoint(GetParam());
    exports_.reset(to.host.c_str(), to.port, to.ssl, service_->access_key().c_str(), 0, 1);
  }
  static NFS_Operator::Record path(const string& path) {
    NFS_Operator::Record record;
    record.path = path;
    return record;
  }
  Array records() { return ask(*service_, "GET", nfs_path).json().get_array(); }
  string state(const string& uuid) {
    const Http_Answer answer = ask(*service_, "GET", nfs_path + "?uuid=" + uuid);
    if (answer.status != 200) return "";
    return answer.json().get_array().at(0).get_obj().at("state").get_str();
  }

  const Options_Guard options_{options_with_test_ca()};
  const Sleep_Recorder sleeps_;
  Log_Capture log_;
  std::unique_ptr<Service_Process> service_;
  NFS_Operator exports_;
};

INSTANTIATE_TEST_SUITE_P(Over, NFS_Library, testing::Bool(), transport_name);

/// Tests that do not depend on the transport.
class Plain_NFS_Library : public NFS_Library {};
INSTANTIATE_TEST_SUITE_P(Over, Plain_NFS_Library, testing::Values(false), transport_name);

TEST_P(NFS_Library, a_path_is_exported_changed_and_withdrawn) {
  start("0");
  NFS_Operator::Record record = path("/srv/mail");
  string uuid;
  ASSERT_TRUE(exports_.export_record(record, uuid, 0));
  EXPECT_EQ(records().at(0).get_obj().at("path"), Value("/srv/mail"));
  EXPECT_EQ(records().at(0).get_obj().at("pseudo"), Value("/srv/mail"));
  record.readonly = true;
  record.nfsv3 = true;
  record.pseudo = "/mail";
  record.squash = "all_squash";
  record.clients = {"192.0.2.7", "192.0.2.8"};
  EXPECT_TRUE(exports_.update_record(record, uuid));
  Object kept = records().at(0).get_obj();
  EXPECT_EQ(Value(kept), Value(Object{{"uuid", uuid},
                                      {"pseudo", "/mail"},
                                      {"fsal", "VFS"},
                                      {"squash", "all_squash"},
                                      {"state", "exported"},
                                      {"protocols", "3"},
                                      {"access_type", "RO"},
                                      {"clients", Array{"192.0.2.7", "192.0.2.8"}},
                                      {"path", "/srv/mail"}}));
  EXPECT_TRUE(exports_.unexport_record(uuid, 0));
  EXPECT_TRUE(records().empty());
  EXPECT_TRUE(exports_.unexport_record(uuid, 0));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_P(Plain_NFS_Library, a_pool_is_exported) {
  start("0");
  NFS_Operator::Record record;
  record.type = NFS_Operator::TYPE_POOL;
  record.pool_uuid = fs_image_pool;
  string whole;
  EXPECT_TRUE(exports_.export_record(record, whole, 0));
  record.path = "/a";
  string part;
  EXPECT_TRUE(exports_.export_record(record, part, 0));
  EXPECT_EQ(records().size(), 2U);
  record.pool_uuid = fs_offline_pool;
  record.pseudo = "/other";
  EXPECT_FALSE(exports_.export_record(record, part, 0));
  EXPECT_EQ(records().size(), 2U);
}

TEST_P(Plain_NFS_Library, what_the_service_refuses_is_not_kept) {
  start("0");
  string uuid;
  EXPECT_FALSE(exports_.export_record(path("relative"), uuid, 0));
  NFS_Operator::Record record = path("/srv/mail");
  record.squash = "nobody knows";
  EXPECT_FALSE(exports_.export_record(record, uuid, 0));
  EXPECT_FALSE(exports_.update_record(path("/srv/mail"), uuid));
  EXPECT_FALSE(exports_.unexport_record(uuid, 0));
  EXPECT_TRUE(exports_.export_record(path("/srv/mail"), uuid, 0));
  EXPECT_FALSE(exports_.export_record(path("/srv/mail"), uuid, 0)) << "its pseudo path is taken";
  EXPECT_EQ(records().size(), 1U);
}

TEST_P(NFS_Library, sync_waits_until_the_record_is_taken_over) {
  start("0.3");
  const auto begin = std::chrono::steady_clock::now();
  string uuid;
  EXPECT_TRUE(exports_.export_record(path("/srv/mail"), uuid, 20));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
  EXPECT_EQ(state(uuid), "exported");
  EXPECT_TRUE(exports_.unexport_record(uuid, 4294967295U)) << "which is sent as -1";
  EXPECT_EQ(state(uuid), "");
}

TEST_P(Plain_NFS_Library, without_sync_it_is_taken_over_later) {
  start("600");
  string uuid;
  EXPECT_TRUE(exports_.export_record(path("/srv/mail"), uuid, 0));
  EXPECT_EQ(state(uuid), "pending");
  service_->kill();
  service_->start();
  EXPECT_EQ(state(uuid), "pending") << "that is part of the state";
}

TEST_P(Plain_NFS_Library, a_sync_that_is_too_short_fails_and_the_record_is_kept) {
  start("600");
  string uuid;
  EXPECT_FALSE(exports_.export_record(path("/srv/mail"), uuid, 1));
  EXPECT_EQ(state(uuid), "pending");
  EXPECT_THAT(service_->access_log().end()[-2], HasSubstr("sync=1\" status=503"));
}

TEST_P(Plain_NFS_Library, a_request_that_waits_does_not_keep_the_service_from_stopping) {
  service_ = std::make_unique<Service_Process>(
      Service_Settings{filesystem_lab(), {"--nfs-delay", "600", "--stop-timeout", "0.3"}});
  connect();
  string uuid;
  bool result = true;
  std::thread client([&] { result = exports_.export_record(path("/srv/mail"), uuid, 600); });
  while (records().empty())
    std::this_thread::yield();
  EXPECT_EQ(service_->stop(), 0);
  client.join();
  EXPECT_FALSE(result);
  service_->start();
  EXPECT_EQ(records().size(), 1U) << "what it waited for was kept";
}

TEST_P(Plain_NFS_Library, a_faulty_answer_comes_after_the_wait) {
  start("0.2");
  ask(*service_, "POST", "/zq/lab/faults",
      R"({"faults":[{"path":"/zq/r/nfs","kind":"reset_after_commit","times":1}]})");
  string uuid;
  EXPECT_FALSE(exports_.export_record(path("/srv/mail"), uuid, 20));
  EXPECT_EQ(state(uuid), "exported");
}

}  // namespace
}  // namespace zqpool::test
