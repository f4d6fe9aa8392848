#include <memory>
#include <utility>

#include "cli/command/batch.h"
#include "cli/nouns/nouns.h"
#include "platform/host/host_id.h"
#include "utils/pool/pool_metadata_manager.h"

namespace zqpool::cli {

namespace {

using Catalog = Pool_Metadata_Manager;

struct Arguments {
  std::vector<std::string> devices;
  std::vector<std::string> urls;
  std::vector<std::string> pools;
  std::string pool;
  std::string path;
  Given_Text grouping;
  std::string url;
  Given_Text pool_of_url;
  std::string host_uuid;
  std::string sysname;
};

Outcome find_by_uuid(Command_Context& context, const std::string& uuid, Object& record) {
  const Target& at = context.target();
  return context.call({Effect::reads, {{"Failed to get device with uuid: "}}}, [&] {
    return Catalog::get_device_with_uuid(at.host, at.port, at.ssl, at.access_key, uuid, record,
                                         at.retry_seconds);
  });
}

Outcome ask_about_url(Command_Context& context, const std::string* pool, const std::string& url,
                      Object& record) {
  const Target& at = context.target();
  return context.call({Effect::reads, {{""}}}, [&] {
    return Catalog::get_device_info(at.host, at.port, at.ssl, at.access_key, pool, url, record);
  });
}

Outcome find_by_url(Command_Context& context, const std::string& url, Object& record) {
  const Target& at = context.target();
  Outcome outcome = context.call({Effect::reads, {{"Failed to get device with url: "}}}, [&] {
    return Catalog::get_device(at.host, at.port, at.ssl, at.access_key, url, record);
  });
  if (outcome.code != Exit_Code::not_found) return outcome;
  // The library logs the same for a URL that several pools share, so ask the service.
  Object unused;
  Outcome asked = ask_about_url(context, nullptr, url, unused);
  return asked.code == Exit_Code::conflict ? asked : outcome;
}

Exit_Code show(Command_Context& context, const Arguments& arguments) {
  if (arguments.devices.empty() && arguments.urls.empty()) {
    throw Usage_Error("give --url or --uuid");
  }
  const bool by_uuid = !arguments.devices.empty();
  return context.show(expand_objects(by_uuid ? arguments.devices : arguments.urls),
                      [&](const std::string& name, Object& record) {
                        return by_uuid ? find_by_uuid(context, name, record)
                                       : find_by_url(context, name, record);
                      });
}

Exit_Code located(Command_Context& context, const Arguments& arguments) {
  return context.show({arguments.path}, [&](const std::string& path, Object& record) {
    const Target& at = context.target();
    std::string type;
    Array devices;
    Outcome outcome = context.call({Effect::reads}, [&] {
      return Catalog::get_located_devices(at.host, at.port, at.ssl, at.access_key, arguments.pool,
                                          path, type, devices, arguments.grouping.c_str_or_null());
    });
    if (!outcome.done()) return outcome;
    // The library succeeds for a path that the catalog does not know.
    if (type.empty() && devices.empty()) {
      return Outcome{Exit_Code::not_found,
                     "not found: the catalog knows no device for " + arguments.path};
    }
    record = {{"type", std::move(type)}, {"devices", std::move(devices)}};
    return outcome;
  });
}

Exit_Code info(Command_Context& context, const Arguments& arguments) {
  const std::string* const pool =
      arguments.pool_of_url.given ? &arguments.pool_of_url.text : nullptr;
  return context.show({arguments.url}, [&](const std::string& url, Object& record) {
    return ask_about_url(context, pool, url, record);
  });
}

Exit_Code offer(Command_Context& context, const Arguments& arguments) {
  return context.show(
      expand_objects(arguments.pools), [&](const std::string& pool, Object& record) {
        const Target& at = context.target();
        Outcome outcome = context.call({Effect::reads}, [&] {
          return Catalog::offer_device(at.host, at.port, at.ssl, at.access_key, pool, record);
        });
        if (!outcome.done() || !record.empty()) return outcome;
        // The library succeeds with an empty offer.
        return Outcome{Exit_Code::not_found, "not found: the catalog has no device to offer"};
      });
}

Exit_Code bind(Command_Context& context, const Arguments& arguments) {
  const std::string host_uuid =
      arguments.host_uuid.empty() ? Host_ID::instance()->c_str() : arguments.host_uuid;
  if (host_uuid.empty()) {
    throw Usage_Error("this host has no identity: give --host-uuid");
  }
  return context.change(expand_objects(arguments.devices), [&](const std::string& device, Object&) {
    const Target& at = context.target();
    return context.call({Effect::changes}, [&] {
      return Catalog::bind_host_for_lanfree_device(at.host, at.port, at.ssl, at.access_key, device,
                                                   host_uuid, arguments.sysname);
    });
  });
}

}  // namespace

void add_device(Command_Line& commands) {
  const auto arguments = std::make_shared<Arguments>();
  Arguments& a = *arguments;
  Noun device = commands.noun("device", "Devices that make up pools");
  device
      .verb("show", "Shows the catalog's record of devices",
            {"--url file:///vault/d1", "--uuid UUID UUID --output tsv",
             "--url - --output json < urls.txt"},
            &show, arguments)
      .option("--url", a.urls, "URL",
              "Devices by their URL; - reads them from standard input, one per line")
      .option("--uuid", a.devices, "UUID", "Devices by their UUID; - as above")
      .excludes({"--url"});
  device
      .verb(
          "located", "Shows on which devices a path of a pool lies",
          {"POOL_UUID /vault/2026/11/a.img", "POOL_UUID /vault/2026 --grouping host --output json"},
          &located, arguments)
      .argument("POOL_UUID", a.pool, "The pool")
      .argument("PATH", a.path, "The path within the pool")
      .option("--grouping", a.grouping, "G", "Only entries with this grouping");
  device
      .verb("info", "Has the service examine the device at a URL, catalogued or not",
            {"file:///vault/d1", "file:///vault/d1 --pool POOL_UUID"}, &info, arguments)
      .argument("URL", a.url, "The device")
      .option("--pool", a.pool_of_url, "POOL_UUID", "Examine it as part of this pool");
  device
      .verb("offer", "Shows which device of a pool should take new data",
            {"POOL_UUID", "-o json - < pools.txt"}, &offer, arguments)
      .objects("POOL_UUID", a.pools, "The pools");
  device
      .verb("bind", "Binds LAN-free devices to a host",
            {"DEVICE_UUID --host-uuid HOST_UUID --sysname db1", "--sysname db1 - < devices.txt"},
            &bind, arguments)
      .objects("DEVICE_UUID", a.devices, "The devices")
      .option("--host-uuid", a.host_uuid, "UUID", "The host (the local one)")
      .option("--sysname", a.sysname, "NAME", "Name of the host's system")
      .required();
}

}  // namespace zqpool::cli
