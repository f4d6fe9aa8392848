#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/http/rest_client.h"
#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// Publishes directories and storage pools as NFS exports, which the management service keeps as
/// records, each under a UUID.
///
/// Every operation makes one exchange with the service and blocks its thread meanwhile. False means
/// that the service did not take it; what the client logs says why (and what is logged here, where
/// said so). A change is never sent twice on a guess: when it returns false although it went out,
/// it may have been made (HTTP_Exchange_Report::outcome_unknown()). Of exceptions only
/// std::bad_alloc leaves an operation, and out of export_record() what uuid_string() throws.
///
/// The operator keeps one client for all its calls, which with an access key also keeps its
/// connection. Operations may run on several threads at once; reset() may not run beside them.
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

  /// What is exported, how, and to whom.
  struct Record {
    Record_Type type = TYPE_PATH;
    std::string path;       ///< TYPE_PATH: the path; TYPE_POOL: a directory inside, or ""
    std::string pool_uuid;  ///< TYPE_POOL: the pool
    std::string pseudo;     ///< NFSv4 pseudo path; `path` when it is empty
    std::string fsal;       ///< file-system abstraction layer, as the service knows it
    std::string squash;     ///< which users are squashed, as the service knows it
    bool nfsv3 = false;     ///< NFSv3 instead of v4
    bool readonly = false;
    std::vector<std::string> clients;  ///< who may mount it; empty: everybody
  };

  /// An operator whose calls all fail until reset().
  NFS_Operator() = default;
  /// As reset().
  NFS_Operator(const char* host, unsigned short port, bool ssl, const char* access_key, int retries,
               int retry_timeout);

  /// Sets the service up, in place of any before: HTTPS when `ssl`; a null or empty `access_key` is
  /// not sent. `retries` and `retry_timeout` (seconds) are those of the client
  /// (JSON_RESTful_Client). A null or empty `host` is false with a message, and an earlier service
  /// stays in use.
  bool reset(const char* host, unsigned short port, bool ssl, const char* access_key, int retries,
             int retry_timeout);

  /// Publishes `record` under a new UUID, which is in `uuid` whatever comes of it. `timeout` is
  /// what the service is told to wait for the export to be there (seconds, as the reference service
  /// has it; 0: it is told nothing). A record without its path or pool is false, with a message and
  /// nothing sent.
  bool export_record(const Record& record, std::string& uuid, unsigned int timeout);

  /// Puts `record` in place of the one under `uuid`. Failures as above.
  bool update_record(const Record& record, const std::string& uuid);

  /// Withdraws the record under `uuid`. `timeout` as in export_record(), but sent also when it is
  /// 0.
  bool unexport_record(const std::string& uuid, unsigned int timeout);

 private:
  std::unique_ptr<JSON_RESTful_Client> client_;
};
