#include "utils/pool/detail/snapshot_chain.h"

#include <cstddef>
#include <cstdint>
#include <exception>

#include "utils/pool/detail/answer.h"
#include "utils/support/json_util.h"

namespace zqpool::detail {
namespace {

struct Sizes {
  std::uint64_t excl = 0;
  std::uint64_t rfer = 0;
};

Sizes read_sizes(const Object& snapshot) {
  Sizes sizes;
  const Const_Object_Throw_Extractor extract(snapshot);
  extract("excl_size", sizes.excl, true);
  extract("rfer_size", sizes.rfer, true);
  return sizes;
}

/// Called before `list[i]` is looked at. A walk over a list larger than the cache waits for memory
/// at every object, so the processor is asked for one that comes soon. Its members mostly lie
/// around the first of them; where they do not, a few loads were for nothing. (The platform's walks
/// have the like inside, out of reach from here: another platform need not offer it.)
void prefetch_ahead(const Array& list, std::size_t i) {
  constexpr std::size_t ahead = 2;
  constexpr std::uintptr_t line = 64;
  constexpr std::uintptr_t lines = 8;
  if (list.size() - i <= ahead || !is_object(list[i + ahead])) return;
  const Object& object = list[i + ahead].get_obj();
  if (object.empty()) return;
  const auto first = reinterpret_cast<std::uintptr_t>(&*object.begin());
  for (auto at = first - lines * line; at <= first + lines * line; at += line) {
    __builtin_prefetch(reinterpret_cast<const void*>(at));
  }
}

}  // namespace

bool get_previous_snapshot(const Place& place, const Snapshot_Chain& chain,
                           const std::string& snapshot_id, Object& info) {
  Object current;
  if (!chain.describe(current)) {
    return ZQ_LOG_AT(place, LM_ERROR,
                     "Failed to get previous snapshot: failed to get current snapshot info\n");
  }
  std::string parent_id;
  int current_seq = 0;
  try {
    const Const_Object_Throw_Extractor extract(current);
    extract("parent_id", parent_id, true);
    extract("seq", current_seq, true);
  } catch (const std::exception& error) {
    return ZQ_LOG_AT(place, LM_ERROR, "Failed to get previous snapshot: %s\n", error.what());
  }
  json_spirit::Value answer;
  if (!chain.list(parent_id, answer) || !is_array(answer)) {
    return ZQ_LOG_AT(place, LM_ERROR, "Failed to get %s previous snapshot info.\n",
                     snapshot_id.c_str());
  }
  if (answer.get_array().empty()) return false;

  // The best is taken out of the list only at the end, because a message may show the whole list.
  Object* best = nullptr;
  int best_seq = -1;
  bool good = true;
  Array& list = answer.get_array();
  for (std::size_t i = 0; i < list.size(); ++i) {
    prefetch_ahead(list, i);
    json_spirit::Value& element = list[i];
    int seq = 0;
    if (!is_object(element)) {
      good = ZQ_LOG_AT(place, LM_EMERGENCY, "Unexpected error in %N:%l, i is not object!\n");
      break;
    }
    if (!json_spirit::object_get(element.get_obj(), "seq", seq)) {
      chain.complain(answer, parent_id);
      good = false;
      break;
    }
    if (best_seq <= seq && seq < current_seq) {
      best_seq = seq;
      best = &element.get_obj();
    }
  }
  if (best != nullptr) info.swap(*best);
  // It looks the wrong way round, but callers count on it.
  return good && info.empty();
}

bool added_size(const Place& place, const Object& current, const Object& previous,
                std::uint64_t& size) {
  Sizes before;
  Sizes now;
  try {
    if (!previous.empty()) before = read_sizes(previous);
    now = read_sizes(current);
  } catch (const std::exception& error) {
    return ZQ_LOG_AT(place, LM_ERROR, "Failed to calculate snapshot size: %s\n", error.what());
  }
  if (before.rfer == 0 && before.excl == 0) {
    size = now.rfer + now.excl;
    return true;
  }
  // The sum wraps around, and is then looked at as a signed number. That the predecessor's own
  // share is added, and this snapshot's is not, is meant.
  size = now.rfer - before.rfer + before.excl;
  if (static_cast<std::int64_t>(size) < 0) {
    ZQ_LOG_AT(place, LM_WARNING,
              "Calculate snapshot size is less than 0, previous snapshot excl size = %Q, rfer size "
              "= %Q, current snapshot excl size = %Q, rfer size = %Q.\n",
              before.excl, before.rfer, now.excl, now.rfer);
    size = 0;
  }
  return true;
}

}  // namespace zqpool::detail
