#include "platform/net/uri.h"

#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "cli/command/batch.h"
#include "cli/nouns/nouns.h"
#include "utils/pool/utils.h"
#include "utils/support/uri_util.h"

namespace zqpool::cli {

namespace {

using json_spirit::Value;

/// Marks outputs that the parsers leave unchanged because the path lacks them. No argument can hold
/// a NUL.
const std::string unset(1, '\0');

Value value_if_set(std::string text) {
  return text == unset ? Value() : Value(std::move(text));
}

bool take_http(const std::string& path, Object& record) {
  std::string device_uri;
  std::string device_uuid;
  std::string prefix = unset;
  if (!parse_http_uri(path, &device_uri, &device_uuid, &prefix)) return false;
  record["kind"] = "http";
  record["device_uri"] = std::move(device_uri);
  record["device_uuid"] = std::move(device_uuid);
  record["prefix_path"] = value_if_set(std::move(prefix));
  return true;
}

bool take_lanfree(const std::string& path, Object& record) {
  std::string device_uri;
  std::string pool_uuid;
  std::string lun_id;
  std::string prefix = unset;
  if (!parse_lanfree_uri(path, &device_uri, &pool_uuid, &lun_id, &prefix)) return false;
  record["kind"] = "lanfree";
  record["device_uri"] = std::move(device_uri);
  record["pool_uuid"] = std::move(pool_uuid);
  record["lun_id"] = std::move(lun_id);
  record["prefix_path"] = value_if_set(std::move(prefix));
  return true;
}

Outcome parse(const std::string& text, bool lanfree, Object& record) {
  std::string path = text;
  if (text.front() != '/') {
    URI uri;
    if (!URI_Parser::parse(text.c_str(), uri)) {
      return {Exit_Code::failed, "it is neither a URL nor an absolute path"};
    }
    record = {{"scheme", uri.scheme()},
              {"host", uri.host()},
              {"port", static_cast<int>(uri.port())},
              {"ssl", uri.is_ssl()},
              {"path", uri.path()}};
    path = uri.path();
    lanfree = lanfree || is_lanfree_uri(text.c_str());
  }
  if ((!lanfree && take_http(path, record)) || take_lanfree(path, record)) return {};
  return {Exit_Code::failed, "it is not the path of a device"};
}

struct Arguments {
  std::vector<std::string> uris;
  bool lanfree = false;
  std::string host;
  std::optional<int> port;
  std::optional<bool> ssl;
};

Exit_Code parse_each(Command_Context& context, const Arguments& arguments) {
  return context.derive(expand_objects(arguments.uris),
                        [&](const std::string& text, Object& record) {
                          return parse(text, arguments.lanfree, record);
                        });
}

Exit_Code adjust(Command_Context& context, const Arguments& arguments) {
  Object server;
  if (!arguments.host.empty()) server["host"] = arguments.host;
  if (arguments.port) server["port"] = *arguments.port;
  if (arguments.ssl) server["ssl"] = *arguments.ssl;
  if (server.empty()) throw Usage_Error("give --host, --port or --ssl");
  return context.derive(expand_objects(arguments.uris),
                        [&](const std::string& url, Object& record) {
                          record["url"] = url;
                          if (adjust_device_url_by_backupd_device(server, record)) return Outcome();
                          return Outcome{Exit_Code::failed, "it is not a URL"};
                        });
}

}  // namespace

void add_uri(Command_Line& commands) {
  const auto arguments = std::make_shared<Arguments>();
  Arguments& a = *arguments;
  Noun uri = commands.noun("uri", "URLs and paths of devices; needs no service");
  uri.verb("parse", "Shows the parts of URLs and paths of devices",
           {"/zq/data/5f3a/dir/file", "lanfree://store1/p1/l7/zq/a", "-o json - < urls.txt"},
           &parse_each, arguments)
      .objects("URI", a.uris, "URLs or absolute paths")
      .flag("--lanfree", a.lanfree, "Treat ambiguous paths as LAN-free");
  uri.verb("adjust", "Points URLs of devices at another server",
           {"ws://old:9080/zq/data/5f3a --host backup1 --port 9443 --ssl true",
            "--host backup1 -o tsv - < urls.txt"},
           &adjust, arguments)
      .objects("URL", a.uris, "The URLs")
      .option("--host", a.host, "HOST", "Its host name or address")
      .option("--port", a.port, "PORT", "Its port")
      .range(1, std::numeric_limits<unsigned short>::max())
      .option("--ssl", a.ssl, "true|false", "Whether to use TLS");
}

}  // namespace zqpool::cli
