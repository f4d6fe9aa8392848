// The product's HTTP: services in memory, and the clients that ask them.
#include <ace/Log_Msg.h>

#include <deque>
#include <mutex>
#include <utility>

#include "platform/host/host_manager.h"
#include "platform/http/rest_client.h"
#include "platform/json/json_dump.h"

namespace product {
namespace {

struct Answer {
  unsigned status;
  json_spirit::Value body;
};

std::mutex table_lock;
std::map<std::string, std::deque<Answer>> table;
std::vector<std::string> requests;

std::string line_of(const std::string& root, const HTTP_Request& request) {
  static const std::map<int, std::string> verbs = {{HTTP_METHOD_DELETE, "DELETE "},
                                                   {HTTP_METHOD_GET, "GET "},
                                                   {HTTP_METHOD_POST, "POST "},
                                                   {HTTP_METHOD_PUT, "PUT "}};
  return verbs.at(request.verb()) + root + request.target();
}

}  // namespace

void answers(const std::string& line, unsigned status, const json_spirit::Value& body) {
  std::lock_guard<std::mutex> locked(table_lock);
  table[line].push_back({status, body});
}

std::vector<std::string> take_requests() {
  std::lock_guard<std::mutex> locked(table_lock);
  return std::exchange(requests, {});
}

std::string root_of(const char* host, unsigned port, bool tls) {
  return (tls ? "https://" : "http://") + std::string(host) + ':' + std::to_string(port);
}

bool exchange(const std::string& root, const std::string& own_key, HTTP_Request& request,
              const json_spirit::Value* body, HTTP_Response& response, json_spirit::Value* answer) {
  const std::string line = line_of(root, request);
  const auto& heads = request.headers().all;
  const auto sent_key = heads.find(HTTP_HEAD_X_ACCESS_KEY);
  const std::string& key = sent_key == heads.end() ? own_key : sent_key->second;

  std::lock_guard<std::mutex> locked(table_lock);
  requests.push_back(line + (key.empty() ? "" : " [" + key + "]") +
                     (body ? std::string(" ") + JSON_Dump(*body, false).c_str() : ""));
  const auto known = table.find(line);
  if (known == table.end()) return false;
  std::deque<Answer>& queue = known->second;
  response.came(queue.front().status);
  const json_spirit::Value& came = queue.front().body;
  if (answer && came.type() != json_spirit::null_type) *answer = came;
  if (queue.size() > 1) queue.pop_front();
  return response.status() / 100 == 2;
}

}  // namespace product

bool JSON_RESTful_Client::ask(HTTP_Request& request, const json_spirit::Value* body,
                              json_spirit::Value* to, HTTP_Response& response) {
  if (product::exchange(root_, key_, request, body, response, to)) return true;
  if (log_) {
    ACE_ERROR((LM_ERROR, "product: %C answers %u\n", root_.c_str(), response.status()));
  }
  return false;
}

Common_JSON_RESTful_Client::Common_JSON_RESTful_Client(const char* host, unsigned port, bool tls,
                                                       bool backup_server, bool)
    : JSON_RESTful_Client(host, port, tls, true) {
  if (backup_server) set_header(HTTP_HEAD_X_ACCESS_KEY, Host_Manager::instance()->access_key());
}

Upstream_JSON_RESTful_Client& Upstream_JSON_RESTful_Client::instance() {
  static Upstream_JSON_RESTful_Client client("upstream", 443, true, true);
  return client;
}
