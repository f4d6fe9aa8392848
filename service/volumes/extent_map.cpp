#include "service/volumes/extent_map.h"

#include <algorithm>
#include <string>

namespace zqpool::service {

namespace {

// Statements that share their columns.
const std::string all_extents =
    "SELECT number, start, length, born, died, data, data_start FROM volume_extent "
    "WHERE volume = ?1";
// Live extents do not overlap: only the last one that begins before a range can reach into it.
const std::string live_extents_in =
    all_extents +
    " AND died IS NULL AND start < ?3 AND start >= ifnull((SELECT max(start) FROM volume_extent "
    "WHERE volume = ?1 AND died IS NULL AND start <= ?2), ?2) ORDER BY start";
const std::string live_extents_since = all_extents + " AND died IS NULL AND born > ?2";
const std::string extents_of_one_snapshot =
    all_extents + " AND died > ?2 AND (?3 IS NULL OR died <= ?3) AND born > ?4 AND born <= ?2";
const char* const insert_extent =
    "INSERT INTO volume_extent (volume, start, length, born, died, data, data_start) "
    "VALUES (?, ?, ?, ?, ?, ?, ?)";

using Range = Extent_Map::Range;

/// Sorts the ranges, which do not overlap, and joins those that touch.
void tidy(std::vector<Range>& ranges) {
  std::sort(ranges.begin(), ranges.end(),
            [](const Range& a, const Range& b) { return a.start < b.start; });
  std::vector<Range> out;
  for (const Range& range : ranges) {
    if (!out.empty() && out.back().end == range.start) {
      out.back().end = range.end;
    } else {
      out.push_back(range);
    }
  }
  ranges = std::move(out);
}

/// The parts of `ranges` that are not in `others`; both are tidy.
std::vector<Range> without(const std::vector<Range>& ranges, const std::vector<Range>& others) {
  std::vector<Range> out;
  auto other = others.begin();
  for (const Range& range : ranges) {
    std::int64_t start = range.start;
    while (other != others.end() && other->end <= start)
      ++other;
    for (auto it = other; it != others.end() && it->start < range.end; ++it) {
      if (it->start > start) out.push_back({start, it->start});
      start = it->end;
    }
    if (start < range.end) out.push_back({start, range.end});
  }
  return out;
}

}  // namespace

Extent_Map::Extent_Map(Connection& db, std::int64_t volume)
    : db_(db),
      volume_(volume),
      epoch_(db.integer("SELECT next_seq FROM volume WHERE number = ?", volume)) {
  for (Statement row(db, "SELECT seq FROM volume_snapshot WHERE volume = ? ORDER BY seq", volume);
       row.next();) {
    snapshots_.push_back(row.integer(0));
  }
}

Extent_Map::Extent Extent_Map::read(const Statement& row) {
  Extent out{row.integer(0), row.integer(1), row.integer(2), row.integer(3),
             std::nullopt,   row.integer(5), row.integer(6)};
  if (!row.is_null(4)) out.died = row.integer(4);
  return out;
}

std::vector<Extent_Map::Extent> Extent_Map::read_all(Statement&& rows) {
  std::vector<Extent> out;
  while (rows.next())
    out.push_back(read(rows));
  return out;
}

void Extent_Map::insert(const Extent& extent) {
  db_.execute(insert_extent, volume_, extent.start, extent.length, extent.born, extent.died,
              extent.data, extent.data_start);
}

std::int64_t Extent_Map::remove(const std::vector<Extent>& extents) {
  std::int64_t freed = 0;
  for (const Extent& extent : extents) {
    freed += unshared(extent);
    db_.execute("DELETE FROM volume_extent WHERE number = ?", extent.number);
  }
  return freed;
}

std::int64_t Extent_Map::unshared(const Extent& extent) const {
  const std::int64_t end = extent.data_start + extent.length;
  std::int64_t out = extent.length;
  std::int64_t counted = extent.data_start;  // shared bytes before this are subtracted already
  for (Statement row(db_,
                     "SELECT data_start, data_start + length FROM volume_extent "
                     "WHERE data = ?1 AND volume <> ?2 AND data_start < ?3 "
                     "AND data_start + length > ?4 ORDER BY data_start",
                     extent.data, volume_, end, extent.data_start);
       row.next();) {
    const std::int64_t from = std::max(row.integer(0), counted);
    const std::int64_t to = std::min(row.integer(1), end);
    if (to <= from) continue;
    out -= to - from;
    counted = to;
  }
  return out;
}

std::vector<Extent_Map::Extent> Extent_Map::live_in(std::int64_t start, std::int64_t end) const {
  std::vector<Extent> out = read_all({db_, live_extents_in, volume_, start, end});
  if (!out.empty() && out.front().start + out.front().length <= start) out.erase(out.begin());
  return out;
}

std::int64_t Extent_Map::clear(std::int64_t start, std::int64_t length) {
  const std::int64_t end = start + length;
  const auto part = [](const Extent& whole, std::int64_t from, std::int64_t to) {
    Extent out = whole;
    out.start = from;
    out.length = to - from;
    out.data_start += from - whole.start;
    return out;
  };
  std::int64_t freed = 0;
  for (const Extent& extent : live_in(start, end)) {
    const std::int64_t extent_end = extent.start + extent.length;
    db_.execute("DELETE FROM volume_extent WHERE number = ?", extent.number);
    if (extent.start < start) insert(part(extent, extent.start, start));
    if (end < extent_end) insert(part(extent, end, extent_end));
    Extent gone = part(extent, std::max(extent.start, start), std::min(extent_end, end));
    if (!snapshots_.empty() && snapshots_.back() >= gone.born) {
      gone.died = epoch_;
      insert(gone);
    } else {
      freed += unshared(gone);
    }
  }
  return freed;
}

void Extent_Map::add(std::int64_t start, std::int64_t length) {
  const std::int64_t last = db_.integer("SELECT ifnull(max(data), 0) FROM volume_extent");
  insert({0, start, length, epoch_, std::nullopt, last + 1, 0});
}

std::int64_t Extent_Map::drop_snapshot(std::int64_t seq) {
  const auto it = std::lower_bound(snapshots_.begin(), snapshots_.end(), seq);
  const std::int64_t before = it == snapshots_.begin() ? -1 : *(it - 1);
  std::optional<std::int64_t> after;
  if (it != snapshots_.end() && it + 1 != snapshots_.end()) after = *(it + 1);
  const std::int64_t freed =
      remove(read_all({db_, extents_of_one_snapshot, volume_, seq, after, before}));
  if (it != snapshots_.end() && *it == seq) snapshots_.erase(it);
  return freed;
}

std::int64_t Extent_Map::roll_back() {
  const std::int64_t newest = snapshots_.back();
  const std::int64_t freed = remove(read_all({db_, live_extents_since, volume_, newest}));
  db_.execute("UPDATE volume_extent SET died = NULL WHERE volume = ? AND died > ?", volume_,
              newest);
  return freed;
}

std::int64_t Extent_Map::drop_all() {
  return remove(read_all({db_, all_extents, volume_}));
}

void Extent_Map::copy_from(std::int64_t volume, std::int64_t seq) {
  db_.execute(
      "INSERT INTO volume_extent (volume, start, length, born, died, data, data_start) "
      "SELECT ?1, start, length, 0, NULL, data, data_start FROM volume_extent "
      "WHERE volume = ?2 AND born <= ?3 AND (died IS NULL OR died > ?3)",
      volume_, volume, seq);
}

bool Extent_Map::is_unchanged_since(std::int64_t seq) const {
  return !db_.has_row(
      "SELECT 1 FROM volume_extent WHERE volume = ?1 AND died IS NULL "
      "AND born > ?2 UNION ALL "
      "SELECT 1 FROM volume_extent WHERE volume = ?1 AND died > ?2 LIMIT 1",
      volume_, seq);
}

std::size_t Extent_Map::position(std::int64_t epoch) const {
  return static_cast<std::size_t>(std::lower_bound(snapshots_.begin(), snapshots_.end(), epoch) -
                                  snapshots_.begin());
}

Chain_Sizes Extent_Map::sizes() const {
  // Positions in the chain: its snapshots, then the head. A range of them reaches each extent.
  const std::size_t head = snapshots_.size();
  std::vector<std::int64_t> change(head + 2,
                                   0);  // of the referenced size, at each position
  std::vector<std::int64_t> exclusive(head + 1, 0);
  for (Statement row(db_, all_extents, volume_); row.next();) {
    const Extent extent = read(row);
    const std::size_t first = position(extent.born);
    const std::size_t end = extent.died ? position(*extent.died) : head + 1;
    change[first] += extent.length;
    change[end] -= extent.length;
    if (end == first + 1) exclusive[first] += unshared(extent);
  }
  Chain_Sizes out;
  std::int64_t referenced = 0;
  for (std::size_t i = 0; i < head; ++i) {
    referenced += change[i];
    out.snapshots[snapshots_[i]] = {referenced, exclusive[i]};
  }
  out.head = {referenced + change[head], exclusive[head]};
  return out;
}

std::vector<Extent_Map::Changes> Extent_Map::changes() const {
  std::vector<Changes> out(snapshots_.size() + 1);
  for (Statement row(db_, all_extents, volume_); row.next();) {
    const Extent extent = read(row);
    const Range range{extent.start, extent.start + extent.length};
    // The initial content of a clone was not written to it.
    if (extent.born > 0) out[position(extent.born)].written.push_back(range);
    if (extent.died) out[position(*extent.died)].discarded.push_back(range);
  }
  for (Changes& changes : out) {
    tidy(changes.written);
    tidy(changes.discarded);
    changes.discarded = without(changes.discarded, changes.written);
  }
  return out;
}

}  // namespace zqpool::service
