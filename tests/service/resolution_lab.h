#pragma once

#include <string>

#include "platform/crypto/s3_key.h"
#include "tests/service/small_lab.h"

namespace zqpool::test {

/// The secret that services and hosts share, in this process while it lives.
class S3_Secret {
 public:
  explicit S3_Secret(const std::string& text = "shared-by-service-and-hosts") {
    set_s3_key_secret(text);
  }
  ~S3_Secret() { set_s3_key_secret(""); }
  S3_Secret(const S3_Secret&) = delete;
  S3_Secret& operator=(const S3_Secret&) = delete;
};

inline const std::string host_a = "aaaaaaaa-0000-4000-8000-000000000001";
inline const std::string host_b = "bbbbbbbb-0000-4000-8000-000000000002";
inline const std::string server_s = "cccccccc-0000-4000-8000-000000000003";
inline const std::string account_t = "dddddddd-0000-4000-8000-000000000004";
inline const std::string replica_uuid = "eeeeeeee-0000-4000-8000-000000000005";

// Texts that belong into no log.
inline const std::string lab_data_key = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=";
inline const std::string lab_iv = "AAECAwQFBgcICQoL";
inline const std::string lab_tenant_key = "tenant-key-7d1f";
inline const std::string lab_secret_key = "object-secret-31c9";

/// One pool of each kind, and a replica of pool 3:
/// 1 file, attached to two hosts; 2 deduplication on one node, encrypted, for one account; 3 on two
/// nodes, with a copy of the first; 4 object store with keys; 5 with credentials for a time; 6 HBR;
/// 7 LAN-free, one device bound to host_a and one free; 8 plain, with a second network; 9 empty.
inline std::string resolution_lab() {
  const auto pool = [](int number, const std::string& type, const std::string& more = "") {
    return (number == 1 ? "" : ",") + std::string(R"({"uuid":")") + pool_uuid(number) +
           R"(","name":"pool )" + std::to_string(number) + R"(","type":")" + type +
           R"(","created":"2026-01-02T03:04:05Z")" + more + '}';
  };
  const auto device = [](int number, int of_pool, const std::string& url, std::int64_t size,
                         const std::string& more = "") {
    return (number == 1 ? "" : ",") + std::string(R"({"uuid":")") + device_uuid(number) +
           R"(","pool_uuid":")" + pool_uuid(of_pool) + R"(","name":"device )" +
           std::to_string(number) + R"(","type":"disk","created":"2026-01-02T03:04:06Z","url":")" +
           url + R"(","size":)" + std::to_string(size) + more + '}';
  };
  return R"({"pools":[)" +
         pool(1, "file",
              R"(,"preferred_source_address":"10.0.0.1",
               "source_addresses":{")" +
                  host_a + R"(":"10.0.0.7"})") +
         pool(2, "dedup",
              R"(,"encryption":"aes-256-gcm","key":")" + lab_data_key + R"(","iv":")" + lab_iv +
                  R"(","dedup_backend_type":"rocks",
               "tenant_access_key":")" +
                  lab_tenant_key + R"(","account_uuid":")" + account_t + '"') +
         pool(3, "dedup", R"(,"multidevice":true)") + pool(4, "object") + pool(5, "object") +
         pool(6, "hbr") + pool(7, "lanfree") + pool(8, "plain") + pool(9, "file") +
         R"(],"devices":[)" +
         device(1, 1, "file:///srv/a", 1000,
                R"(,"used":400,"attached_hosts":{")" + host_a + R"(":"/mnt/a",")" + host_b +
                    R"(":"mnt/b"})") +
         device(2, 2, "dedups://one.lab:8443/store", 1000) +
         device(3, 3, "wss://n1.lab:9443/store", 1000, R"(,"node_id":1)") +
         device(4, 3, "dedup://n2.lab/store", 2000, R"(,"node_id":2,"state":"offline")") +
         device(5, 3, "dedup://n3.lab:9000/store", 1000, R"(,"node_id":2,"role":"slave")") +
         device(6, 4, "s3v4s://objects.lab/bucket", 1000,
                R"(,"vendor":"lab","region":"lab-1","sign_method":"v4","access_key":"LAB-KEY",
                "secret_key":")" +
                    lab_secret_key + '"') +
         device(7, 5, "oss://cloud.lab/bucket", 1000, R"(,"use_sts":true,"vendor":"lab")") +
         device(8, 6, "hbrs://hbr.lab/vault", 1000, R"(,"bucket":"b-7")") +
         device(9, 7, "lanfree://san.lab/p/l1/zq", 1000,
                R"(,"bound_host":{"host_id":")" + host_a + R"(","sysname":"db7"})") +
         device(10, 7, "lanfree://san.lab/p/l2/zq", 500) +
         device(11, 8, "https://store.lab/zq/data/5f3a", 1000,
                R"(,"server_uuid":")" + server_s +
                    R"(","network_urls":{"3":"http://10.3.0.9:8080/zq/data/5f3a"})") +
         R"(],"replicas":[{"uuid":")" + replica_uuid + R"(","pool_uuid":")" + pool_uuid(3) +
         R"("}]})";
}

}  // namespace zqpool::test
