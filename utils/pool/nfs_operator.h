#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/http/rest_client.h"
#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// Publishes directories and storage pools as NFS exports. The management service keeps each export
/// as a record under a UUID.
///
/// Every operation sends one request and blocks until the answer is there. It returns true on
/// success; the client logs why a request failed. A request is sent only once: if an operation
/// fails after that, the change may still have been made; see
/// HTTP_Exchange_Report::outcome_unknown(). Throws only std::bad_alloc; export_record() also what
/// uuid_string() throws.
///
/// All requests of an object go through one client, which keeps its connection if there is an
/// access key. Operations may be called from several threads at once, but not while reset() runs.
///
/// @code
///   NFS_Operator exports("manager", 8443, true, key, 2, 30);
///   NFS_Operator::Record record;
///   record.type = NFS_Operator::TYPE_PATH;
///   record.path = "/srv/backup";
///   std::string uuid;
///   if (!exports.export_record(record, uuid, 10)) return false;
/// @endcode
class ZQPOOL_EXPORT NFS_Operator {
 public:
  enum Record_Type : int {
    TYPE_PATH = 0,  ///< a path on the server
    TYPE_POOL = 1   ///< a storage pool, or a directory of it
  };

  /// An export.
  struct Record {
    Record_Type type = TYPE_PATH;
    std::string path;       ///< TYPE_PATH: the path; TYPE_POOL: a directory in the pool, or ""
    std::string pool_uuid;  ///< TYPE_POOL: the pool
    std::string pseudo;     ///< NFSv4 pseudo path; "": same as `path`
    std::string fsal;       ///< file-system abstraction layer, as the service names it
    std::string squash;     ///< user squashing, as the service names it
    bool nfsv3 = false;     ///< NFSv3 instead of NFSv4
    bool readonly = false;
    std::vector<std::string> clients;  ///< hosts that may mount it; empty: all
  };

  /// All operations fail until reset() is called.
  NFS_Operator() = default;
  /// Calls reset().
  NFS_Operator(const char* host, unsigned short port, bool ssl, const char* access_key, int retries,
               int retry_timeout);

  /// Sets the service to use, over HTTPS if `ssl`. A null or empty `access_key` is not sent.
  /// `retries` and `retry_timeout` (seconds) as in JSON_RESTful_Client. If `host` is null or empty,
  /// logs that, returns false and keeps the previous service.
  bool reset(const char* host, unsigned short port, bool ssl, const char* access_key, int retries,
             int retry_timeout);

  /// Publishes `record` under a new UUID, which `uuid` receives also on failure. `timeout` is how
  /// long the service shall wait for the export to be ready (the reference service: in seconds; 0:
  /// not sent). If the record lacks its path or pool, logs that and returns false without a
  /// request.
  bool export_record(const Record& record, std::string& uuid, unsigned int timeout);

  /// Replaces the record under `uuid`. Fails like export_record().
  bool update_record(const Record& record, const std::string& uuid);

  /// Withdraws the record under `uuid`, which goes into the query string unescaped and must not
  /// contain "&", "=", "+", "%" or a zero byte. `timeout` as in export_record(), but 0 is sent.
  bool unexport_record(const std::string& uuid, unsigned int timeout);

 private:
  std::unique_ptr<JSON_RESTful_Client> client_;
};
