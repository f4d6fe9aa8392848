#include "service/volumes/history.h"

#include "service/api/text.h"

namespace zqpool::service {

namespace {

Snapshot read_step(Request_Fields& fields) {
  Snapshot out;
  out.id = lower_case(fields.uuid("snapshot_id"));
  out.seq = fields.count_or("seq", 0);
  out.recyclable = fields.flag_or("recycle", false);
  out.created = read_created(fields);
  return out;
}

void load_step(Connection& db, const Volume& volume, Request_Fields& step,
               const std::function<void(Request_Fields&, const Snapshot&)>& load_more) {
  Request_Fields* what = nullptr;
  std::string kind;
  for (const char* each : {"write", "discard", "snapshot"}) {
    if (!step.has(each)) continue;
    if (what) step.refuse(each, "cannot be combined with another step");
    kind = each;
    what = step.optional_object(each);
  }
  if (!what) {
    step.finish();
    step.refuse("write", "is missing, and so are discard and snapshot", 400);
  }

  if (kind == "snapshot") {
    load_more(*what, create_snapshot(db, volume, read_step(*what)));
    return;
  }
  const std::int64_t offset = what->count("offset");
  const std::int64_t length = what->count("length");
  if (kind == "write") {
    write_volume(db, volume, offset, length, Reclaim::no);
  } else {
    discard_volume(db, volume, offset, length);
  }
}

void dump_ranges(const char* kind, const std::vector<Extent_Map::Range>& ranges, Array& steps) {
  for (const Extent_Map::Range& range : ranges) {
    steps.emplace_back(
        Object{{kind, Object{{"offset", range.start}, {"length", range.end - range.start}}}});
  }
}

}  // namespace

void load_history(Connection& db, const Volume& volume, Request_Fields& entry,
                  const std::function<void(Request_Fields&, const Snapshot&)>& load_more) {
  std::size_t number = 0;
  for (Request_Fields& step : entry.optional_objects("history")) {
    try {
      load_step(db, volume, step, load_more);
    } catch (const Request_Error& error) {
      throw placed(error, entry.place("history") + '[' + std::to_string(number) + ']');
    }
    ++number;
  }
  if (const auto next = entry.optional_count("next_seq")) {
    raise_next_seq(db, volume_by_number(db, volume.number), *next);
  }
}

void dump_history(Connection& db, const Volume& volume, Object& entry,
                  const std::function<void(Object&, const Snapshot&)>& dump_more) {
  const std::vector<Snapshot> snapshots = snapshots_of(db, volume);
  const std::vector<Extent_Map::Changes> changes = Extent_Map(db, volume.number).changes();
  Array steps;
  std::int64_t next = 1;
  for (std::size_t i = 0; i < changes.size(); ++i) {
    dump_ranges("discard", changes[i].discarded, steps);
    dump_ranges("write", changes[i].written, steps);
    if (i == snapshots.size()) break;
    const Snapshot& snapshot = snapshots[i];
    Object step{{"snapshot_id", snapshot.id},
                {"recycle", snapshot.recyclable},
                {"created", snapshot.created}};
    if (snapshot.seq != next) step.emplace("seq", snapshot.seq);
    next = snapshot.seq + 1;
    dump_more(step, snapshot);
    steps.emplace_back(Object{{"snapshot", std::move(step)}});
  }
  if (!steps.empty()) entry.emplace("history", std::move(steps));
  if (volume.next_seq != next) entry.emplace("next_seq", volume.next_seq);
}

}  // namespace zqpool::service
