#include "utils/pool/nfs_operator.h"

#include <utility>

#include "platform/host/uuid.h"
#include "utils/support/json_util.h"
#include "utils/support/log.h"
#include "utils/support/service_call.h"

using std::string;
using zqpool::detail::Service_Call;

namespace {

constexpr const char* nfs_path = "/zq/r/nfs";

bool is_valid(const NFS_Operator::Record& record) {
  return (record.type != NFS_Operator::TYPE_PATH || !record.path.empty()) &&
         (record.type != NFS_Operator::TYPE_POOL || !record.pool_uuid.empty());
}

Object body_of(const NFS_Operator::Record& record, const string& uuid) {
  Array clients(record.clients.begin(), record.clients.end());
  if (clients.empty()) clients.emplace_back("*");
  Object body = Object_Maker()
                    .insert("uuid", uuid)
                    .insert("pseudo", record.pseudo.empty() ? record.path : record.pseudo)
                    .insert("fsal", record.fsal)
                    .insert("squash", record.squash)
                    .insert("state", "pending")
                    .insert("protocols", record.nfsv3 ? "3" : "4")
                    .insert("access_type", record.readonly ? "RO" : "RW")
                    .insert("clients", std::move(clients))
                    .take();
  if (record.type == NFS_Operator::TYPE_PATH) {
    insert(body)("path", record.path);
  } else if (record.type == NFS_Operator::TYPE_POOL) {
    insert(body)("pool_uuid", record.pool_uuid);
    if (!record.path.empty()) insert(body)("sub_dir", record.path);
  }
  return body;
}

bool is_set_up(const JSON_RESTful_Client* client) {
  return client != nullptr ||
         ZQ_EMERGENCY("Unexpected error in %s:%d, client_ is NULL:\n%s\n", __FILE__, __LINE__,
                      zqpool::detail::call_stack().c_str());
}

/// Values above INT_MAX are sent as negative numbers, as the service expects.
string sync_value(unsigned timeout) {
  return std::to_string(static_cast<int>(timeout));
}

bool send_record(JSON_RESTful_Client* client, int method, const NFS_Operator::Record& record,
                 const string& uuid, unsigned timeout) {
  if (!is_set_up(client)) return false;
  if (!is_valid(record)) return ZQ_ERROR("Invalid NFS record.\n");
  Service_Call call(*client, method, nfs_path);
  if (timeout != 0) call.raw("sync", sync_value(timeout));
  return call.body(body_of(record, uuid)).send();
}

}  // namespace

NFS_Operator::NFS_Operator(const char* host, unsigned short port, bool ssl, const char* access_key,
                           int retries, int retry_timeout) {
  reset(host, port, ssl, access_key, retries, retry_timeout);
}

bool NFS_Operator::reset(const char* host, unsigned short port, bool ssl, const char* access_key,
                         int retries, int retry_timeout) {
  if (host == nullptr || *host == '\0') {
    return ZQ_EMERGENCY("Unexpected error in %s:%d, host is NULL or \"\":\n%s\n", __FILE__,
                        __LINE__, zqpool::detail::call_stack().c_str());
  }
  client_ = std::make_unique<JSON_RESTful_Client>(host, port, ssl, true);
  client_->retries(retries);
  client_->retry_timeout(retry_timeout);
  if (access_key != nullptr && *access_key != '\0') {
    client_->set_header(HTTP_HEAD_X_ACCESS_KEY, access_key);
  }
  return true;
}

bool NFS_Operator::export_record(const Record& record, string& uuid, unsigned int timeout) {
  uuid_string(uuid, false);
  return send_record(client_.get(), HTTP_METHOD_POST, record, uuid, timeout);
}

bool NFS_Operator::update_record(const Record& record, const string& uuid) {
  return send_record(client_.get(), HTTP_METHOD_PUT, record, uuid, 0);
}

bool NFS_Operator::unexport_record(const string& uuid, unsigned int timeout) {
  if (!is_set_up(client_.get())) return false;
  return Service_Call(*client_, HTTP_METHOD_DELETE, nfs_path)
      .raw("uuid", uuid)
      .raw("sync", sync_value(timeout))
      .send();
}
