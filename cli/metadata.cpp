#include <algorithm>
#include <array>
#include <limits>
#include <memory>

#include "cli/batch.h"
#include "cli/command_line.h"
#include "cli/confirm.h"
#include "cli/size.h"
#include "utils/pool/pool_metadata_manager.h"

namespace zqpool::cli {

namespace {

struct Arguments {
  std::string pool;
  std::string device;
  std::vector<std::string> paths;
  std::string type;
  std::string grouping;
  std::string size;
  bool grouped = false;
  bool yes = false;

  const char* grouping_or_null() const { return grouped ? grouping.c_str() : nullptr; }
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
              path, arguments.grouping_or_null(), size);
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
      return Pool_Metadata_Manager::remove_metadata(
          host, port, ssl, target.access_key, arguments.pool, path, arguments.grouping_or_null());
    });
  });
}

void add_pool_option(CLI::App& verb, Arguments& arguments) {
  verb.add_option("POOL_UUID", arguments.pool, "The pool")->type_name("")->required();
}

void add_path_options(CLI::App& verb, Arguments& arguments, const char* grouping_help) {
  verb.add_option("PATH", arguments.paths,
                  "Paths within the pool; - reads them from standard input, one a line")
      ->type_name("")
      ->required();
  verb.add_option_function<std::string>(
          "--grouping",
          [&arguments](const std::string& text) {
            arguments.grouping = text;
            arguments.grouped = true;
          },
          grouping_help)
      ->type_name("G");
}

}  // namespace

void add_metadata(Command_Line& commands) {
  CLI::App& metadata = commands.noun("metadata", "What the catalog records of the paths of a pool");

  const auto added = std::make_shared<Arguments>();
  CLI::App& add_verb =
      commands.verb(metadata, "add", "Records that paths of a pool lie on a device",
                    {"zqpool metadata add POOL_UUID DEVICE_UUID /jobs/a.img --size 10GiB",
                     "zqpool metadata add POOL_UUID DEVICE_UUID --type dir - < directories.txt"},
                    [added](Session& session) { return add(session, *added); });
  add_pool_option(add_verb, *added);
  add_verb.add_option("DEVICE_UUID", added->device, "The device")->type_name("")->required();
  add_path_options(add_verb, *added, "Under which grouping it is recorded");
  add_verb.add_option("--type", added->type, "What the paths are (file)")->type_name("TYPE");
  add_verb.add_option("--size", added->size, "How large each is, if known")->type_name("SIZE");

  const auto removed = std::make_shared<Arguments>();
  CLI::App& remove_verb =
      commands.verb(metadata, "remove", "Removes what is recorded of paths of a pool",
                    {"zqpool metadata remove POOL_UUID /jobs/a.img",
                     "zqpool metadata remove --yes POOL_UUID - < paths.txt"},
                    [removed](Session& session) { return remove(session, *removed); });
  add_pool_option(remove_verb, *removed);
  add_path_options(remove_verb, *removed, "Only what is recorded under this grouping");
  add_yes(remove_verb, removed->yes);
}

}  // namespace zqpool::cli
