#pragma once

#include <cstdint>
#include <string>

#include "platform/json/json_spirit.h"
#include "utils/pool/detail/answer.h"
#include "utils/support/log.h"
#include "utils/support/member_reader.h"

// The order of snapshots of one parent (a LUN or a filesystem), and what each adds to the one
// before it. Messages are logged with the caller's `location`.

namespace zqpool::detail {

/// Gets the description of the predecessor of `snapshot_id`. Pass an empty `info`: it tells whether
/// there is one, the result does not.
///
/// `bool describe(Object& current)` gets the description of `snapshot_id` itself, `bool list(const
/// std::string& parent_id, json_spirit::Value& answer)` all snapshots of its parent.
/// `void report_bad_entry(answer, parent_id)` logs that an entry of that list has no "seq".
template <typename Describe, typename List, typename Report>
bool get_previous_snapshot(const Source_Location& location, const std::string& snapshot_id,
                           Object& info, const Describe& describe, const List& list,
                           const Report& report_bad_entry) {
  Object current;
  if (!describe(current)) {
    return ZQ_LOG_AT(location, LM_ERROR,
                     "Failed to get previous snapshot: failed to get current snapshot info\n");
  }
  std::string parent_id;
  int current_seq = 0;
  Member_Reader read(current);
  if (!read("parent_id", parent_id) || !read("seq", current_seq)) {
    return ZQ_LOG_AT(location, LM_ERROR, "Failed to get previous snapshot: %s\n", read.error());
  }
  json_spirit::Value answer;
  if (!list(parent_id, answer) || !is_array(answer)) {
    return ZQ_LOG_AT(location, LM_ERROR, "Failed to get %s previous snapshot info.\n",
                     snapshot_id.c_str());
  }
  if (answer.get_array().empty()) return false;

  // Moved out of the list only at the end: report_bad_entry() may print the whole list.
  Object* best = nullptr;
  int best_seq = -1;
  bool good = true;
  for (json_spirit::Value& element : answer.get_array()) {
    int seq = 0;
    if (!is_object(element)) {
      good = ZQ_LOG_AT(location, LM_EMERGENCY, "Unexpected error in %s:%d, i is not object!\n",
                       location.file, location.line);
      break;
    }
    if (!json_spirit::object_get(element.get_obj(), "seq", seq)) {
      report_bad_entry(answer, parent_id);
      good = false;
      break;
    }
    if (best_seq <= seq && seq < current_seq) {
      best_seq = seq;
      best = &element.get_obj();
    }
  }
  if (best != nullptr) info.swap(*best);
  // Inverted on purpose: true means no predecessor.
  return good && info.empty();
}

/// Computes what the snapshot `current` adds to `previous` (empty: no predecessor). Logs and fails
/// if one of the descriptions lacks its sizes.
bool added_size(const Source_Location& location, const Object& current, const Object& previous,
                std::uint64_t& size);

}  // namespace zqpool::detail
