#include "cli/nouns/filesystem_verbs.h"

#include <utility>

#include "cli/command/batch.h"
#include "cli/command/confirm.h"
#include "cli/command/raw_request.h"
#include "cli/nouns/pool_verbs.h"
#include "cli/nouns/snapshot_tree.h"

namespace zqpool::cli {

namespace {

constexpr const char* snapshot_path = "/zq/r/scsipool/fs/snapshot";

struct Arguments {
  Open_Filesystems open = nullptr;
  std::string pool;
  std::vector<std::string> names;  ///< filesystems or snapshots
  std::string name;                ///< of one filesystem
  std::string snapshot_id;
  std::string mount_point;
  bool recyclable = false;
  bool delete_empty = false;
  bool yes = false;

  const std::string* mount_point_or_null() const {
    return mount_point.empty() ? nullptr : &mount_point;
  }
};

using Operation = std::function<bool(const Filesystems&)>;

Outcome call(Session& session, const Target& target, const Arguments& arguments, const Way& way,
             const Operation& operation) {
  const Filesystems filesystems = arguments.open(target, arguments.pool);
  return session.call(way, [&] { return operation(filesystems); });
}

/// Shows something of each of the names.
Exit_Code show_each(Session& session, const Arguments& arguments, const Session::Fetch& fetch) {
  check_names({arguments.pool});
  return session.show(expand_names(arguments.names), fetch);
}

/// Changes something of each of the names; asks first where `destroying` says what would be lost,
/// of things called `kind`.
using Change = bool (*)(const Filesystems& filesystems, const std::string& name, const Arguments&);
Exit_Code change_each(Session& session, const Arguments& arguments, Change change,
                      const char* destroying = nullptr, const char* kind = "filesystems") {
  check_names({arguments.pool});
  const std::vector<std::string> names = expand_names(arguments.names);
  if (destroying != nullptr) {
    confirm(arguments.yes || session.is_dry_run(), destroying, names, kind);
  }
  return session.change(names, [&](const Target& target, const std::string& name) {
    return call(session, target, arguments, {Effect::changes}, [&](const Filesystems& filesystems) {
      return change(filesystems, name, arguments);
    });
  });
}

// ---- filesystems

Exit_Code create(Session& session, const Arguments& arguments) {
  if (arguments.names.size() > 1 && !arguments.mount_point.empty()) {
    throw Usage_Error("--mount-point is that of one filesystem");
  }
  return change_each(
      session, arguments,
      [](const Filesystems& filesystems, const std::string& name, const Arguments& how) {
        return filesystems.create(name, nullptr, how.mount_point_or_null());
      });
}

Exit_Code clone(Session& session, const Arguments& arguments) {
  check_names({arguments.pool, arguments.snapshot_id, arguments.name});
  return session.change({arguments.name}, [&](const Target& target, const std::string& name) {
    return call(session, target, arguments, {Effect::changes}, [&](const Filesystems& filesystems) {
      return filesystems.create(name, &arguments.snapshot_id, arguments.mount_point_or_null());
    });
  });
}

Exit_Code show(Session& session, const Arguments& arguments) {
  return show_each(
      session, arguments, [&](const Target& target, const std::string& name, Object& record) {
        // The library says nothing of an answer that is not one element.
        return call(
            session, target, arguments, {Effect::reads, ""},
            [&](const Filesystems& filesystems) { return filesystems.describe(name, record); });
      });
}

Exit_Code list_mounted(Session& session, const Arguments& arguments) {
  check_names({arguments.pool, arguments.name});
  Array mounts;
  const Outcome outcome = call(
      session, session.target(), arguments, {Effect::reads}, [&](const Filesystems& filesystems) {
        return filesystems.list_mounted(mounts, arguments.name.empty() ? nullptr : &arguments.name);
      });
  return outcome.done() ? session.print_list(mounts, "name") : session.report(outcome);
}

/// Where the service says that a filesystem is mounted, or would be: "mountpoint" and "mounted".
Outcome read_mount(Session& session, const Target& target, const Arguments& arguments,
                   const std::string& name, Object& mount) {
  Array mounts;
  Outcome outcome =
      call(session, target, arguments, {Effect::reads},
           [&](const Filesystems& filesystems) { return filesystems.list_mounted(mounts, &name); });
  if (!outcome.done()) return outcome;
  for (const json_spirit::Value& element : mounts) {
    std::string where;
    if (element.type() == json_spirit::obj_type &&
        json_spirit::object_get(element.get_obj(), "mountpoint", where)) {
      mount = {{"name", name}, {"mountpoint", where}, {"mounted", true}};
      return {};
    }
  }
  Object description;
  outcome =
      call(session, target, arguments, {Effect::reads, ""},
           [&](const Filesystems& filesystems) { return filesystems.describe(name, description); });
  if (!outcome.done()) return outcome;
  std::string where;
  if (!json_spirit::object_get(description, "mountpoint", where)) {
    return {Exit_Code::failed, "the service does not say where it is mounted"};
  }
  mount = {{"name", name}, {"mountpoint", where}, {"mounted", false}};
  return {};
}

Exit_Code mount(Session& session, const Arguments& arguments) {
  return show_each(
      session, arguments, [&](const Target& target, const std::string& name, Object& record) {
        std::string where;
        Outcome outcome =
            call(session, target, arguments, {Effect::changes},
                 [&](const Filesystems& filesystems) { return filesystems.mount(name, where); });
        // The service mounted it without saying where.
        if (outcome.code != Exit_Code::done && outcome.answered) {
          const Outcome read = read_mount(session, target, arguments, name, record);
          return read.done() ? read : outcome;
        }
        if (outcome.done()) {
          record = {{"name", name}, {"mountpoint", std::move(where)}, {"mounted", true}};
        }
        return outcome;
      });
}

std::string without_end(std::string path) {
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  return path;
}

/// Moves a mount point and finds out what came of it: by its contract the library's call cannot
/// tell.
Outcome move_and_look(Session& session, const Target& target, const Arguments& arguments,
                      const std::string& name, Object& record) {
  Outcome outcome =
      call(session, target, arguments, {Effect::changes}, [&](const Filesystems& filesystems) {
        return filesystems.move(name, arguments.mount_point);
      });
  const bool in_doubt = outcome.answered || outcome.code == Exit_Code::outcome_unknown;
  if (outcome.held_back || !in_doubt) return outcome;
  Object mount;
  const Outcome read = read_mount(session, target, arguments, name, mount);
  if (read.code != Exit_Code::done) {
    if (!outcome.answered) return outcome;
    return {
        Exit_Code::outcome_unknown,
        "the service took the move, yet where it is mounted cannot be found out: " + read.cause};
  }
  const std::string& where = json_spirit::object_get_str_or_throw(mount, "mountpoint");
  if (without_end(where) == without_end(arguments.mount_point)) {
    record = std::move(mount);
    return {};
  }
  if (outcome.answered) {
    return {Exit_Code::failed, "the service took the move, yet the mount point is " + where};
  }
  outcome.cause += "; the mount point is " + where;
  return outcome;
}

Exit_Code move(Session& session, const Arguments& arguments) {
  check_names({arguments.pool, arguments.name});
  return session.show({arguments.name},
                      [&](const Target& target, const std::string& name, Object& record) {
                        return move_and_look(session, target, arguments, name, record);
                      });
}

Exit_Code unmount(Session& session, const Arguments& arguments) {
  return change_each(session, arguments,
                     [](const Filesystems& filesystems, const std::string& name, const Arguments&) {
                       return filesystems.unmount(name);
                     });
}

Exit_Code roll_back(Session& session, const Arguments& arguments) {
  return change_each(
      session, arguments,
      [](const Filesystems& filesystems, const std::string& name, const Arguments&) {
        return filesystems.roll_back(name);
      },
      "Lose what was written since the newest snapshot of");
}

Exit_Code remove(Session& session, const Arguments& arguments) {
  return change_each(
      session, arguments,
      [](const Filesystems& filesystems, const std::string& name, const Arguments&) {
        return filesystems.remove(name);
      },
      "Delete");
}

// ---- their snapshots

Exit_Code take_snapshot(Session& session, const Arguments& arguments) {
  return show_each(
      session, arguments, [&](const Target& target, const std::string& name, Object& record) {
        std::string snapshot_id;
        Outcome outcome = call(
            session, target, arguments, {Effect::changes}, [&](const Filesystems& filesystems) {
              return filesystems.snapshot(name, snapshot_id, arguments.recyclable);
            });
        if (outcome.done()) record = {{"name", name}, {"snapshot_id", std::move(snapshot_id)}};
        return outcome;
      });
}

/// Tells a snapshot that is not there from one whose description is not as it should be.
Outcome checked(Session& session, const Arguments& arguments, const std::string& snapshot_id,
                Outcome outcome) {
  if (outcome.code != Exit_Code::not_found || !outcome.answered) return outcome;
  Array snapshots;
  outcome = list_objects(session, snapshot_path,
                         {{"pool_id", arguments.pool}, {"snapshot_id", snapshot_id}}, snapshots);
  if (!outcome.done()) return outcome;
  if (snapshots.empty()) return {Exit_Code::not_found, "not found: there is no such snapshot"};
  return {Exit_Code::failed, "the answer is not what the operation needs"};
}

Exit_Code show_snapshot(Session& session, const Arguments& arguments) {
  return show_each(
      session, arguments, [&](const Target& target, const std::string& id, Object& record) {
        return checked(session, arguments, id,
                       call(session, target, arguments, {Effect::reads, "Failed to get snapshot "},
                            [&](const Filesystems& filesystems) {
                              return filesystems.describe_snapshot(id, record);
                            }));
      });
}

Exit_Code previous_snapshot(Session& session, const Arguments& arguments) {
  return show_each(
      session, arguments, [&](const Target& target, const std::string& id, Object& record) {
        Said said;
        const Outcome outcome =
            call(session, target, arguments, {Effect::reads, no_current_snapshot, &said},
                 [&](const Filesystems& filesystems) {
                   return filesystems.previous_snapshot(id, record);
                 });
        return checked(session, arguments, id, judge_previous(outcome, record, said));
      });
}

Outcome size_of(Session& session, const Target& target, const Arguments& arguments,
                const std::string& id, std::uint64_t& size) {
  Said said;
  const Outcome outcome =
      call(session, target, arguments,
           {Effect::reads, no_snapshot_to_measure, &said, Way::an_error_spoils_it},
           [&](const Filesystems& filesystems) { return filesystems.snapshot_size(id, size); });
  return checked(session, arguments, id, judge_size(outcome, said, id));
}

Exit_Code show_size(Session& session, const Arguments& arguments) {
  return show_each(session, arguments,
                   [&](const Target& target, const std::string& id, Object& record) {
                     std::uint64_t size = 0;
                     Outcome outcome = size_of(session, target, arguments, id, size);
                     if (outcome.done()) record["size"] = size;
                     return outcome;
                   });
}

Outcome list_snapshots(Session& session, const Arguments& arguments, Array& snapshots) {
  check_names({arguments.pool, arguments.name});
  return list_objects(session, snapshot_path,
                      {{"pool_id", arguments.pool}, {"name", arguments.name}}, snapshots);
}

Exit_Code show_tree(Session& session, const Arguments& arguments) {
  Array snapshots;
  const Outcome outcome = list_snapshots(session, arguments, snapshots);
  if (!outcome.done()) return session.report(outcome);
  return show_chain(session, arguments.name, snapshots,
                    [&](const Target& target, const std::string& id, std::uint64_t& size) {
                      return size_of(session, target, arguments, id, size);
                    });
}

Exit_Code list_snapshots_of(Session& session, const Arguments& arguments) {
  Array snapshots;
  const Outcome outcome = list_snapshots(session, arguments, snapshots);
  return outcome.done() ? session.print_list(snapshots, "snapshot_id") : session.report(outcome);
}

Exit_Code remove_snapshot(Session& session, const Arguments& arguments) {
  return change_each(
      session, arguments,
      [](const Filesystems& filesystems, const std::string& id, const Arguments& how) {
        return filesystems.remove_snapshot(id, how.delete_empty);
      },
      "Delete", "snapshots");
}

// ---- verbs

using Verb = std::pair<CLI::App&, Arguments&>;

/// Adds verbs to one noun.
class Verbs {
 public:
  Verbs(Command_Line& commands, CLI::App& noun, std::string call, Open_Filesystems open)
      : commands_(commands), noun_(noun), call_(std::move(call)), open_(open) {}

  /// `example` is what follows the noun and the verb.
  Verb add(const char* name, const char* what, const char* example,
           Exit_Code (*action)(Session&, const Arguments&)) {
    auto [verb, arguments] = commands_.verb<Arguments>(
        noun_, name, what, {"zqpool " + call_ + ' ' + name + ' ' + example}, action);
    arguments.open = open_;
    add_argument(verb, "POOL_UUID", arguments.pool, "The pool");
    return {verb, arguments};
  }

 private:
  Command_Line& commands_;
  CLI::App& noun_;
  const std::string call_;
  const Open_Filesystems open_;
};

Verb with_filesystems(Verb verb) {
  add_objects(verb.first, "NAME", verb.second.names, "The filesystems");
  return verb;
}

Verb with_snapshots(Verb verb) {
  add_objects(verb.first, "SNAPSHOT_ID", verb.second.names, "The snapshots");
  return verb;
}

Verb with_name(Verb verb, const char* what) {
  add_argument(verb.first, "NAME", verb.second.name, what);
  return verb;
}

Verb with_mount_point(Verb verb) {
  verb.first.add_option("--mount-point", verb.second.mount_point, "Mount it there")
      ->type_name("PATH");
  return verb;
}

void with_yes(Verb verb) {
  add_yes(verb.first, verb.second.yes);
}

void add_own_verbs(Verbs verbs) {
  with_mount_point(with_filesystems(verbs.add(
      "create", "Creates empty filesystems", "POOL_UUID daily --mount-point /srv/daily", &create)));
  const Verb clone_verb =
      with_mount_point(verbs.add("clone", "Creates a filesystem with the content of a snapshot",
                                 "POOL_UUID SNAPSHOT_ID copy", &clone));
  add_argument(clone_verb.first, "SNAPSHOT_ID", clone_verb.second.snapshot_id, "The snapshot");
  with_name(clone_verb, "The new filesystem");
  with_filesystems(
      verbs.add("show", "Shows the descriptions of filesystems", "POOL_UUID daily", &show));
  const Verb mounted_verb =
      verbs.add("list-mounted", "Shows where filesystems are mounted", "POOL_UUID", &list_mounted);
  mounted_verb.first.add_option("NAME", mounted_verb.second.name, "Only this one")->type_name("");
  with_filesystems(verbs.add("mount", "Mounts filesystems", "POOL_UUID daily", &mount));
  const Verb move_verb =
      verbs.add("move", "Moves a filesystem's mount point, and looks where it is then",
                "POOL_UUID daily /srv/elsewhere", &move);
  with_name(move_verb, "The filesystem");
  add_argument(move_verb.first, "MOUNT_POINT", move_verb.second.mount_point, "Its new mount point");
  with_filesystems(verbs.add("umount", "Unmounts filesystems", "POOL_UUID daily", &unmount));
  with_yes(with_filesystems(verbs.add("rollback", "Takes filesystems back to their newest snapshot",
                                      "POOL_UUID daily", &roll_back)));
  with_yes(with_filesystems(
      verbs.add("delete", "Deletes filesystems", "--yes POOL_UUID - < names.txt", &remove)));
}

void add_snapshot_verbs(Verbs verbs) {
  const Verb create_verb = with_filesystems(
      verbs.add("create", "Takes snapshots of filesystems", "POOL_UUID daily", &take_snapshot));
  create_verb.first.add_flag("--recyclable", create_verb.second.recyclable,
                             "The service may reclaim them when it needs the room");
  with_name(verbs.add("list", "Shows the descriptions of all snapshots of a filesystem",
                      "POOL_UUID daily", &list_snapshots_of),
            "The filesystem");
  with_snapshots(verbs.add("show", "Shows the descriptions of snapshots", "POOL_UUID SNAPSHOT_ID",
                           &show_snapshot));
  with_snapshots(verbs.add("previous", "Shows the snapshot right before another",
                           "POOL_UUID SNAPSHOT_ID", &previous_snapshot));
  with_snapshots(verbs.add("size", "Shows what snapshots add over those before them",
                           "POOL_UUID SNAPSHOT_ID", &show_size));
  const Verb delete_verb = with_snapshots(
      verbs.add("delete", "Deletes snapshots", "POOL_UUID SNAPSHOT_ID", &remove_snapshot));
  delete_verb.first.add_flag("--delete-empty-fs", delete_verb.second.delete_empty,
                             "The filesystem, too, if nothing is left of it");
  with_yes(delete_verb);
  with_name(verbs.add("tree", "Draws the chain of a filesystem's snapshots with what each adds",
                      "POOL_UUID daily", &show_tree),
            "The filesystem");
}

}  // namespace

void add_filesystem_verbs(Command_Line& commands, CLI::App& noun, Open_Filesystems open) {
  add_own_verbs(Verbs(commands, noun, noun.get_name(), open));
  CLI::App& snapshot = commands.noun_below(noun, "snapshot", "Their snapshots");
  add_snapshot_verbs(Verbs(commands, snapshot, noun.get_name() + " snapshot", open));
}

}  // namespace zqpool::cli
