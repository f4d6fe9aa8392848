#include "utils/pool/utils.h"

#include <sstream>
#include <utility>

#include "platform/http/http_session.h"
#include "platform/json/json_dump.h"
#include "platform/net/uri.h"
#include "utils/pool/catalog_agent.h"
#include "utils/pool/detail/parse_url.h"
#include "utils/support/http_query_string.h"
#include "utils/support/json_util.h"
#include "utils/support/log.h"
#include "utils/support/regex_match.h"

namespace {

const boost::regex& HTTP_POOL_URI_RE() {
  static const boost::regex expression("^/(zq/(data|corundel|ext-data/[^/]+)/([^/]+))(/.*)?$");
  return expression;
}

const boost::regex& LANFREE_POOL_URI_RE() {
  static const boost::regex expression("^/(([^/]*)(/([^/]*))?/zq)(/.*)?$");
  return expression;
}

void take(std::string part, std::string* out) {
  if (out != nullptr) *out = std::move(part);
}

/// Stores the path behind the device, without its "/". On purpose nothing is stored if there is no
/// path: callers pass their default.
void take_prefix_path(const std::string& path, std::string* out) {
  if (out != nullptr && !path.empty()) out->assign(path, 1);
}

}  // namespace

bool parse_http_uri(const std::string& uri, std::string* device_uri, std::string* device_uuid,
                    std::string* prefix_path) {
  boost::smatch match;
  if (!zqpool::detail::matches(uri, match, HTTP_POOL_URI_RE())) {
    return ZQ_ERROR("Failed to match regex for '%s'\n", uri.c_str());
  }
  // Copied first: an output may be the string `uri` itself.
  std::string device = match[1];
  std::string uuid = match[3];
  const std::string path = match[4];
  take(std::move(device), device_uri);
  take(std::move(uuid), device_uuid);
  take_prefix_path(path, prefix_path);
  return true;
}

bool parse_lanfree_uri(const std::string& uri, std::string* device_uri, std::string* pool_uuid,
                       std::string* lun_id, std::string* prefix_path) {
  boost::smatch match;
  if (!zqpool::detail::matches(uri, match, LANFREE_POOL_URI_RE())) {
    return ZQ_ERROR("Failed to match regex for '%s'\n", uri.c_str());
  }
  std::string device = match[1];
  std::string pool = match[2];
  std::string lun = match[4];
  const std::string path = match[5];
  take(std::move(device), device_uri);
  take(std::move(pool), pool_uuid);
  take(std::move(lun), lun_id);
  take_prefix_path(path, prefix_path);
  return true;
}

bool adjust_device_url_by_backupd_device(const Object& backupd_dev, Object& dev) {
  const std::string* url = json_spirit::object_get_str(dev, "url");
  URI uri;
  if (url == nullptr || !zqpool::detail::parse_url_silently(*url, uri)) return false;
  if (const std::string* host = json_spirit::object_get_str(backupd_dev, "host")) {
    uri.host(*host, false);
  }
  int port = 0;
  if (json_spirit::object_get(backupd_dev, "port", port)) {
    uri.port(static_cast<unsigned short>(port));
  }
  bool ssl = false;
  if (json_spirit::object_get(backupd_dev, "ssl", ssl)) uri.ssl(ssl);
  std::ostringstream text;
  uri.build(text);
  insert(dev)("url", text.str());
  return true;
}

bool is_cd_modules(const Object& storage_catalog, const std::string* agent) {
  if (const Object* attributes =
          json_spirit::object_get_object(storage_catalog, "extended_attrs")) {
    if (object_get_or_default(*attributes, "impl_version", 0) == 1) return false;
    const std::string* code_name = json_spirit::object_get_str(*attributes, "code_name");
    if (code_name != nullptr && *code_name == "velmora") return false;
  }
  if (agent == nullptr) agent = json_spirit::object_get_str(storage_catalog, "agent");
  Catalog_Agent identity;
  if (agent == nullptr || !identity.parse(*agent)) return false;
  return identity.system == "vm" || identity.type == "cdp" ||
         (identity.system == "windows-x86" && identity.type == "os");
}

bool get_storaged_space_info(const std::string& host, const unsigned int port, const bool ssl,
                             const std::string& access_key, Object& info) {
  constexpr int connect_attempts = 3;
  constexpr int limit = 120;  // seconds
  JSON_HTTP_Session session(HTTP_Session_Ptr(), 5, 300);
  session.reset(HTTP_Session_Factory().create(host.c_str(), static_cast<unsigned short>(port), ssl,
                                              nullptr, connect_attempts, nullptr, false, limit,
                                              limit, 0, 0));
  if (!session) return ZQ_ERROR("Failed to create json http session\n");

  HTTP_Request request(HTTP_METHOD_GET, "/zq/r/file_uri/statfs", true);
  request.headers().put(HTTP_HEAD_X_ACCESS_KEY, access_key.c_str(), true);
  std::string query;
  HTTP_Query_String_Builder build_query{std::back_inserter(query)};
  build_query("uri", "/zq/data");
  request.query_string(query.c_str());

  HTTP_Response response;
  json_spirit::Value answer;
  const bool ok = session.get(request, response, answer);
  if (!ok || response.status() != 200 || answer.type() != json_spirit::obj_type) {
    return ZQ_ERROR("Failed to get storage server space info, errno=%d, %s.\n",
                    static_cast<int>(response.status()), JSON_Dump(answer, false).c_str());
  }
  info.swap(answer.get_obj());
  return true;
}
