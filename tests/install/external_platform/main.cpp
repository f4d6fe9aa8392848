// Operations of each kind on the product's own platform: results, requests and log lines.
#include <ace/Log_Msg.h>

#include <cstdio>
#include <sstream>

#include "platform/http/rest_client.h"
#include "platform/json/json_dump.h"
#include "utils/pool/image_pool_manager.h"
#include "utils/pool/nfs_operator.h"
#include "utils/pool/pool_metadata_manager.h"
#include "utils/pool/scsi_target_manager.h"
#include "utils/pool/storage_pool_helpers.h"
#include "utils/pool/utils.h"
#include "utils/support/sleep.h"

namespace {

using product::answers;

int failures = 0;
std::ostringstream log_text;
std::string slept;

void expect(const char* what, const std::string& got, const std::string& wanted) {
  if (got == wanted) return;
  ++failures;
  std::fprintf(stderr, "%s:\n  wanted: %s\n  got:    %s\n", what, wanted.c_str(), got.c_str());
}

void expect(const char* what, bool good) {
  expect(what, good ? "yes" : "no", "yes");
}

/// What was asked and logged since the last call must be this, line for line.
void expect_traffic(const char* what, const std::string& requests, const std::string& logged) {
  std::string asked;
  for (const std::string& request : product::take_requests())
    asked += request + '\n';
  expect(what, asked, requests);
  expect(what, log_text.str(), logged);
  log_text.str("");
}

std::string dump(const json_spirit::Value& value) {
  return JSON_Dump(value, false).c_str();
}

void read_the_catalog() {
  const std::string line = "GET https://catalog:8443/zq/r/storage/catalog/device?url=";
  answers(line + "file%3a%2f%2f%2fsrv%2fd1", 200,
          Object{{"rows", Array{Object{{"uuid", "d1"}, {"size", 1ULL << 63}}}}});
  Object device;
  expect("a device",
         Pool_Metadata_Manager::get_device("catalog", 8443, true, "key", "file:///srv/d1", device));
  expect("the device", dump(device), R"({"size":9223372036854775808,"uuid":"d1"})");
  expect_traffic("reading the catalog", line + "file%3a%2f%2f%2fsrv%2fd1 [key]\n", "");

  answers(line + "gone", 404, Object());
  expect("no device",
         !Pool_Metadata_Manager::get_device("catalog", 8443, true, "key", "gone", device));
  expect("an output after a failure", device.count("uuid") == 1);
  expect_traffic("reading in vain", line + "gone [key]\n",
                 "product: https://catalog:8443 answers 404\nFailed to GET data from 'gone'.\n");
}

void create_luns() {
  const std::string body =
      R"({"acls":[{"host_uuid":"host-a","initiator":"iqn.2001-01.example.product:host-a"}],)"
      R"("export":true,"lun_size":1024,"pool_id":"p1","retention_type":"newest"})";
  answers("GET http://storage:8080/zq/r/pool?type=scsi&pool_id=p1", 200,
          Array{Object{{"type", "iSCSI"}}});
  answers("POST http://storage:8080/zq/r/scsipool/lun", 201,
          Object{{"lun_id", "l1"}, {"lun_num", 4}});
  answers("POST http://storage:8080/zq/r/scsipool/lun", 201, Object{{"lun_id", "l2"}});

  SCSI_Target_Manager pool("http://storage:8080/zq", "key", "p1", nullptr);
  std::string id;
  int number = 0;
  expect("a LUN", pool.create_newest_lun(1024, id, number) && id == "l1" && number == 4);
  expect_traffic("creating a LUN",
                 "GET http://storage:8080/zq/r/pool?type=scsi&pool_id=p1 [key]\n"
                 "POST http://storage:8080/zq/r/scsipool/lun [key] " +
                     body + "\n",
                 "");
  expect("a LUN without a number", !pool.create_newest_lun(1024, id, number) && id == "l2");
  expect_traffic("creating another",
                 "POST http://storage:8080/zq/r/scsipool/lun [key] " + body + "\n",
                 "Failed to create lun in p1 :\"lun_num\": wanted 32-bit integer, found nothing\n");
  const auto portal = [](const char* url) {
    return SCSI_Target_Manager(url, "", "p1", nullptr).get_scsi_pool_portal();
  };
  expect("the portal at an address", portal("https://[2001:db8::7]/zq"), "[2001:db8::7]:3260");
  expect("the portal at a name", portal("http://127.1/zq"), "127.0.0.1:3260");

  Object acls;
  expect("WWNs", SCSI_Target_Manager("h", 1, false, "", "p1", nullptr).get_acls(acls, "FC"));
  expect("the WWNs", json_spirit::object_get_array(acls, "acls")->size() == 2);
}

void look_for_a_predecessor() {
  const std::string line = "GET https://images:443/zq/r/scsipool/fs/snapshot?pool_id=p2&";
  answers(line + "snapshot_id=s3", 200,
          Array{Object{{"parent_id", "fs"}, {"seq", 3}, {"excl_size", 5}, {"rfer_size", 100}}});
  answers(line + "name=fs", 200,
          Array{Object{{"id", "s1"}, {"seq", 1}, {"excl_size", 1}, {"rfer_size", 1}},
                Object{{"id", "s2"}, {"seq", 2}, {"excl_size", 7}, {"rfer_size", 60}},
                Object{{"id", "s4"}, {"seq", 4}, {"excl_size", 1}, {"rfer_size", 1}}});
  const Image_Pool_Manager pool("https://images/zq", "", "p2");
  Object previous;
  pool.get_previous_snapshot("s3", previous);
  expect("a predecessor", *json_spirit::object_get_str(previous, "id"), "s2");
  std::uint64_t size = 0;
  expect("a size", pool.cal_snapshot_size("s3", size) && size == 100 - 60 + 7);
  product::take_requests();
  expect("an unknown snapshot", !pool.get_previous_snapshot("s9", previous));
  expect_traffic("an unknown snapshot", line + "snapshot_id=s9\n",
                 "product: https://images:443 answers 0\n"
                 "Failed to get snapshot s9 info.\n"
                 "Failed to get previous snapshot: failed to get current snapshot info\n");
}

void parse_a_description() {
  const Object attributes = {{"vendor", "v"},
                             {"access_key", "AK"},
                             {"secret_key", "sealed for s3s://store/bucket secret"}};
  const Object storage = {
      {"url", "s3s://store/bucket"}, {"pool_uuid", "p3"}, {"extended_attrs", attributes}};
  Object description = {{"encryption", "aes-256-gcm"},
                        {"key", "AP8gQQ=="},
                        {"name", "objects"},
                        {"storages", Array{storage}}};
  Pool_Info info;
  expect("a description", parse_pool_info(description, info, nullptr, nullptr));
  expect("cipher and key", info.cipher == ENCRYPT_AES_256_GCM &&
                               info.key == std::string("\0\xff A", 4) && info.uuid == "p3");
  expect("the secret", info.ext_attrs["secret_key"], "secret");
  Object kept;
  info >> kept;
  expect("the kept key", *json_spirit::object_get_str(kept, "key"), "AP8gQQ==");

  Object hbr = {{"url", "hbr://store/b"}, {"pool_uuid", "p3"}, {"uuid", "d3"}};
  hbr["extended_attrs"] = Object{{"bucket", "b"}};
  description["storages"] = Array{hbr};
  expect("a repository", parse_pool_info(description, info, nullptr, nullptr));
  expect("its service",
         info.ext_attrs["backupd_host"] + ':' + info.ext_attrs["backupd_port"] + '/' +
             info.ext_attrs["backupd_access_key"],
         "backup.example:9000/key of host-a");
  expect_traffic("parsing", "", "");
}

void retry() {
  const auto node = [](int id, const char* url) {
    return Object{{"url", url}, {"pool_uuid", "p4"}, {"extended_attrs", Object{{"node_id", id}}}};
  };
  const std::string line = "GET https://upstream:443/zq/r/storages/pool?uuid=p4&agent_uuid=host-a";
  answers(line, 503, {});
  answers(line, 500, Object{{"error", Object{{"code", 7}}}});
  answers(line, 200,
          Object{{"multidevice", true},
                 {"storages", Array{node(1, "ws://n1:81/a"), node(2, "wss://n2/b")}}});
  const auto before = zqpool::detail::replace_retry_sleep(
      [](std::chrono::milliseconds time) { slept += std::to_string(time.count()) + "ms "; });
  Pool_Info info;
  expect("a pool in the end",
         get_pool_info("p4", nullptr, info, false, 60, nullptr, true, nullptr, nullptr));
  zqpool::detail::replace_retry_sleep(before);
  expect("the pauses", slept, "1000ms 2000ms ");
  expect("the nodes", info.node_addrs[1] + ' ' + info.node_addrs[2], "ws://n1:81 wss://n2");
  // Where a notice comes from is a place in the source, which changes.
  std::string logged = log_text.str();
  for (std::size_t at = logged.find(" utils/"); at != std::string::npos;
       at = logged.find(" utils/"))
    logged.erase(at, logged.find(" at ", at) - at);
  expect("the notices", logged,
         "product: https://upstream:443 answers 503\n"
         "Retry(1) at 1 second(s) later.\n"
         "product: https://upstream:443 answers 500\n"
         "Retry(2) at 2 second(s) later.\n");
  log_text.str("");
  expect_traffic("three attempts", line + '\n' + line + '\n' + line + '\n', "");
}

void ask_the_others() {
  answers("POST http://manager:80/zq/r/nfs?sync=5", 200, {});
  NFS_Operator nfs("manager", 80, false, "nfs key", 0, 0);
  NFS_Operator::Record record;
  record.path = "/srv";
  std::string uuid;
  expect("an NFS record", nfs.export_record(record, uuid, 5));
  expect("its UUID", uuid, "00000000-0000-4000-8000-000000000001");
  expect("one request", product::take_requests().size() == 1);

  answers("POST http://manager:80/zq/jr", 200, Object{{"result", Object{{"name", "copy"}}}});
  Pool_Info info;
  expect("a replica", get_replicate_pool_info("r1", "manager", 80, false, true, info, 0));
  expect("its name", info.name, "copy");
  expect_traffic("JSON-RPC",
                 "POST http://manager:80/zq/jr [key of host-a] "
                 R"({"id":"00000000-0000-4000-8000-000000000002","jsonrpc":"2.0",)"
                 R"("method":"pool.replicate.endpoint.query","params":{"uuid":"r1"}})"
                 "\n",
                 "");

  answers("GET https://server:443/zq/r/file_uri/statfs?uri=%2fzq%2fdata", 200, Object{{"free", 1}});
  Object space;
  expect("the space", get_storaged_space_info("server", 443, true, "key", space));
  expect("what it is", dump(space), R"({"free":1})");
}

}  // namespace

int main() {
  ACE_Log_Msg::instance()->msg_ostream(&log_text);
  ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
  ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::OSTREAM);
  read_the_catalog();
  create_luns();
  look_for_a_predecessor();
  parse_a_description();
  retry();
  ask_the_others();
  std::printf("%d failures\n", failures);
  return failures == 0 ? 0 : 1;
}
