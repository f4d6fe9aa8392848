// A pool's description comes from a service. Whatever it holds, parsing it must end with a result
// or the one documented exception, and the record must be the same after storing and loading it.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "fuzz/check.h"
#include "fuzz/quiet_log.h"
#include "platform/host/host_id.h"
#include "platform/host/websocket_options.h"
#include "utils/pool/storage_pool_helpers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = [] {
    quiet_log();
    Host_ID::instance()->set("h1");
    WebSocket_Options::configure("backup", 8443, true);
    return true;
  }();
  if (!prepared || size == 0) return 0;

  // The first byte selects the host and the device.
  const char* const hosts[] = {nullptr, "", "h1", "h2"};
  const char* const devices[] = {nullptr, "", "d1", "d2"};
  const char* host = hosts[data[0] & 3U];
  const char* device = devices[(data[0] >> 2U) & 3U];
  json_spirit::Value value;
  if (!json_spirit::read(std::string(reinterpret_cast<const char*>(data + 1), size - 1), value) ||
      value.type() != json_spirit::obj_type) {
    return 0;
  }
  Pool_Info info;
  try {
    parse_pool_info(value.get_obj(), info, host, device);
  } catch (const std::runtime_error&) {
    check(info.multidevice);
  }
  Object stored;
  info >> stored;
  Pool_Info loaded;
  loaded << stored;
  Object again;
  loaded >> again;
  check(json_spirit::Value(again) == json_spirit::Value(stored));
  return 0;
}
