#include <httplib.h>

#include <memory>

#include "bench/http/clients.h"
#include "bench/http/record.h"

namespace zqpool::bench {
namespace {

template <class Client>
Call make_call(const std::shared_ptr<Client>& client, const Target& target) {
  client->set_connection_timeout(10);
  client->set_read_timeout(10);
  client->set_write_timeout(10);
  client->set_tcp_nodelay(true);
  const std::string path = target.request_path.substr(0, target.request_path.find('?'));
  return [client, target, path] {
    const auto result = client->Get(
        path, httplib::Params{{"url", target.device_url}},
        httplib::Headers{{"X-Access-Key", target.access_key}, {"Accept", "application/json"}});
    if (!result || result->status != 200) return false;
    rapidjson::Document row;
    return take_only_row(result->body.data(), result->body.size(), target.device_uuid, row);
  };
}

}  // namespace

Make_Call httplib(const Target& target) {
  return [target]() -> Call {
    if (!target.ssl()) {
      return make_call(std::make_shared<::httplib::Client>(target.host, target.port), target);
    }
    auto client = std::make_shared<::httplib::SSLClient>(target.host, target.port);
    client->set_ca_cert_path(target.ca_file);
    client->enable_server_certificate_verification(true);
    return make_call(client, target);
  };
}

}  // namespace zqpool::bench
