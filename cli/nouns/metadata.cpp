#include <algorithm>
#include <array>
#include <limits>

#include "cli/command/batch.h"
#include "cli/command/command_line.h"
#include "cli/command/confirm.h"
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

/// The type is the name under which the path goes out, beside these.
void check_type(const std::string& type) {
  static constexpr std::array taken = {"pool_uuid", "device_uuid", "size", "grouping"};
  if (std::find(taken.begin(), taken.end(), type) != taken.end()) {
    throw Usage_Error("--type: '" + type + "' is no type of a path");
  }
}

ACE_INT64 signed_size(const std::string& text) {
  if (text.empty()) return -1;
  const std::uint64_t size = parse_size(text);
  if (size > std::numeric_limits<std::int64_t>::max()) {
    throw Usage_Error("'" + text + "' is more than a path can have");
  }
  return static_cast<ACE_INT64>(size);
}

Exit_Code add(Session& session, const Arguments& arguments) {
  check_type(arguments.type);
  const ACE_INT64 size = signed_size(arguments.size);
  return session.change(
      expand_objects(arguments.paths), [&](const Target& target, const std::string& path) {
        return session.call({Effect::changes}, [&] {
          const auto& [ssl, host, port] = target.endpoint;
          return Pool_Metadata_Manager::add_metadata(
              host, port, ssl, target.access_key, arguments.pool, arguments.device, arguments.type,
              path, arguments.grouping.c_str_or_null(), size);
        });
      });
}

Exit_Code remove(Session& session, const Arguments& arguments) {
  const std::vector<std::string> paths = expand_objects(arguments.paths);
  confirm(arguments.yes || session.is_dry_run(), "Remove what the catalog holds of", paths,
          "paths");
  return session.change(paths, [&](const Target& target, const std::string& path) {
    return session.call({Effect::changes}, [&] {
      const auto& [ssl, host, port] = target.endpoint;
      return Pool_Metadata_Manager::remove_metadata(host, port, ssl, target.access_key,
                                                    arguments.pool, path,
                                                    arguments.grouping.c_str_or_null());
    });
  });
}

void add_path_options(CLI::App& verb, Arguments& arguments, const char* grouping_help) {
  add_objects(verb, "PATH", arguments.paths, "Paths within the pool");
  add_text(verb, "--grouping", arguments.grouping, "G", grouping_help);
}

}  // namespace

void add_metadata(Command_Line& commands) {
  CLI::App& metadata = commands.noun("metadata", "What the catalog records of the paths of a pool");

  auto [add_verb, added] = commands.verb<Arguments>(
      metadata, "add", "Records that paths of a pool lie on a device",
      {"zqpool metadata add POOL_UUID DEVICE_UUID /jobs/a.img --size 10GiB",
       "zqpool metadata add POOL_UUID DEVICE_UUID --type dir - < directories.txt"},
      &add);
  add_argument(add_verb, "POOL_UUID", added.pool, "The pool");
  add_argument(add_verb, "DEVICE_UUID", added.device, "The device");
  add_path_options(add_verb, added, "Under which grouping it is recorded");
  add_verb.add_option("--type", added.type, "What the paths are (file)")->type_name("TYPE");
  add_verb.add_option("--size", added.size, "How large each is, if known")->type_name("SIZE");

  auto [remove_verb, removed] =
      commands.verb<Arguments>(metadata, "remove", "Removes what is recorded of paths of a pool",
                               {"zqpool metadata remove POOL_UUID /jobs/a.img",
                                "zqpool metadata remove --yes POOL_UUID - < paths.txt"},
                               &remove);
  add_argument(remove_verb, "POOL_UUID", removed.pool, "The pool");
  add_path_options(remove_verb, removed, "Only what is recorded under this grouping");
  add_yes(remove_verb, removed.yes);
}

}  // namespace zqpool::cli
