#include "cli/command/batch.h"
#include "cli/command/command_line.h"
#include "platform/host/host_id.h"
#include "utils/pool/pool_metadata_manager.h"

namespace zqpool::cli {

namespace {

struct Show_Arguments {
  std::vector<std::string> urls;
  std::vector<std::string> uuids;
};

Outcome find_by_uuid(Session& session, const Target& target, const std::string& uuid,
                     Object& record) {
  return session.call({Effect::reads, "Failed to get device with uuid: "}, [&] {
    const auto& [ssl, host, port] = target.endpoint;
    return Pool_Metadata_Manager::get_device_with_uuid(host, port, ssl, target.access_key, uuid,
                                                       record, target.retry_seconds);
  });
}

Outcome ask_about_url(Session& session, const Target& target, const std::string* pool,
                      const std::string& url, Object& record) {
  return session.call({Effect::reads, ""}, [&] {
    const auto& [ssl, host, port] = target.endpoint;
    return Pool_Metadata_Manager::get_device_info(host, port, ssl, target.access_key, pool, url,
                                                  record);
  });
}

Outcome find_by_url(Session& session, const Target& target, const std::string& url,
                    Object& record) {
  Outcome outcome = session.call({Effect::reads, "Failed to get device with url: "}, [&] {
    const auto& [ssl, host, port] = target.endpoint;
    return Pool_Metadata_Manager::get_device(host, port, ssl, target.access_key, url, record);
  });
  if (outcome.code != Exit_Code::not_found) return outcome;
  // That is also what the library says of a URL that several pools share; the service knows better.
  Object unused;
  const Outcome asked = ask_about_url(session, target, nullptr, url, unused);
  return asked.code == Exit_Code::conflict ? asked : outcome;
}

Exit_Code show(Session& session, const Show_Arguments& arguments) {
  if (arguments.uuids.empty() && arguments.urls.empty()) {
    throw Usage_Error("which device? Give --url or --uuid");
  }
  const bool by_uuid = !arguments.uuids.empty();
  return session.show(expand_objects(by_uuid ? arguments.uuids : arguments.urls),
                      [&session, find = by_uuid ? &find_by_uuid : &find_by_url](
                          const Target& target, const std::string& name, Object& record) {
                        return find(session, target, name, record);
                      });
}

struct Located_Arguments {
  std::string pool;
  std::string path;
  Given_Text grouping;
};

Outcome locate(Session& session, const Target& target, const Located_Arguments& arguments,
               Object& record) {
  std::string type;
  Array devices;
  // The library tells "nothing is known of this path" only by leaving both outputs as they were.
  Outcome outcome = session.call({Effect::reads}, [&] {
    const auto& [ssl, host, port] = target.endpoint;
    return Pool_Metadata_Manager::get_located_devices(host, port, ssl, target.access_key,
                                                      arguments.pool, arguments.path, type, devices,
                                                      arguments.grouping.c_str_or_null());
  });
  if (!outcome.done()) return outcome;
  if (type.empty() && devices.empty()) {
    return {Exit_Code::not_found, "not found: the catalog knows no device for " + arguments.path};
  }
  record = {{"type", std::move(type)}, {"devices", std::move(devices)}};
  return outcome;
}

Exit_Code located(Session& session, const Located_Arguments& arguments) {
  return session.show({arguments.path},
                      [&](const Target& target, const std::string&, Object& record) {
                        return locate(session, target, arguments, record);
                      });
}

struct Info_Arguments {
  std::string url;
  Given_Text pool;
};

Exit_Code info(Session& session, const Info_Arguments& arguments) {
  const std::string* const pool = arguments.pool.given ? &arguments.pool.text : nullptr;
  return session.show({arguments.url},
                      [&](const Target& target, const std::string& url, Object& record) {
                        return ask_about_url(session, target, pool, url, record);
                      });
}

void add_show(Command_Line& commands, CLI::App& device) {
  auto [verb, arguments] =
      commands.verb<Show_Arguments>(device, "show", "Shows the catalog's record of devices",
                                    {"zqpool device show --url file:///vault/d1",
                                     "zqpool device show --uuid UUID UUID --output tsv",
                                     "zqpool device show --url - --output json < urls.txt"},
                                    &show);
  CLI::Option* const url =
      verb.add_option("--url", arguments.urls,
                      "Devices by their URL; - reads them from standard input, one a line");
  url->type_name("URL");
  verb.add_option("--uuid", arguments.uuids, "Devices by their UUID; - as above")
      ->type_name("UUID")
      ->excludes(url);
}

void add_located(Command_Line& commands, CLI::App& device) {
  auto [verb, arguments] = commands.verb<Located_Arguments>(
      device, "located", "Shows on which devices a path of a pool lies",
      {"zqpool device located POOL_UUID /vault/2026/11/a.img",
       "zqpool device located POOL_UUID /vault/2026 --grouping host --output json"},
      &located);
  add_argument(verb, "POOL_UUID", arguments.pool, "The pool");
  add_argument(verb, "PATH", arguments.path, "The path within the pool");
  add_text(verb, "--grouping", arguments.grouping, "G", "How the service is to group the devices");
}

void add_info(Command_Line& commands, CLI::App& device) {
  auto [verb, arguments] = commands.verb<Info_Arguments>(
      device, "info", "Asks the service about the device behind a URL, catalogued or not",
      {"zqpool device info file:///vault/d1",
       "zqpool device info file:///vault/d1 --pool POOL_UUID"},
      &info);
  add_argument(verb, "URL", arguments.url, "The device");
  add_text(verb, "--pool", arguments.pool, "POOL_UUID", "The pool that the device is meant for");
}

Exit_Code offer(Session& session, const std::vector<std::string>& pools) {
  return session.show(expand_objects(pools), [&](const Target& target, const std::string& pool,
                                                 Object& record) {
    Outcome outcome = session.call({Effect::reads}, [&] {
      const auto& [ssl, host, port] = target.endpoint;
      return Pool_Metadata_Manager::offer_device(host, port, ssl, target.access_key, pool, record);
    });
    if (!outcome.done() || !record.empty()) return outcome;
    // The library takes an offer of nothing for a good one.
    return Outcome{Exit_Code::not_found, "not found: the catalog has no device to offer"};
  });
}

void add_offer(Command_Line& commands, CLI::App& device) {
  auto [verb, pools] = commands.verb<std::vector<std::string>>(
      device, "offer", "Asks which device of a pool is to take new data",
      {"zqpool device offer POOL_UUID", "zqpool device offer -o json - < pools.txt"}, &offer);
  add_objects(verb, "POOL_UUID", pools, "The pools");
}

struct Bind_Arguments {
  std::vector<std::string> devices;
  std::string host_uuid;
  std::string sysname;
};

Exit_Code bind(Session& session, const Bind_Arguments& arguments) {
  const std::string host_uuid =
      arguments.host_uuid.empty() ? Host_ID::instance()->c_str() : arguments.host_uuid;
  if (host_uuid.empty()) {
    throw Usage_Error("this host has no identity of its own: give --host-uuid");
  }
  return session.change(
      expand_objects(arguments.devices), [&](const Target& target, const std::string& device) {
        return session.call({Effect::changes}, [&] {
          const auto& [ssl, host, port] = target.endpoint;
          return Pool_Metadata_Manager::bind_host_for_lanfree_device(
              host, port, ssl, target.access_key, device, host_uuid, arguments.sysname);
        });
      });
}

void add_bind(Command_Line& commands, CLI::App& device) {
  auto [verb, arguments] = commands.verb<Bind_Arguments>(
      device, "bind", "Binds LAN-free devices to a host",
      {"zqpool device bind DEVICE_UUID --host-uuid HOST_UUID --sysname db1",
       "zqpool device bind --sysname db1 - < devices.txt"},
      &bind);
  add_objects(verb, "DEVICE_UUID", arguments.devices, "The devices");
  verb.add_option("--host-uuid", arguments.host_uuid, "The host (this one)")->type_name("UUID");
  verb.add_option("--sysname", arguments.sysname, "Name of the host's system")
      ->type_name("NAME")
      ->required();
}

}  // namespace

void add_device(Command_Line& commands) {
  CLI::App& device = commands.noun("device", "Devices that make up pools");
  add_show(commands, device);
  add_located(commands, device);
  add_info(commands, device);
  add_offer(commands, device);
  add_bind(commands, device);
}

}  // namespace zqpool::cli
