#include <utility>

#include "cli/nouns/nouns.h"
#include "cli/nouns/snapshot_verbs.h"

namespace zqpool::cli {

namespace {

// The library has one manager for filesystems of SCSI pools and one for those of image pools. These
// structs have the operations that the two name differently.

struct SCSI_Filesystems {
  using Manager = SCSI_Target_Manager;

  static bool describe_filesystem(const Manager& pool, const std::string& name, Object& info) {
    return pool.list_filesystem_info(name, info, true, nullptr);
  }
  static bool create(const Manager& pool, const std::string& name, std::string& snapshot_id,
                     bool recyclable) {
    return pool.create_filesystem_snapshot(name, snapshot_id, recyclable);
  }
  static bool describe(const Manager& pool, const std::string& id, Object& info, int) {
    return pool.get_filesystem_snapshot_info(id, info);
  }
  static bool previous(const Manager& pool, const std::string& id, Object& info) {
    return pool.get_previous_filesystem_snapshot(id, info);
  }
  static bool size(const Manager& pool, const std::string& id, std::uint64_t& size) {
    ACE_UINT64 bytes = size;
    const bool good = pool.cal_snapshot_size(id, bytes, false);
    size = bytes;
    return good;
  }
  static bool remove(const Manager& pool, const std::string& id, bool delete_empty) {
    return pool.delete_filesystem_snapshot(id, delete_empty);
  }
};

struct Image_Filesystems {
  using Manager = Image_Pool_Manager;

  static bool describe_filesystem(const Manager& pool, const std::string& name, Object& info) {
    return pool.list_filesystem_info(name, info, nullptr);
  }
  static bool create(const Manager& pool, const std::string& name, std::string& snapshot_id,
                     bool recyclable) {
    return pool.create_snapshot(name, snapshot_id, recyclable);
  }
  static bool describe(const Manager& pool, const std::string& id, Object& info, int) {
    return pool.get_snapshot_info(id, info);
  }
  static bool previous(const Manager& pool, const std::string& id, Object& info) {
    return pool.get_previous_snapshot(id, info);
  }
  static bool size(const Manager& pool, const std::string& id, std::uint64_t& size) {
    return pool.cal_snapshot_size(id, size);
  }
  static bool remove(const Manager& pool, const std::string& id, bool delete_empty) {
    return pool.delete_snapshot(id, delete_empty);
  }
};

constexpr Snapshot_Words snapshot_words = {
    "/zq/r/scsipool/fs/snapshot", "name",  "filesystem", "NAME", "daily", "--delete-empty-fs",
    "Failed to get snapshot ",    nullptr, nullptr};

struct Arguments {
  Pool_Arguments pool;
  std::string name;  ///< of one filesystem
  std::string snapshot_id;
  std::string mount_point;

  const std::string* mount_point_or_null() const {
    return mount_point.empty() ? nullptr : &mount_point;
  }
};

/// The library logs nothing when the list does not hold exactly one filesystem.
const Known_Failure no_such_filesystem = {""};

template <typename Kind>
Exit_Code create(Command_Context& context, const Arguments& arguments) {
  if (arguments.pool.names.size() > 1 && !arguments.mount_point.empty()) {
    throw Usage_Error("--mount-point can be given for one filesystem only");
  }
  return change_each<typename Kind::Manager>(
      context, arguments.pool, [&](const auto& pool, const std::string& name) {
        return pool.create_filesystem(name, nullptr, arguments.mount_point_or_null());
      });
}

template <typename Kind>
Exit_Code clone(Command_Context& context, const Arguments& arguments) {
  check_names({arguments.pool.uuid, arguments.snapshot_id, arguments.name});
  return context.change({arguments.name}, [&](const std::string& name, Object&) {
    const auto pool = open_pool<typename Kind::Manager>(context.target(), arguments.pool);
    return context.call({Effect::changes}, [&] {
      return pool.create_filesystem(name, &arguments.snapshot_id, arguments.mount_point_or_null());
    });
  });
}

template <typename Kind>
Exit_Code show(Command_Context& context, const Arguments& arguments) {
  return show_each<typename Kind::Manager>(
      context, arguments.pool, [&](const auto& pool, const std::string& name, Object& record) {
        return context.call({Effect::reads, {no_such_filesystem}},
                            [&] { return Kind::describe_filesystem(pool, name, record); });
      });
}

template <typename Kind>
Exit_Code list_mounted(Command_Context& context, const Arguments& arguments) {
  check_names({arguments.pool.uuid, arguments.name});
  Array mounts;
  const auto pool = open_pool<typename Kind::Manager>(context.target(), arguments.pool);
  const Outcome outcome = context.call({Effect::reads}, [&] {
    return pool.list_mounted_filesystem(mounts, arguments.name.empty() ? nullptr : &arguments.name);
  });
  return outcome.done() ? context.print_list(mounts, "name") : context.report(outcome);
}

/// Reads where a filesystem is mounted, or would be: "mountpoint" and "mounted".
template <typename Kind>
Outcome read_mount(const Command_Context& context, const typename Kind::Manager& pool,
                   const std::string& name, Object& mount) {
  Array mounts;
  Outcome outcome =
      context.call({Effect::reads}, [&] { return pool.list_mounted_filesystem(mounts, &name); });
  if (!outcome.done()) return outcome;
  std::string where;
  for (const json_spirit::Value& element : mounts) {
    if (element.type() == json_spirit::obj_type &&
        json_spirit::object_get(element.get_obj(), "mountpoint", where)) {
      mount = {{"name", name}, {"mountpoint", where}, {"mounted", true}};
      return {};
    }
  }
  Object description;
  outcome = context.call({Effect::reads, {no_such_filesystem}},
                         [&] { return Kind::describe_filesystem(pool, name, description); });
  if (!outcome.done()) return outcome;
  if (!json_spirit::object_get(description, "mountpoint", where)) {
    return {Exit_Code::failed, "the service does not say where it is mounted"};
  }
  mount = {{"name", name}, {"mountpoint", where}, {"mounted", false}};
  return {};
}

template <typename Kind>
Exit_Code mount(Command_Context& context, const Arguments& arguments) {
  return show_each<typename Kind::Manager>(
      context, arguments.pool, [&](const auto& pool, const std::string& name, Object& record) {
        std::string where;
        Outcome outcome =
            context.call({Effect::changes}, [&] { return pool.mount_filesystem(name, where); });
        if (outcome.done()) {
          record = {{"name", name}, {"mountpoint", std::move(where)}, {"mounted", true}};
        }
        if (outcome.code == Exit_Code::done || !outcome.answered) return outcome;
        // The service mounted it, but its answer lacks the mount point.
        Outcome read = read_mount<Kind>(context, pool, name, record);
        return read.done() ? read : outcome;
      });
}

std::string without_end(std::string path) {
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  return path;
}

/// Moves a mount point and reads it afterwards: by its contract the library's call cannot tell
/// whether the move succeeded.
template <typename Kind>
Outcome move_and_look(const Command_Context& context, const typename Kind::Manager& pool,
                      const std::string& name, const std::string& mount_point, Object& record) {
  std::string never_written;
  Outcome outcome = context.call({Effect::changes}, [&] {
    return pool.update_filesystem_mountpoint(name, mount_point, never_written);
  });
  const bool in_doubt = outcome.answered || outcome.code == Exit_Code::outcome_unknown;
  if (outcome.held_back || !in_doubt) return outcome;
  Object mount;
  const Outcome read = read_mount<Kind>(context, pool, name, mount);
  if (read.code != Exit_Code::done) {
    if (!outcome.answered) return outcome;
    return {Exit_Code::outcome_unknown,
            "the service accepted the move, but the mount point cannot be read: " + read.cause};
  }
  const std::string& where = json_spirit::object_get_str_or_throw(mount, "mountpoint");
  if (without_end(where) == without_end(mount_point)) {
    record = std::move(mount);
    return {};
  }
  if (outcome.answered) {
    return {Exit_Code::failed, "the service accepted the move, but the mount point is " + where};
  }
  outcome.cause += "; the mount point is " + where;
  return outcome;
}

template <typename Kind>
Exit_Code move(Command_Context& context, const Arguments& arguments) {
  check_names({arguments.pool.uuid, arguments.name});
  return context.show({arguments.name}, [&](const std::string& name, Object& record) {
    const auto pool = open_pool<typename Kind::Manager>(context.target(), arguments.pool);
    return move_and_look<Kind>(context, pool, name, arguments.mount_point, record);
  });
}

template <typename Kind>
Exit_Code unmount(Command_Context& context, const Arguments& arguments) {
  return change_each<typename Kind::Manager>(
      context, arguments.pool,
      [](const auto& pool, const std::string& name) { return pool.umount_filesystem(name); });
}

template <typename Kind>
Exit_Code roll_back(Command_Context& context, const Arguments& arguments) {
  return change_each<typename Kind::Manager>(
      context, arguments.pool,
      [](const auto& pool, const std::string& name) { return pool.rollback_filesystem(name); },
      "Discard what was written since the newest snapshot of", "filesystems");
}

template <typename Kind>
Exit_Code remove(Command_Context& context, const Arguments& arguments) {
  return change_each<typename Kind::Manager>(
      context, arguments.pool,
      [](const auto& pool, const std::string& name) {
        return pool.delete_filesystem(name, nullptr);
      },
      "Delete", "filesystems");
}

template <typename Kind>
void add_verbs(Noun noun) {
  Pool_Noun<Arguments> filesystems(noun);
  Arguments& a = filesystems.arguments();
  filesystems
      .verb("create", "Creates empty filesystems", {"POOL_UUID daily --mount-point /srv/daily"},
            &create<Kind>)
      .objects("NAME", a.pool.names, "The filesystems")
      .option("--mount-point", a.mount_point, "PATH", "Mount it there");
  filesystems
      .verb("clone", "Creates a filesystem with the content of a snapshot",
            {"POOL_UUID SNAPSHOT_ID copy"}, &clone<Kind>)
      .argument("SNAPSHOT_ID", a.snapshot_id, "The snapshot")
      .argument("NAME", a.name, "The new filesystem")
      .option("--mount-point", a.mount_point, "PATH", "Mount it there");
  filesystems
      .verb("show", "Shows the descriptions of filesystems", {"POOL_UUID daily"}, &show<Kind>)
      .objects("NAME", a.pool.names, "The filesystems");
  filesystems
      .verb("list-mounted", "Shows where filesystems are mounted", {"POOL_UUID"},
            &list_mounted<Kind>)
      .option("NAME", a.name, "", "Only this one");
  filesystems.verb("mount", "Mounts filesystems", {"POOL_UUID daily"}, &mount<Kind>)
      .objects("NAME", a.pool.names, "The filesystems");
  filesystems
      .verb("move", "Moves a filesystem's mount point and shows where it is then",
            {"POOL_UUID daily /srv/elsewhere"}, &move<Kind>)
      .argument("NAME", a.name, "The filesystem")
      .argument("MOUNT_POINT", a.mount_point, "Its new mount point");
  filesystems.verb("umount", "Unmounts filesystems", {"POOL_UUID daily"}, &unmount<Kind>)
      .objects("NAME", a.pool.names, "The filesystems");
  filesystems
      .verb("rollback", "Takes filesystems back to their newest snapshot", {"POOL_UUID daily"},
            &roll_back<Kind>)
      .objects("NAME", a.pool.names, "The filesystems")
      .yes(a.pool.yes);
  filesystems
      .verb("delete", "Deletes filesystems", {"--yes POOL_UUID - < names.txt"}, &remove<Kind>)
      .objects("NAME", a.pool.names, "The filesystems")
      .yes(a.pool.yes);

  Snapshot_Noun snapshots(noun.noun("snapshot", "Their snapshots"),
                          Snapshot_Arguments{snapshot_words});
  add_snapshot_verbs<Kind>(snapshots);
}

}  // namespace

void add_fs(Command_Line& commands) {
  add_verbs<SCSI_Filesystems>(commands.noun("fs", "Filesystems of SCSI pools"));
}

void add_image(Command_Line& commands) {
  add_verbs<Image_Filesystems>(commands.noun("image", "Filesystems of image pools"));
}

}  // namespace zqpool::cli
