#include "service/volumes/check.h"

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "service/volumes/volumes.h"

namespace zqpool::service {

namespace {

// Deliberately simple and independent of how Extent_Map computes sizes: finds the owners of each
// extent, then goes through the data range by range.

struct Extent {
  std::int64_t volume;
  std::int64_t start;
  std::int64_t end;
  std::int64_t data_start;
  std::int64_t data_end;
  std::vector<std::size_t> owners;
};

/// Something that reaches data: a volume as it is now, or a snapshot.
struct Owner {
  std::string name;
  std::string pool;
  Sizes told;
  Sizes found;
  std::vector<std::pair<std::int64_t, std::int64_t>> ranges;  ///< of the volume that it reaches
};

struct State_Of_Volumes {
  std::vector<Owner> owners;
  std::map<std::int64_t, std::vector<Extent>> by_data;
  std::map<std::string, std::int64_t> used;  ///< by pool
};

void read_extents(Connection& db, const Volume& volume, State_Of_Volumes& state, Array& problems) {
  const std::string name = described(volume);
  const Chain_Sizes told = Extent_Map(db, volume.number).sizes();
  const std::size_t head = state.owners.size();
  state.owners.push_back({name, volume.pool, told.head, {}, {}});
  const std::vector<Snapshot> snapshots = snapshots_of(db, volume);
  for (const Snapshot& snapshot : snapshots) {
    const auto sizes = told.snapshots.find(snapshot.seq);
    state.owners.push_back({name + " snapshot " + std::to_string(snapshot.seq),
                            volume.pool,
                            sizes == told.snapshots.end() ? Sizes{} : sizes->second,
                            {},
                            {}});
    if (snapshot.seq >= volume.next_seq) {
      problems.emplace_back(state.owners.back().name + " has a number that was not given out yet");
    }
  }
  for (Statement row(db,
                     "SELECT start, length, born, ifnull(died, 9223372036854775807), data, "
                     "data_start FROM volume_extent WHERE volume = ?",
                     volume.number);
       row.next();) {
    const std::int64_t length = row.integer(1);
    Extent extent{volume.number,  row.integer(0),          row.integer(0) + length,
                  row.integer(5), row.integer(5) + length, {}};
    const std::int64_t born = row.integer(2);
    const std::int64_t died = row.integer(3);
    for (std::size_t i = 0; i < snapshots.size(); ++i) {
      if (born <= snapshots[i].seq && snapshots[i].seq < died) {
        extent.owners.push_back(head + 1 + i);
      }
    }
    if (died > volume.next_seq) extent.owners.push_back(head);
    const std::string place = name + " at " + std::to_string(extent.start);
    if (extent.owners.empty()) problems.emplace_back(place + ": data that nothing reaches");
    if (born > volume.next_seq) problems.emplace_back(place + ": written in a future epoch");
    if (volume.size && extent.end > *volume.size) {
      problems.emplace_back(place + ": written beyond the end");
    }
    for (const std::size_t owner : extent.owners) {
      state.owners[owner].ranges.emplace_back(extent.start, extent.end);
    }
    state.by_data[row.integer(4)].push_back(std::move(extent));
  }
}

void find_referenced(Owner& owner, Array& problems) {
  std::sort(owner.ranges.begin(), owner.ranges.end());
  std::int64_t end = 0;
  for (const auto& [from, to] : owner.ranges) {
    if (from < end)
      problems.emplace_back(owner.name + ": written twice at " + std::to_string(from));
    owner.found.referenced += to - from;
    end = to;
  }
}

/// Cuts the data of one write into pieces that each have one set of owners.
void find_exclusive(const std::vector<Extent>& extents, State_Of_Volumes& state, Array& problems) {
  std::set<std::int64_t> cuts;
  for (const Extent& extent : extents) {
    cuts.insert(extent.data_start);
    cuts.insert(extent.data_end);
  }
  for (auto from = cuts.begin(); std::next(from) != cuts.end(); ++from) {
    const std::int64_t to = *std::next(from);
    std::set<std::size_t> owners;
    std::set<std::int64_t> volumes;
    for (const Extent& extent : extents) {
      if (extent.data_start > *from || extent.data_end < to) continue;
      owners.insert(extent.owners.begin(), extent.owners.end());
      if (!volumes.insert(extent.volume).second) {
        problems.emplace_back("volume " + std::to_string(extent.volume) + " has data twice");
      }
    }
    if (owners.empty()) continue;
    state.used[state.owners[*owners.begin()].pool] += to - *from;
    if (owners.size() == 1) state.owners[*owners.begin()].found.exclusive += to - *from;
  }
}

void compare(const std::string& place, const char* what, std::int64_t told, std::int64_t found,
             Array& problems) {
  if (told == found) return;
  problems.emplace_back(place + ": " + what + " is reported as " + std::to_string(told) + ", is " +
                        std::to_string(found));
}

std::int64_t check_volumes(Connection& db, Array& problems) {
  State_Of_Volumes state;
  for (Statement row(db, "SELECT number FROM volume ORDER BY number"); row.next();) {
    read_extents(db, volume_by_number(db, row.integer(0)), state, problems);
  }
  for (const auto& [data, extents] : state.by_data)
    find_exclusive(extents, state, problems);
  for (Owner& owner : state.owners) {
    find_referenced(owner, problems);
    compare(owner.name, "what it references", owner.told.referenced, owner.found.referenced,
            problems);
    compare(owner.name, "what is exclusive", owner.told.exclusive, owner.found.exclusive, problems);
  }
  for (Statement row(db, "SELECT uuid, used_size, total_size FROM volume_pool"); row.next();) {
    compare("pool '" + row.text(0) + '\'', "what is used", row.integer(1), state.used[row.text(0)],
            problems);
    if (row.integer(1) > row.integer(2)) {
      problems.emplace_back("pool '" + row.text(0) + "' uses more than its size");
    }
  }
  return static_cast<std::int64_t>(state.owners.size());
}

}  // namespace

Check volume_check() {
  return {"volumes", check_volumes};
}

}  // namespace zqpool::service
