// Calls both installed libraries; exits with 0 when they do what they should.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>

#include "platform/http/http_exchange_report.h"
#include "platform/json/json_dump.h"
#include "platform/json/json_spirit.h"
#include "utils/pool/pool_metadata_manager.h"
#include "utils/support/string_sprintf.h"

namespace {

/// A socket bound to a port of this host on which nobody listens, so that it refuses.
unsigned short refusing_port() {
  const int handle = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(handle, generic, length) != 0 || getsockname(handle, generic, &length) != 0) return 0;
  return ntohs(address.sin_port);  // the handle stays open until the process ends
}

bool check(bool condition, const char* what) {
  if (!condition) std::fprintf(stderr, "consumer: %s\n", what);
  return condition;
}

}  // namespace

int main() {
  json_spirit::Value value;
  Object device;
  device["untouched"] = true;
  const bool found = Pool_Metadata_Manager::get_device("127.0.0.1", refusing_port(), false, "key",
                                                       "file:///srv/d1", device);
  const bool good =
      check(json_spirit::read("{\"a\":[1,null]}", value), "cannot read JSON") &&
      check(string_sprintf("%s", JSON_Dump(value, false).c_str()) == "{\"a\":[1,null]}",
            "bad JSON") &&
      check(!found, "found a device where nobody listens") &&
      check(last_http_exchange().error == HTTP_Error::connect, "the report names another error") &&
      check(device.size() == 1, "a failed call changed its output");
  return good ? 0 : 1;
}
