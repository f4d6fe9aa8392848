#include <algorithm>
#include <array>
#include <limits>
#include <memory>

#include "cli/command/batch.h"
#include "cli/command/confirm.h"
#include "cli/nouns/nouns.h"
#include "cli/support/size.h"
#include "utils/pool/pool_metadata_manager.h"

namespace zqpool::cli {

namespace {

struct Arguments {
  std::string pool;
  std::string device;
  std::vector<std::string> paths;
  std::string type;
  Given_Text grouping;
  std::string size;
  bool yes = false;
};

/// The type is sent as the name of the member that holds the path, next to these members.
void check_type(const std::string& type) {
  static constexpr std::array taken = {"pool_uuid", "device_uuid", "size", "grouping"};
  if (std::find(taken.begin(), taken.end(), type) != taken.end()) {
    throw Usage_Error("--type: '" + type + "' is not a type of a path");
  }
}

ACE_INT64 signed_size(const std::string& text) {
  if (text.empty()) return -1;
  const std::uint64_t size = parse_size(text);
  if (size > std::numeric_limits<std::int64_t>::max()) {
    throw Usage_Error("'" + text + "' is too large for a path");
  }
  return static_cast<ACE_INT64>(size);
}

Exit_Code add(Command_Context& context, const Arguments& arguments) {
  check_type(arguments.type);
  const ACE_INT64 size = signed_size(arguments.size);
  return context.change(expand_objects(arguments.paths), [&](const std::string& path, Object&) {
    const Target& at = context.target();
    return context.call({Effect::changes}, [&] {
      return Pool_Metadata_Manager::add_metadata(at.host, at.port, at.ssl, at.access_key,
                                                 arguments.pool, arguments.device, arguments.type,
                                                 path, arguments.grouping.c_str_or_null(), size);
    });
  });
}

Exit_Code remove(Command_Context& context, const Arguments& arguments) {
  const std::vector<std::string> paths = expand_objects(arguments.paths);
  confirm(arguments.yes || context.is_dry_run(), "Remove the catalog's entries of", paths, "paths");
  return context.change(paths, [&](const std::string& path, Object&) {
    const Target& at = context.target();
    return context.call({Effect::changes}, [&] {
      return Pool_Metadata_Manager::remove_metadata(at.host, at.port, at.ssl, at.access_key,
                                                    arguments.pool, path,
                                                    arguments.grouping.c_str_or_null());
    });
  });
}

}  // namespace

void add_metadata(Command_Line& commands) {
  const auto arguments = std::make_shared<Arguments>();
  Arguments& a = *arguments;
  Noun metadata = commands.noun("metadata", "The catalog's entries of the paths of a pool");
  metadata
      .verb("add", "Records that paths of a pool lie on a device",
            {"POOL_UUID DEVICE_UUID /jobs/a.img --size 10GiB",
             "POOL_UUID DEVICE_UUID --type dir - < directories.txt"},
            &add, arguments)
      .argument("POOL_UUID", a.pool, "The pool")
      .argument("DEVICE_UUID", a.device, "The device")
      .objects("PATH", a.paths, "Paths within the pool")
      .option("--grouping", a.grouping, "G", "Grouping of the entries")
      .option("--type", a.type, "file|dir", "Type of the paths (file)")
      .option("--size", a.size, "SIZE", "Size of each, if known");
  metadata
      .verb("remove", "Removes the catalog's entries of paths of a pool",
            {"POOL_UUID /jobs/a.img", "--yes POOL_UUID - < paths.txt"}, &remove, arguments)
      .argument("POOL_UUID", a.pool, "The pool")
      .objects("PATH", a.paths, "Paths within the pool")
      .option("--grouping", a.grouping, "G", "Only the entries with this grouping")
      .yes(a.yes);
}

}  // namespace zqpool::cli
