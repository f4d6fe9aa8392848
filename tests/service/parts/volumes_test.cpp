#include "service/volumes/volumes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "service/api/message.h"
#include "service/volumes/check.h"
#include "tests/service/fixtures/lab_service.h"
#include "tests/service/fixtures/scsi_lab.h"

namespace zqpool::service {
namespace {

using test::iscsi_pool;
using testing::HasSubstr;

/// Functions of service/volumes/volumes.h, each in a transaction of its own.
class Volumes : public testing::Test {
 protected:
  template <typename Function>
  auto in(const Function& function) {
    Transaction transaction = lab_.database().begin(Access::write);
    if constexpr (std::is_void_v<decltype(function(transaction.db()))>) {
      function(transaction.db());
      transaction.commit();
    } else {
      auto out = function(transaction.db());
      transaction.commit();
      return out;
    }
  }
  /// The refusal that it ends with, whose transaction is rolled back.
  template <typename Function>
  std::string refusal(const Function& function) {
    try {
      in(function);
    } catch (const Request_Error& error) {
      return std::to_string(error.status()) + ' ' + error.what();
    }
    return "none";
  }

  Volume make(const std::string& name, Volume_Kind kind = Volume_Kind::filesystem) {
    return in([&](Connection& db) {
      return create_volume(db, {0, iscsi_pool, kind, name, 1 << 20, 1, {}, "2026"});
    });
  }
  Volume clone(const Snapshot& origin, const std::string& name) {
    return in([&](Connection& db) {
      return clone_volume(db, origin,
                          {0, iscsi_pool, Volume_Kind::filesystem, name, 1 << 20, 1, {}, "2026"});
    });
  }
  Snapshot snap(const Volume& volume, const std::string& id, bool recyclable = false) {
    return in([&](Connection& db) {
      return create_snapshot(db, volume, {0, id, 0, 0, recyclable, "2026"});
    });
  }
  void write(const Volume& volume, std::int64_t start, std::int64_t length) {
    in([&](Connection& db) { write_volume(db, volume, start, length, Reclaim::yes); });
  }
  void drop(const Snapshot& snapshot, bool delete_empty = false) {
    in([&](Connection& db) { delete_snapshot(db, snapshot, delete_empty); });
  }
  std::int64_t used() {
    return in(
        [](Connection& db) { return need_volume_pool(db, iscsi_pool, Access::read).used_size; });
  }
  /// "referenced/exclusive" of each snapshot, then of the volume.
  std::string sizes(const Volume& volume) {
    const Chain_Sizes sizes =
        in([&](Connection& db) { return Extent_Map(db, volume.number).sizes(); });
    std::string out;
    for (const auto& [seq, of] : sizes.snapshots) {
      out += std::to_string(seq) + ':' + std::to_string(of.referenced) + '/' +
             std::to_string(of.exclusive) + ' ';
    }
    return out + std::to_string(sizes.head.referenced) + '/' + std::to_string(sizes.head.exclusive);
  }
  std::string problems() {
    Array found;
    in([&](Connection& db) { volume_check().run(db, found); });
    return found.empty() ? "" : json_spirit::write(found);
  }

  test::Lab_Service lab_{test::scsi_lab()};
};

TEST_F(Volumes, what_is_written_is_exclusive_until_a_snapshot_reaches_it) {
  const Volume volume = make("v");
  EXPECT_EQ(sizes(volume), "0/0");
  write(volume, 100, 50);
  EXPECT_EQ(sizes(volume), "50/50");
  snap(volume, "s1");
  EXPECT_EQ(sizes(volume), "1:50/0 50/0");
  write(volume, 200, 10);
  EXPECT_EQ(sizes(volume), "1:50/0 60/10");
  EXPECT_EQ(used(), 60);
}

TEST_F(Volumes, what_is_written_over_stays_with_the_snapshot) {
  const Volume volume = make("v");
  write(volume, 0, 100);
  snap(volume, "s1");
  write(volume, 40, 20);
  EXPECT_EQ(sizes(volume), "1:100/20 100/20");
  EXPECT_EQ(used(), 120);
  write(volume, 40, 20);  // nothing reaches what was there
  EXPECT_EQ(used(), 120);
  write(volume, 30, 20);
  EXPECT_EQ(sizes(volume), "1:100/30 100/30");
  EXPECT_EQ(used(), 130);
  EXPECT_EQ(problems(), "");
}

TEST_F(Volumes, what_two_snapshots_reach_is_exclusive_to_neither) {
  const Volume volume = make("v");
  write(volume, 0, 100);
  const Snapshot first = snap(volume, "s1");
  const Snapshot second = snap(volume, "s2");
  write(volume, 0, 100);
  const Snapshot third = snap(volume, "s3");
  EXPECT_EQ(sizes(volume), "1:100/0 2:100/0 3:100/0 100/0");
  drop(first);
  EXPECT_EQ(sizes(volume), "2:100/100 3:100/0 100/0");
  EXPECT_EQ(used(), 200);
  drop(second);
  EXPECT_EQ(sizes(volume), "3:100/0 100/0");
  EXPECT_EQ(used(), 100);
  drop(third);
  EXPECT_EQ(sizes(volume), "100/100");
}

TEST_F(Volumes, a_discard_gives_room_back_that_no_snapshot_needs) {
  const Volume volume = make("v");
  write(volume, 0, 100);
  snap(volume, "s1");
  write(volume, 100, 100);
  in([&](Connection& db) { discard_volume(db, volume, 50, 100); });
  EXPECT_EQ(sizes(volume), "1:100/50 100/50");
  EXPECT_EQ(used(), 150);
}

TEST_F(Volumes, a_rollback_undoes_what_came_after_the_newest_snapshot) {
  const Volume volume = make("v");
  EXPECT_THAT(refusal([&](Connection& db) { roll_back_volume(db, volume); }),
              HasSubstr("409 filesystem 'v' has no snapshot"));
  write(volume, 0, 100);
  snap(volume, "s1");
  write(volume, 50, 100);
  in([&](Connection& db) { discard_volume(db, volume, 0, 10); });
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(in([&](Connection& db) { return roll_back_volume(db, volume); }).id, "s1");
    EXPECT_EQ(sizes(volume), "1:100/0 100/0");
    EXPECT_EQ(used(), 100);
  }
  EXPECT_EQ(problems(), "");
}

TEST_F(Volumes, numbers_of_snapshots_are_never_used_again) {
  const Volume volume = make("v");
  EXPECT_EQ(snap(volume, "s1").seq, 1);
  const Snapshot second = snap(volume, "s2");
  drop(second);
  EXPECT_EQ(snap(volume, "s3").seq, 3);
  EXPECT_EQ(snap(make("w"), "s4").seq, 1);
  EXPECT_THAT(refusal([&](Connection& db) {
                create_snapshot(db, volume, {0, "s1", 0, 0, false, ""});
              }),
              HasSubstr("409 there is a snapshot 's1' already"));
  EXPECT_THAT(refusal([&](Connection& db) {
                create_snapshot(db, volume, {0, "s5", 0, 3, false, ""});
              }),
              HasSubstr("takes a snapshot number from 4"));
  in([&](Connection& db) { create_snapshot(db, volume, {0, "s5", 0, 2147483647, false, ""}); });
  EXPECT_THAT(refusal([&](Connection& db) {
                create_snapshot(db, volume, {0, "s6", 0, 0, false, ""});
              }),
              HasSubstr("409 "));
}

TEST_F(Volumes, a_clone_shares_until_one_of_the_two_is_written) {
  const Volume volume = make("v");
  write(volume, 0, 100);
  const Snapshot origin = snap(volume, "s1");
  const Volume copy = clone(origin, "c");
  EXPECT_EQ(sizes(copy), "100/0");
  EXPECT_EQ(used(), 100);
  write(volume, 0, 100);
  EXPECT_EQ(sizes(volume), "1:100/0 100/100") << "the clone has it, too";
  write(copy, 20, 30);
  EXPECT_EQ(sizes(volume), "1:100/30 100/100");
  EXPECT_EQ(sizes(copy), "100/30");
  EXPECT_EQ(used(), 230);
  EXPECT_EQ(problems(), "");
  in([&](Connection& db) { delete_volume(db, copy, false); });
  EXPECT_EQ(sizes(volume), "1:100/100 100/100");
  EXPECT_EQ(used(), 200);
}

TEST_F(Volumes, a_clone_of_a_clone_shares_with_both) {
  const Volume volume = make("v");
  write(volume, 0, 90);
  const Volume first = clone(snap(volume, "s1"), "c1");
  write(first, 0, 30);
  const Volume second = clone(snap(first, "s2"), "c2");
  write(second, 15, 30);
  EXPECT_EQ(sizes(volume), "1:90/0 90/0");
  EXPECT_EQ(sizes(first), "1:90/0 90/0");
  EXPECT_EQ(sizes(second), "90/30");
  write(first, 0, 90);
  EXPECT_EQ(sizes(first), "1:90/15 90/90") << "of its first 30 bytes the clone has 15";
  EXPECT_EQ(used(), 90 + 30 + 30 + 90);
  EXPECT_EQ(problems(), "");
}

TEST_F(Volumes, a_clone_holds_its_origin) {
  const Volume volume = make("v");
  const Snapshot origin = snap(volume, "s1");
  const Volume copy = clone(origin, "c");
  EXPECT_THAT(refusal([&](Connection& db) { delete_snapshot(db, origin, false); }),
              HasSubstr("409 filesystem 'c' is a clone of snapshot 's1'"));
  EXPECT_THAT(refusal([&](Connection& db) { delete_volume(db, volume, true); }),
              HasSubstr("409 filesystem 'c' is a clone of a snapshot of filesystem 'v'"));
  in([&](Connection& db) { delete_volume(db, copy, false); });
  in([&](Connection& db) { delete_volume(db, volume, true); });
}

TEST_F(Volumes, with_snapshots_it_is_deleted_only_by_force) {
  const Volume volume = make("v");
  write(volume, 0, 100);
  snap(volume, "s1");
  EXPECT_THAT(refusal([&](Connection& db) { delete_volume(db, volume, false); }),
              HasSubstr("409 filesystem 'v' has snapshot 's1'"));
  in([&](Connection& db) { delete_volume(db, volume, true); });
  EXPECT_EQ(used(), 0);
  EXPECT_TRUE(in([&](Connection& db) {
    return was_volume_deleted(db, iscsi_pool, Volume_Kind::filesystem, "v") &&
           was_snapshot_deleted(db, iscsi_pool, Volume_Kind::filesystem, "s1") &&
           !was_volume_deleted(db, iscsi_pool, Volume_Kind::lun, "v") &&
           !was_snapshot_deleted(db, iscsi_pool, Volume_Kind::filesystem, "v");
  }));
  make("v");
  EXPECT_FALSE(in([&](Connection& db) {
    return was_volume_deleted(db, iscsi_pool, Volume_Kind::filesystem, "v");
  })) << "it is there again";
}

TEST_F(Volumes, the_last_snapshot_takes_an_unchanged_volume_along) {
  const auto is_there = [this](const std::string& name) {
    return in([&](Connection& db) {
      return find_volume(db, iscsi_pool, Volume_Kind::filesystem, name).has_value();
    });
  };
  const Volume volume = make("v");
  write(volume, 0, 100);
  const Snapshot first = snap(volume, "s1");
  const Snapshot second = snap(volume, "s2");
  drop(first, true);
  EXPECT_TRUE(is_there("v")) << "it has another snapshot";
  drop(second, true);
  EXPECT_FALSE(is_there("v"));
  EXPECT_EQ(used(), 0);

  const Volume written = make("w");
  const Snapshot before = snap(written, "s3");
  write(written, 0, 10);
  drop(before, true);
  EXPECT_TRUE(is_there("w")) << "it was written to since";
  write(written, 0, 10);
  const Snapshot between = snap(written, "s4");
  in([&](Connection& db) { discard_volume(db, written, 5, 1); });
  drop(between, true);
  EXPECT_TRUE(is_there("w")) << "something was discarded since";
  drop(snap(written, "s5"), false);
  EXPECT_TRUE(is_there("w")) << "nobody asked for it";
}

TEST_F(Volumes, ranges_lie_within_the_volume) {
  const Volume volume = make("v");
  const auto write_at = [&](std::int64_t start, std::int64_t length) {
    return refusal([&](Connection& db) { write_volume(db, volume, start, length, Reclaim::yes); });
  };
  EXPECT_EQ(write_at((1 << 20) - 1, 1), "none");
  EXPECT_THAT(write_at(1 << 20, 1), HasSubstr("422 offset"));
  EXPECT_THAT(write_at(0, (1 << 20) + 1), HasSubstr("422 offset"));
  EXPECT_THAT(write_at(1, INT64_MAX), HasSubstr("422 offset"));
  EXPECT_THAT(write_at(0, 0), HasSubstr("422 length"));
}

TEST_F(Volumes, a_full_pool_reclaims_the_oldest_that_nobody_needs) {
  test::Lab_Service small(test::scsi_lab(1000));
  small.load(test::scsi_lab(1000), true);
  Transaction transaction = small.database().begin(Access::write);
  Connection& db = transaction.db();
  const Volume volume =
      create_volume(db, {0, iscsi_pool, Volume_Kind::filesystem, "v", {}, 1, {}, "2026"});
  const auto take = [&](const std::string& id, bool recyclable, const std::string& created) {
    write_volume(db, volume, 0, 200, Reclaim::yes);
    return create_snapshot(db, volume, {0, id, 0, 0, recyclable, created});
  };
  take("kept", false, "1");
  const Snapshot cloned = take("cloned", true, "2");
  take("younger", true, "4");
  take("older", true, "3");
  clone_volume(db, cloned, {0, iscsi_pool, Volume_Kind::filesystem, "c", {}, 1, {}, "2026"});
  using Ids = std::vector<std::string>;
  EXPECT_EQ(write_volume(db, volume, 0, 200, Reclaim::yes), Ids{});
  EXPECT_EQ(write_volume(db, volume, 200, 1, Reclaim::yes), Ids{"older"});
  EXPECT_EQ(write_volume(db, volume, 200, 201, Reclaim::yes), Ids{"younger"});
  EXPECT_EQ(write_volume(db, volume, 200, 400, Reclaim::yes), Ids{});
  try {
    write_volume(db, volume, 200, 401, Reclaim::yes);
    ADD_FAILURE() << "there was room";
  } catch (const Request_Error& error) {
    EXPECT_EQ(error.status(), 507U);
    EXPECT_THAT(error.what(), HasSubstr("has 400 bytes free, 401 are needed"));
  }
}

TEST_F(Volumes, a_pool_that_is_not_writable_is_not_changed) {
  for (const char* state : {"readonly", "offline"}) {
    lab_.load(R"({"pools":[{"uuid":")" + iscsi_pool + R"(","name":"luns","type":"scsi","state":")" +
                  state + "\"}]}",
              false);
    EXPECT_EQ(refusal([&](Connection& db) { need_volume_pool(db, iscsi_pool, Access::write); }),
              "409 pool '" + iscsi_pool + "' is " + state);
    EXPECT_EQ(refusal([&](Connection& db) { need_volume_pool(db, iscsi_pool, Access::read); }),
              "none");
  }
}

TEST_F(Volumes, the_check_finds_sizes_that_are_wrong) {
  const Volume volume = make("v");
  write(volume, 0, 100);
  snap(volume, "s1");
  write(volume, 0, 50);
  EXPECT_EQ(problems(), "");
  const std::vector<std::pair<const char*, const char*>> damages = {
      {"UPDATE volume_pool SET used_size = used_size + 1",
       "what is used is reported as 151, is 150"},
      {"UPDATE volume_extent SET start = 40 WHERE start = 50", "written twice at 40"},
      {"DELETE FROM volume_snapshot", "data that nothing reaches"},
      {"UPDATE volume SET size = 80", "written beyond the end"},
      {"UPDATE volume SET next_seq = 1", "has a number that was not given out yet"},
      {"UPDATE volume_extent SET data = 1, data_start = 0", "has data twice"},
  };
  for (const auto& [damage, expected] : damages) {
    Transaction transaction = lab_.database().begin(Access::write);
    transaction.db().database().exec(damage);
    Array found;
    volume_check().run(transaction.db(), found);
    EXPECT_THAT(json_spirit::write(found), HasSubstr(expected)) << damage;
  }
  EXPECT_EQ(problems(), "") << "each was rolled back";
}

// ---- against a plain model

/// Volumes of a few cells; what is in a cell is the number of the write that filled it, 0 for none.
using Cells = std::vector<int>;

struct Model_Volume {
  Volume volume;
  Cells now;
  std::vector<std::pair<Snapshot, Cells>> snapshots;
};

class Volumes_Model : public Volumes, public testing::WithParamInterface<unsigned> {
 protected:
  static constexpr std::size_t cells = 24;
  static constexpr std::int64_t cell = 7;

  /// How many images reach each write's cell: a write fills a cell of its own.
  std::map<std::pair<int, std::size_t>, int> reached() const {
    std::map<std::pair<int, std::size_t>, int> out;
    const auto add = [&out](const Cells& image) {
      for (std::size_t i = 0; i < image.size(); ++i) {
        if (image[i] != 0) ++out[{image[i], i}];
      }
    };
    for (const auto& [name, each] : volumes_) {
      add(each.now);
      for (const auto& [snapshot, image] : each.snapshots)
        add(image);
    }
    return out;
  }
  void compare() {
    const auto by_write = reached();
    EXPECT_EQ(used(), static_cast<std::int64_t>(by_write.size()) * cell);
    const auto text = [&](const Cells& image) {
      std::int64_t referenced = 0;
      std::int64_t exclusive = 0;
      for (std::size_t i = 0; i < image.size(); ++i) {
        if (image[i] == 0) continue;
        referenced += cell;
        if (by_write.at({image[i], i}) == 1) exclusive += cell;
      }
      return std::to_string(referenced) + '/' + std::to_string(exclusive);
    };
    for (const auto& [name, each] : volumes_) {
      std::string expected;
      for (const auto& [snapshot, image] : each.snapshots) {
        expected += std::to_string(snapshot.seq) + ':' + text(image) + ' ';
      }
      EXPECT_EQ(sizes(each.volume), expected + text(each.now)) << name;
    }
  }
  bool has_clone(const Snapshot& snapshot) const {
    return std::any_of(volumes_.begin(), volumes_.end(), [&](const auto& each) {
      return each.second.volume.origin == snapshot.number;
    });
  }

  std::map<std::string, Model_Volume> volumes_;
};

INSTANTIATE_TEST_SUITE_P(Seeds, Volumes_Model, testing::Values(1U, 2U, 3U, 4U, 5U, 6U));

TEST_P(Volumes_Model, sizes_agree_after_every_step) {
  std::mt19937 random(GetParam());
  const auto below = [&](std::size_t bound) { return random() % bound; };
  int last = 0;
  int done = 0;
  for (int step = 0; step < 250; ++step) {
    const std::string name = "v" + std::to_string(step);
    if (volumes_.empty() || below(25) == 0) {
      volumes_[name] = {make(name), Cells(cells, 0), {}};
      continue;
    }
    auto at = volumes_.begin();
    std::advance(at, below(volumes_.size()));
    Model_Volume& model = at->second;
    const std::size_t from = below(cells);
    const std::size_t count = 1 + below(cells - from);
    const std::size_t action = below(20);
    if (action < 8) {
      write(model.volume, static_cast<std::int64_t>(from) * cell,
            static_cast<std::int64_t>(count) * cell);
      ++last;
      std::fill_n(model.now.begin() + static_cast<std::ptrdiff_t>(from), count, last);
    } else if (action < 10) {
      in([&](Connection& db) {
        discard_volume(db, model.volume, static_cast<std::int64_t>(from) * cell,
                       static_cast<std::int64_t>(count) * cell);
      });
      std::fill_n(model.now.begin() + static_cast<std::ptrdiff_t>(from), count, 0);
    } else if (action < 14) {
      model.snapshots.emplace_back(snap(model.volume, "s" + std::to_string(step)), model.now);
    } else if (model.snapshots.empty()) {
      continue;
    } else if (action < 16) {
      in([&](Connection& db) { roll_back_volume(db, model.volume); });
      model.now = model.snapshots.back().second;
    } else if (action < 18) {
      const std::size_t which = below(model.snapshots.size());
      const Snapshot snapshot = model.snapshots[which].first;
      const auto drop_it = [&](Connection& db) { delete_snapshot(db, snapshot, false); };
      if (has_clone(snapshot)) {
        EXPECT_THAT(refusal(drop_it), HasSubstr("409 "));
      } else {
        in(drop_it);
        model.snapshots.erase(model.snapshots.begin() + static_cast<std::ptrdiff_t>(which));
      }
    } else if (action < 19) {
      const auto& [snapshot, image] = model.snapshots[below(model.snapshots.size())];
      volumes_[name] = {clone(snapshot, name), image, {}};
    } else {
      const bool held =
          std::any_of(model.snapshots.begin(), model.snapshots.end(),
                      [this](const auto& snapshot) { return has_clone(snapshot.first); });
      const auto delete_it = [&](Connection& db) { delete_volume(db, model.volume, true); };
      if (held) {
        EXPECT_THAT(refusal(delete_it), HasSubstr("409 "));
      } else {
        in(delete_it);
        volumes_.erase(at);
      }
    }
    ++done;
    compare();
    if (step % 25 == 0) {
      EXPECT_EQ(problems(), "");
    }
    if (HasFailure()) FAIL() << "at step " << step;
  }
  EXPECT_GT(done, 150);
  EXPECT_EQ(problems(), "");
}

}  // namespace
}  // namespace zqpool::service
