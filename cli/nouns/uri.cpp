#include "platform/net/uri.h"

#include <limits>
#include <optional>
#include <utility>

#include "cli/command/batch.h"
#include "cli/command/command_line.h"
#include "utils/pool/utils.h"
#include "utils/support/uri_util.h"

namespace zqpool::cli {

namespace {

using json_spirit::Value;

/// What the parsers leave alone when a path says nothing of it; no argument can hold it.
const std::string unsaid(1, '\0');

Value said(std::string text) {
  return text == unsaid ? Value() : Value(std::move(text));
}

bool take_http(const std::string& path, Object& record) {
  std::string device_uri;
  std::string device_uuid;
  std::string prefix = unsaid;
  if (!parse_http_uri(path, &device_uri, &device_uuid, &prefix)) return false;
  record["kind"] = "http";
  record["device_uri"] = std::move(device_uri);
  record["device_uuid"] = std::move(device_uuid);
  record["prefix_path"] = said(std::move(prefix));
  return true;
}

bool take_lanfree(const std::string& path, Object& record) {
  std::string device_uri;
  std::string pool_uuid;
  std::string lun_id;
  std::string prefix = unsaid;
  if (!parse_lanfree_uri(path, &device_uri, &pool_uuid, &lun_id, &prefix)) return false;
  record["kind"] = "lanfree";
  record["device_uri"] = std::move(device_uri);
  record["pool_uuid"] = std::move(pool_uuid);
  record["lun_id"] = std::move(lun_id);
  record["prefix_path"] = said(std::move(prefix));
  return true;
}

Outcome parse(const std::string& text, bool lanfree, Object& record) {
  std::string path = text;
  if (text.front() != '/') {
    URI uri;
    if (!URI_Parser::parse(text.c_str(), uri)) {
      return {Exit_Code::failed, "it is neither a URL nor a path from / on"};
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
  return {Exit_Code::failed, "it is no path of a device"};
}

struct Parse_Arguments {
  std::vector<std::string> uris;
  bool lanfree = false;
};

Exit_Code parse_each(Session& session, const Parse_Arguments& arguments) {
  return session.derive(expand_objects(arguments.uris),
                        [&](const std::string& text, Object& record) {
                          return parse(text, arguments.lanfree, record);
                        });
}

struct Adjust_Arguments {
  std::vector<std::string> urls;
  std::string host;
  std::optional<int> port;
  std::optional<bool> ssl;
};

Exit_Code adjust(Session& session, const Adjust_Arguments& arguments) {
  Object server;
  if (!arguments.host.empty()) server["host"] = arguments.host;
  if (arguments.port) server["port"] = *arguments.port;
  if (arguments.ssl) server["ssl"] = *arguments.ssl;
  if (server.empty()) throw Usage_Error("to which server? Give --host, --port or --ssl");
  return session.derive(expand_objects(arguments.urls),
                        [&](const std::string& url, Object& record) {
                          record["url"] = url;
                          if (adjust_device_url_by_backupd_device(server, record)) return Outcome();
                          return Outcome{Exit_Code::failed, "it is no URL"};
                        });
}

}  // namespace

void add_uri(Command_Line& commands) {
  CLI::App& uri = commands.noun("uri", "URLs and paths of devices; asks no service");

  auto [parse_verb, parsed] = commands.verb<Parse_Arguments>(
      uri, "parse", "Takes URLs and paths of devices apart",
      {"zqpool uri parse /zq/data/5f3a/dir/file", "zqpool uri parse lanfree://store1/p1/l7/zq/a",
       "zqpool uri parse -o json - < urls.txt"},
      &parse_each);
  add_objects(parse_verb, "URI", parsed.uris, "URLs, or paths from / on");
  parse_verb.add_flag("--lanfree", parsed.lanfree,
                      "Paths of LAN-free devices, also where they could be others");

  auto [adjust_verb, adjusted] = commands.verb<Adjust_Arguments>(
      uri, "adjust", "Points URLs of devices at another server",
      {"zqpool uri adjust ws://old:9080/zq/data/5f3a --host backup1 --port 9443 --ssl true",
       "zqpool uri adjust --host backup1 -o tsv - < urls.txt"},
      &adjust);
  add_objects(adjust_verb, "URL", adjusted.urls, "The URLs");
  adjust_verb.add_option("--host", adjusted.host, "Its host name or address")->type_name("HOST");
  adjust_verb.add_option("--port", adjusted.port, "Its port")
      ->type_name("PORT")
      ->check(CLI::Range(1, int{std::numeric_limits<unsigned short>::max()}));
  adjust_verb.add_option("--ssl", adjusted.ssl, "Whether by TLS, which the scheme says")
      ->type_name("true|false");
}

}  // namespace zqpool::cli
