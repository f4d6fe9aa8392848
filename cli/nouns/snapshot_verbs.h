#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "cli/nouns/pool_verbs.h"
#include "cli/nouns/snapshot_tree.h"
#include "cli/support/messages.h"

// The verbs that snapshots of LUNs and of filesystems have in common. `Kind` has the library's
// manager and its operations.

namespace zqpool::cli {

/// How they differ on the wire and in words.
struct Snapshot_Words {
  const char* path;           ///< of the service
  const char* parent;         ///< the member that names what a snapshot was taken of
  const char* thing;          ///< "LUN"
  const char* argument;       ///< "LUN_ID"
  const char* example;        ///< an example of this argument
  const char* delete_empty;   ///< the name of the option
  const char* not_described;  ///< logged for a snapshot that cannot be described
  // What follows "it is shared under 2 numbers"; null for snapshots that are never shared.
  const char* if_several_shown;
  const char* if_several_compared;
};

struct Snapshot_Arguments {
  Snapshot_Words words;
  Pool_Arguments pool = {};
  std::string parent = {};  ///< the LUN or filesystem whose snapshots are listed
  int lun_num = -1;
  bool recyclable = false;
  bool delete_empty = false;
};

Exit_Code show_list(Command_Context& context, const Snapshot_Arguments& arguments);
Outcome list_snapshots(Command_Context& context, const Snapshot_Arguments& arguments,
                       Array& snapshots);

/// Explains why the library could not describe a snapshot: it does not log whether there is none
/// or several.
Outcome explain_missing(Command_Context& context, const Snapshot_Arguments& arguments,
                        const std::string& snapshot_id, const char* if_several);

template <typename Kind>
Exit_Code create_snapshots(Command_Context& context, const Snapshot_Arguments& arguments) {
  return show_each<typename Kind::Manager>(
      context, arguments.pool, [&](const auto& pool, const std::string& name, Object& record) {
        std::string snapshot_id;
        Outcome outcome = context.call({Effect::changes}, [&] {
          return Kind::create(pool, name, snapshot_id, arguments.recyclable);
        });
        if (outcome.done()) record = {{arguments.words.parent, name}, {"snapshot_id", snapshot_id}};
        return outcome;
      });
}

template <typename Kind>
Exit_Code show_snapshots(Command_Context& context, const Snapshot_Arguments& arguments) {
  return show_each<typename Kind::Manager>(
      context, arguments.pool, [&](const auto& pool, const std::string& id, Object& record) {
        Outcome outcome = context.call({Effect::reads, {{arguments.words.not_described}}}, [&] {
          return Kind::describe(pool, id, record, arguments.lun_num);
        });
        if (outcome.code != Exit_Code::not_found || !outcome.answered) return outcome;
        return explain_missing(context, arguments, id, arguments.words.if_several_shown);
      });
}

template <typename Kind>
Exit_Code show_previous(Command_Context& context, const Snapshot_Arguments& arguments) {
  const Known_Failure missing = {
      "Failed to get previous snapshot: failed to get current snapshot info"};
  return show_each<typename Kind::Manager>(
      context, arguments.pool, [&](const auto& pool, const std::string& id, Object& record) {
        Outcome outcome = context.call({Effect::reads, {missing}, true}, [&] {
          // By its contract the operation returns true only for the first snapshot.
          const bool is_first = Kind::previous(pool, id, record);
          return is_first || !record.empty();
        });
        if (outcome.code == Exit_Code::not_found && outcome.answered) {
          return explain_missing(context, arguments, id, arguments.words.if_several_compared);
        }
        if (outcome.done() && record.empty()) {
          return Outcome{Exit_Code::not_found, "not found: no snapshot comes before it"};
        }
        return outcome;
      });
}

/// Finds out what a snapshot adds over the one before it.
template <typename Kind>
Outcome measure(Command_Context& context, const Snapshot_Arguments& arguments,
                const typename Kind::Manager& pool, const std::string& id, std::uint64_t& size) {
  const Known_Failure missing = {"Failed to calculate snapshot size: failed to get "};
  // The library takes an unreadable list for one without a previous snapshot.
  Outcome outcome =
      context.call({Effect::reads, {missing}, true}, [&] { return Kind::size(pool, id, size); });
  if (outcome.code == Exit_Code::not_found && outcome.answered) {
    return explain_missing(context, arguments, id, arguments.words.if_several_compared);
  }
  if (outcome.done() && !outcome.log.warnings.empty()) {
    note("warning: " + id + ": smaller than the snapshot before it; what it adds counts as 0");
  }
  return outcome;
}

template <typename Kind>
Exit_Code show_sizes(Command_Context& context, const Snapshot_Arguments& arguments) {
  return show_each<typename Kind::Manager>(
      context, arguments.pool, [&](const auto& pool, const std::string& id, Object& record) {
        std::uint64_t size = 0;
        Outcome outcome = measure<Kind>(context, arguments, pool, id, size);
        if (outcome.done()) record["size"] = size;
        return outcome;
      });
}

template <typename Kind>
Exit_Code show_tree(Command_Context& context, const Snapshot_Arguments& arguments) {
  Array snapshots;
  const Outcome outcome = list_snapshots(context, arguments, snapshots);
  if (!outcome.done()) return context.report(outcome);
  return show_snapshot_tree(
      context, arguments.parent, snapshots, [&](const std::string& id, std::uint64_t& size) {
        const auto pool = open_pool<typename Kind::Manager>(context.target(), arguments.pool);
        return measure<Kind>(context, arguments, pool, id, size);
      });
}

template <typename Kind>
Exit_Code delete_snapshots(Command_Context& context, const Snapshot_Arguments& arguments) {
  return change_each<typename Kind::Manager>(
      context, arguments.pool,
      [&](const auto& pool, const std::string& id) {
        return Kind::remove(pool, id, arguments.delete_empty);
      },
      "Delete", "snapshots");
}

using Snapshot_Noun = Pool_Noun<Snapshot_Arguments>;

/// Adds the option that tells the shares of a snapshot apart.
Verb& add_lun_num(Verb& verb, Snapshot_Arguments& arguments, const char* help);

template <typename Kind>
void add_snapshot_verbs(Snapshot_Noun& noun) {
  Snapshot_Arguments& a = noun.arguments();
  const std::string thing = a.words.thing;
  const std::string of_parent = std::string("POOL_UUID ") + a.words.example;
  const std::string of_snapshot = "POOL_UUID SNAPSHOT_ID";
  noun.verb("create", "Takes snapshots of " + thing + "s",
            {of_parent, "POOL_UUID --recyclable -o tsv - < names.txt"}, &create_snapshots<Kind>)
      .objects(a.words.argument, a.pool.names, "The " + thing + "s")
      .flag("--recyclable", a.recyclable, "The service may reclaim them when it needs space");
  noun.verb("list", "Shows the descriptions of all snapshots of a " + thing, {of_parent},
            &show_list)
      .argument(a.words.argument, a.parent, "The " + thing);
  Verb showing =
      noun.verb("show", "Shows the descriptions of snapshots", {of_snapshot}, &show_snapshots<Kind>)
          .objects("SNAPSHOT_ID", a.pool.names, "The snapshots");
  if (a.words.if_several_shown != nullptr) {
    add_lun_num(showing, a, "Which share, if there are several");
  }
  noun.verb("previous", "Shows the snapshot right before another", {of_snapshot},
            &show_previous<Kind>)
      .objects("SNAPSHOT_ID", a.pool.names, "The snapshots");
  noun.verb("size", "Shows what snapshots add over those before them", {of_snapshot},
            &show_sizes<Kind>)
      .objects("SNAPSHOT_ID", a.pool.names, "The snapshots");
  noun.verb("tree", "Draws the chain of a " + thing + "'s snapshots with what each adds",
            {of_parent, of_parent + " -o json --jobs 16"}, &show_tree<Kind>)
      .argument(a.words.argument, a.parent, "The " + thing);
  noun.verb("delete", "Deletes snapshots", {of_snapshot, "--yes POOL_UUID - < snapshots.txt"},
            &delete_snapshots<Kind>)
      .objects("SNAPSHOT_ID", a.pool.names, "The snapshots")
      .flag(a.words.delete_empty, a.delete_empty,
            "Also delete the " + thing + " if it is left empty")
      .yes(a.pool.yes);
}

}  // namespace zqpool::cli
