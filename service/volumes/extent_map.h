#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "service/store/database.h"

namespace zqpool::service {

/// Sizes in bytes of a volume as it is now, or of one of its snapshots.
struct Sizes {
  std::int64_t referenced = 0;  ///< reachable from it
  std::int64_t exclusive = 0;   ///< of that, not reachable from any other snapshot or volume
};

struct Chain_Sizes {
  Sizes head;                               ///< the volume as it is now
  std::map<std::int64_t, Sizes> snapshots;  ///< by "seq"
};

/// What was written to one volume, and when.
///
/// The map is a set of extents: ranges that were written at once. A volume's epochs are numbered
/// like its snapshots, and snapshot n ends epoch n. An extent is born in the epoch in which it was
/// written and dies in the one in which it is written over, so that snapshot n reaches those with
/// born <= n < died. An extent that nothing reaches any more is deleted at once.
///
/// A clone begins with copies of the extents that its origin reaches, born in epoch 0, before its
/// first one. Copies refer to the same data: volumes share the bytes where the data ranges of their
/// extents overlap. Within one volume no two extents share data.
///
/// The list of snapshots is read once, in the constructor.
class Extent_Map {
 public:
  Extent_Map(Connection& db, std::int64_t volume);

  /// The functions that change the map return how many bytes became free: those that neither this
  /// nor another volume reaches any more.

  /// Clears the range; snapshots keep what they reach.
  std::int64_t clear(std::int64_t start, std::int64_t length);
  /// Writes the range, which must be clear.
  void add(std::int64_t start, std::int64_t length);
  /// Removes what only this snapshot reaches.
  std::int64_t drop_snapshot(std::int64_t seq);
  /// Undoes the writes since the newest snapshot, which must exist.
  std::int64_t roll_back();
  /// Removes everything.
  std::int64_t drop_all();
  /// Fills this empty map with the content of another volume's snapshot.
  void copy_from(std::int64_t volume, std::int64_t seq);

  /// Whether the volume has not changed since this snapshot, its newest.
  bool is_unchanged_since(std::int64_t seq) const;
  /// Exact, in one pass over the map.
  Chain_Sizes sizes() const;

  /// The changes before each snapshot and after the last one, as far as the map shows them.
  struct Range {
    std::int64_t start;
    std::int64_t end;
  };
  struct Changes {
    std::vector<Range> discarded;
    std::vector<Range> written;
  };
  std::vector<Changes> changes() const;

 private:
  struct Extent {
    std::int64_t number = 0;
    std::int64_t start = 0;
    std::int64_t length = 0;
    std::int64_t born = 0;
    std::optional<std::int64_t> died;
    std::int64_t data = 0;
    std::int64_t data_start = 0;
  };

  static Extent read(const Statement& row);
  static std::vector<Extent> read_all(Statement&& rows);
  void insert(const Extent& extent);
  std::int64_t remove(const std::vector<Extent>& extents);
  /// The position in the chain of the first snapshot that can reach an epoch's extents.
  std::size_t position(std::int64_t epoch) const;
  /// Bytes of the extent that no other volume reaches.
  std::int64_t unshared(const Extent& extent) const;
  std::vector<Extent> live_in(std::int64_t start, std::int64_t end) const;

  Connection& db_;
  std::int64_t volume_;
  std::int64_t epoch_;
  std::vector<std::int64_t> snapshots_;  ///< their numbers, ascending
};

}  // namespace zqpool::service
