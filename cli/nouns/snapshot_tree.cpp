#include "cli/nouns/snapshot_tree.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "cli/output/table.h"
#include "cli/support/printable.h"
#include "cli/support/size.h"

namespace zqpool::cli {

namespace {

struct Link {
  std::string id;
  std::int64_t seq = 0;
  std::optional<std::uint64_t> adds;
};

std::vector<Link> links_of(const Array& snapshots) {
  std::vector<Link> links;
  std::set<std::string> known;
  for (const json_spirit::Value& element : snapshots) {
    Link link;
    if (element.type() != json_spirit::obj_type ||
        !json_spirit::object_get(element.get_obj(), "snapshot_id", link.id) ||
        !json_spirit::object_get(element.get_obj(), "seq", link.seq)) {
      throw Command_Error(Exit_Code::failed, "the answer is not a list of snapshots");
    }
    if (known.insert(link.id).second) links.push_back(std::move(link));
  }
  std::stable_sort(links.begin(), links.end(),
                   [](const Link& a, const Link& b) { return a.seq < b.seq; });
  return links;
}

std::string drawing(const std::string& root, const std::vector<Link>& links) {
  Table table({printable(root), "SEQ", "ADDS"});
  for (const Link& link : links) {
    const bool last = &link == &links.back();
    std::string adds = "?";
    if (link.adds) {
      adds = '+' + std::to_string(*link.adds);
      if (*link.adds >= 1024) adds += " (" + readable_size(*link.adds) + ')';
    }
    table.add({(last ? "└─ " : "├─ ") + printable(link.id), std::to_string(link.seq), adds});
  }
  return table.text(0);
}

}  // namespace

Exit_Code show_snapshot_tree(Command_Context& context, const std::string& root,
                             const Array& snapshots, const Size_Of& size_of) {
  std::vector<Link> links = links_of(snapshots);
  std::vector<std::string> ids;
  std::map<std::string, Link*> by_id;
  for (Link& link : links) {
    ids.push_back(link.id);
    by_id[link.id] = &link;
  }
  const Exit_Code code = context.change(ids, [&](const std::string& id, Object&) {
    std::uint64_t size = 0;
    Outcome outcome = size_of(id, size);
    if (outcome.done()) by_id.at(id)->adds = size;
    return outcome;
  });
  if (context.is_table()) {
    context.print_text(drawing(root, links));
    return code;
  }
  std::vector<Record> records;
  records.reserve(links.size());
  for (const Link& link : links) {
    records.push_back(
        {link.id,
         {{"snapshot_id", link.id},
          {"seq", link.seq},
          {"adds", link.adds ? json_spirit::Value(*link.adds) : json_spirit::Value()}}});
  }
  context.print(records);
  return code;
}

}  // namespace zqpool::cli
