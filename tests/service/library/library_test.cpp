// The library against the service: real sockets, real state, HTTP and HTTPS.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/host_id.h"
#include "platform/host/host_manager.h"
#include "platform/host/websocket_options.h"
#include "tests/service/fixtures/http_client.h"
#include "tests/service/fixtures/resolution_lab.h"
#include "tests/support/guards.h"
#include "tests/support/log_capture.h"
#include "tests/support/secrets.h"
#include "tests/support/service_process.h"
#include "utils/pool/pool_metadata_manager.h"
#include "utils/pool/storage_pool_helpers.h"
#include "utils/pool/utils.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string pool_path = "/zq/r/storages/pool";
const std::string metadata_path = "/zq/r/storage/catalog/device/metadata";

Value json(const std::string& text) {
  Value value;
  std::string why;
  EXPECT_TRUE(json_spirit::read(text, value, why)) << why << ": " << text;
  return value;
}

/// A host as the library sees it, and the service with a pool of each kind.
class Library : public testing::TestWithParam<bool> {
 public:
  ~Library() override {
    Host_ID::instance()->set("");
    Host_Manager::instance()->access_key("");
    WebSocket_Options::clear();
  }

 protected:
  Library() {
    Host_ID::instance()->set(host_a);
    Host_Manager::instance()->access_key(service_.access_key());
    WebSocket_Options::configure("backup.lab", 8443, true);
    for (const std::string& secret : {lab_data_key, lab_iv, lab_tenant_key, lab_secret_key})
      Secrets::add(secret);
  }

  Endpoint endpoint() const { return service_.endpoint(GetParam()); }

  /// Resolves as a host on the backup server; returns the members that are not empty.
  bool resolve(int pool, Value& record, const char* host_uuid = nullptr,
               const char* device_uuid = nullptr, bool to_restore = false,
               const char* account_uuid = nullptr) {
    Pool_Info info;
    const Endpoint to = endpoint();
    const bool result =
        get_pool_info(to.host.c_str(), to.port, to.ssl, pool_uuid(pool).c_str(), device_uuid, info,
                      to_restore, 0, host_uuid, true, true, nullptr, account_uuid);
    Object all;
    info >> all;
    Object some;
    for (const auto& [key, value] : all) {
      if (value != Value("") && value != Value(Object()) && value != Value(0) &&
          value.type() != json_spirit::bool_type) {
        some.emplace(key, value);
      }
    }
    record = std::move(some);
    return result;
  }
  Value resolved(int pool, const char* host_uuid = nullptr, const char* device_uuid = nullptr,
                 bool to_restore = false) {
    Value record;
    EXPECT_TRUE(resolve(pool, record, host_uuid, device_uuid, to_restore)) << log_.all();
    return record;
  }
  std::string url(int pool, const char* host_uuid = nullptr, const char* device_uuid = nullptr,
                  bool to_restore = false) {
    return resolved(pool, host_uuid, device_uuid, to_restore).get_obj().at("url").get_str();
  }
  /// The members of a pool's record, and its URL.
  static std::string base(int pool, const std::string& url) {
    return R"("name":"pool )" + std::to_string(pool) + R"(","uuid":")" + pool_uuid(pool) +
           R"(","url":")" + url + '"';
  }

  // ---- the catalog, with this endpoint

  bool add(const std::string& path, std::int64_t size, const char* grouping = nullptr) {
    const Endpoint to = endpoint();
    return Pool_Metadata_Manager::add_metadata(to.host, to.port, to.ssl, service_.access_key(),
                                               pool_uuid(1), device_uuid(1), "", path, grouping,
                                               size);
  }
  bool remove(const std::string& path) {
    const Endpoint to = endpoint();
    return Pool_Metadata_Manager::remove_metadata(to.host, to.port, to.ssl, service_.access_key(),
                                                  pool_uuid(1), path, nullptr);
  }
  bool bind(int device, const std::string& host, const std::string& sysname) {
    const Endpoint to = endpoint();
    return Pool_Metadata_Manager::bind_host_for_lanfree_device(
        to.host, to.port, to.ssl, service_.access_key(), device_uuid(device), host, sysname);
  }
  bool offer(int pool, Object& device) {
    const Endpoint to = endpoint();
    return Pool_Metadata_Manager::offer_device(to.host, to.port, to.ssl, service_.access_key(),
                                               pool_uuid(pool), device);
  }
  /// The entries of a path as JSON, concatenated.
  std::string recorded(const std::string& path) {
    const Endpoint to = endpoint();
    std::string type;
    Array devices;
    EXPECT_TRUE(Pool_Metadata_Manager::get_located_devices(to.host, to.port, to.ssl,
                                                           service_.access_key(), pool_uuid(1),
                                                           path, type, devices, nullptr));
    std::string out;
    for (const Value& device : devices)
      out += json_spirit::write(device.get_obj().at("metadata"));
    return out;
  }
  Object bound_host(int device) {
    const Endpoint to = endpoint();
    Object record;
    EXPECT_TRUE(Pool_Metadata_Manager::get_device_with_uuid(
        to.host, to.port, to.ssl, service_.access_key(), device_uuid(device), record, 0));
    const Object* bound = json_spirit::object_get_object(record, "bound_host");
    return bound ? *bound : Object();
  }

  // ---- faults

  void script(const std::string& method, const std::string& path, const std::string& rest) {
    const Http_Answer answer =
        ask(service_, "POST", "/zq/lab/faults",
            R"({"faults":[{"method":")" + method + R"(","path":")" + path + R"(",)" + rest + "}]}");
    EXPECT_EQ(answer.status, 201U) << answer.body;
  }
  std::int64_t fired() {
    const Value answer = ask(service_, "GET", "/zq/lab/faults").json();
    return answer.get_obj().at("faults").get_array().at(0).get_obj().at("fired").get_int64();
  }
  /// The number of access log lines of requests that begin so.
  std::size_t requests(const std::string& beginning) const {
    std::size_t count = 0;
    for (const std::string& line : service_.access_log())
      count += line.find('"' + beginning) != std::string::npos;
    return count;
  }

  const S3_Secret secret_;
  const Options_Guard options_{options_with_test_ca()};
  const Sleep_Recorder sleeps_;
  const Temp_Directory files_;
  Log_Capture log_;
  Service_Process service_{
      {resolution_lab(),
       {"--s3-secret-file", files_.write("secret", "shared-by-service-and-hosts\n")}}};
};

INSTANTIATE_TEST_SUITE_P(Over, Library, testing::Bool(), transport_name);

/// Tests that do not depend on the transport.
class Plain_Library : public Library {};
INSTANTIATE_TEST_SUITE_P(Over, Plain_Library, testing::Values(false), transport_name);

// ---- one resolution for each kind of pool

TEST_P(Library, resolves_a_file_pool_for_each_attached_host) {
  EXPECT_EQ(resolved(1),
            json("{" + base(1, "file:///mnt/a") + R"(,"preferred_source_address":"10.0.0.7"})"));
  EXPECT_EQ(url(1, host_b.c_str()), "file:///mnt/b");
  Value record;
  EXPECT_FALSE(resolve(1, record, "stranger"));
  EXPECT_THAT(log_.texts("LM_ERROR"), ElementsAre("No 'stranger' in attached_hosts.\n"));
}

TEST_P(Plain_Library, resolves_a_deduplication_pool_on_one_node) {
  EXPECT_EQ(resolved(2),
            json("{" + base(2, "dedups://one.lab:8443/store") + R"(,"cipher":26,"key":")" +
                 lab_data_key + R"(","iv":")" + lab_iv + R"(","tenant_access_key":")" +
                 lab_tenant_key + R"(","dedup_backend_type":"rocks"})"));
}

TEST_P(Plain_Library, resolves_a_deduplication_pool_on_several_nodes) {
  EXPECT_EQ(resolved(3), json("{" + base(3, "wss://n1.lab:9443/store") +
                              R"(,"node_addrs":{"1":"wss://n1.lab:9443","2":"dedup://n2.lab"}})"))
      << "of the second node the master counts";
  EXPECT_EQ(resolved(3, nullptr, nullptr, true),
            json("{" + base(3, "wss://n1.lab:9443/store") +
                 R"(,"node_addrs":{"1":"wss://n1.lab:9443","2":"dedup://n3.lab:9000"}})"))
      << "for a restore the copy stands in for it";
  EXPECT_EQ(url(3, nullptr, device_uuid(5).c_str()), "dedup://n3.lab:9000/store");
}

TEST_P(Plain_Library, resolves_an_object_store_with_keys) {
  EXPECT_EQ(resolved(4), json("{" + base(4, "s3v4s://objects.lab/bucket") +
                              R"(,"ext_attrs":{"vendor":"lab","region":"lab-1",
      "sign_method":"v4","access_key":"LAB-KEY","secret_key":")" +
                              lab_secret_key + R"("}})"));
}

TEST_P(Plain_Library, resolves_no_sealed_key_under_another_secret) {
  const S3_Secret other("not-shared");
  Value record;
  EXPECT_FALSE(resolve(4, record));
  EXPECT_THAT(log_.texts("LM_ERROR"), ElementsAre("Failed to decrypt s3 keys of pool info\n"));
}

TEST_P(Plain_Library, resolves_an_object_store_with_credentials_for_a_time) {
  EXPECT_EQ(resolved(5), json("{" + base(5, "oss://cloud.lab/bucket") +
                              R"(,"ext_attrs":{"vendor":"lab","region":"","sign_method":"",
      "device_id":")" + device_uuid(7) +
                              R"(","backupd_host":"backup.lab","backupd_port":"8443",
      "backupd_access_key":")" +
                              service_.access_key() + R"(","backupd_ssl":""}})"));
}

TEST_P(Plain_Library, resolves_an_hbr_pool) {
  EXPECT_EQ(resolved(6), json("{" + base(6, "hbrs://hbr.lab/vault") +
                              R"(,"ext_attrs":{"vendor":"","region":"","sign_method":"",
      "device_id":")" + device_uuid(8) +
                              R"(","bucket":"b-7","backupd_host":"backup.lab",
      "backupd_port":"8443","backupd_access_key":")" +
                              service_.access_key() + R"(","backupd_ssl":""}})"));
}

TEST_P(Plain_Library, resolves_a_lan_free_pool_for_the_host_that_a_device_is_bound_to) {
  EXPECT_EQ(resolved(7, host_a.c_str()), json("{" + base(7, "lanfree://san.lab/p/l1/zq") + "}"));
  EXPECT_TRUE(bind(10, host_b, "db8"));
  EXPECT_EQ(url(7, host_b.c_str()), "lanfree://san.lab/p/l2/zq");
  EXPECT_EQ(url(7, host_a.c_str()), "lanfree://san.lab/p/l1/zq");
}

TEST_P(Plain_Library, resolves_a_plain_pool) {
  EXPECT_EQ(resolved(8), json("{" + base(8, "https://store.lab/zq/data/5f3a") + "}"));
}

TEST_P(Plain_Library, resolves_over_a_network) {
  const Endpoint to = endpoint();
  Common_JSON_RESTful_Client client(to.host.c_str(), to.port, to.ssl, true, true);
  Pool_Info info;
  EXPECT_TRUE(get_pool_info(client, pool_uuid(8).c_str(), nullptr, info, false, nullptr, 0, 3,
                            false, server_s.c_str(), ""));
  EXPECT_EQ(info.url, "http://10.3.0.9:8080/zq/data/5f3a");
}

TEST_P(Plain_Library, resolves_a_replica) {
  const Endpoint to = endpoint();
  Pool_Info info;
  EXPECT_TRUE(get_replicate_pool_info(replica_uuid.c_str(), to.host.c_str(), to.port, to.ssl, true,
                                      info, 0));
  EXPECT_EQ(info.uuid, pool_uuid(3));
  EXPECT_EQ(info.url, "wss://n1.lab:9443/store");
  EXPECT_EQ(info.node_addrs.size(), 2U);
  Pool_Info none;
  EXPECT_FALSE(get_replicate_pool_info("none", to.host.c_str(), to.port, to.ssl, true, none, 0));
  EXPECT_THAT(log_.texts("LM_ERROR").back(),
              HasSubstr(R"("error":{"code":-404,"message":"there is no replica 'none'"})"));
}

TEST_P(Library, resolves_upstream) {
  const Endpoint to = endpoint();
  Upstream_JSON_RESTful_Client::configure(to.host.c_str(), to.port, to.ssl,
                                          service_.access_key().c_str());
  Pool_Info info;
  EXPECT_TRUE(get_pool_info(pool_uuid(8).c_str(), nullptr, info, false, 0, nullptr, false, nullptr,
                            nullptr));
  EXPECT_EQ(info.url, "https://store.lab/zq/data/5f3a");
  std::string url = "before";
  EXPECT_TRUE(get_url_by_pool_uuid(pool_uuid(7).c_str(), nullptr, url, true, host_a.c_str()));
  EXPECT_EQ(url, "lanfree://san.lab/p/l1/zq");
  url = "before";
  EXPECT_FALSE(get_url_by_pool_uuid("none", nullptr, url, false, nullptr));
  EXPECT_EQ(url, "before");
  Upstream_JSON_RESTful_Client::configure("", 0, false, nullptr);
}

TEST_P(Library, resolves_every_pool_of_the_example) {
  const Value example = [] {
    std::ostringstream text;
    text << std::ifstream(ZQ_EXAMPLES "/scenario.json").rdbuf();
    return json(text.str());
  }();
  ASSERT_EQ(ask(service_, "POST", "/zq/lab/scenario", json_spirit::write(example)).status, 200U);
  const Endpoint to = endpoint();
  // The host that the example's directories are attached to.
  const char* const host = "8c1d5a3e-2b7f-4e60-9d14-3a5b6c7d8e9f";
  int resolved = 0;
  for (const Value& pool : example.get_obj().at("pools").get_array()) {
    const std::string& type = pool.get_obj().at("type").get_str();
    if (type == "scsi" || type == "image") continue;  // they have managers of their own
    const std::string& uuid = pool.get_obj().at("uuid").get_str();
    Pool_Info info;
    EXPECT_TRUE(get_pool_info(to.host.c_str(), to.port, to.ssl, uuid.c_str(), nullptr, info, false,
                              0, host, true, true, nullptr, nullptr))
        << uuid << ": " << log_.all();
    EXPECT_NE(info.url, "") << uuid;
    ++resolved;
  }
  EXPECT_GE(resolved, 8);
  for (const Value& replica : example.get_obj().at("replicas").get_array()) {
    Pool_Info info;
    EXPECT_TRUE(get_replicate_pool_info(replica.get_obj().at("uuid").get_str().c_str(),
                                        to.host.c_str(), to.port, to.ssl, true, info, 0));
  }
  EXPECT_THAT(log_.texts("LM_ERROR"), IsEmpty());
}

// ---- failures

TEST_P(Plain_Library, retries_while_the_service_may_recover) {
  script("GET", pool_path,
         R"("kind":"status","status":500,"body":{"error":{"code":7,"message":"busy"}},"times":3)");
  const Endpoint to = endpoint();
  Common_JSON_RESTful_Client client(to.host.c_str(), to.port, to.ssl, true, true);
  Pool_Info info;
  EXPECT_TRUE(get_pool_info(client, pool_uuid(8).c_str(), nullptr, info, false, nullptr, -1, -1,
                            false, nullptr, nullptr))
      << log_.all();
  EXPECT_EQ(info.url, "https://store.lab/zq/data/5f3a");
  EXPECT_EQ(fired(), 3);
  EXPECT_EQ(requests("GET " + pool_path), 4U);
  EXPECT_EQ(sleeps_.pauses().size(), 3U);
  const std::vector<std::string> notices = log_.texts("LM_INFO");
  ASSERT_EQ(notices.size(), 3U);
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(notices[static_cast<std::size_t>(i)],
                testing::StartsWith("Retry(" + std::to_string(i + 1) + ") "));
  }
}

TEST_P(Plain_Library, does_not_retry_what_cannot_succeed) {
  const Endpoint to = endpoint();
  Common_JSON_RESTful_Client client(to.host.c_str(), to.port, to.ssl, true, true);
  std::size_t asked = 0;
  const auto gives_up = [&](const std::string& pool, const char* account = nullptr) {
    Pool_Info info;
    EXPECT_FALSE(get_pool_info(client, pool.c_str(), nullptr, info, false, nullptr, -1, -1, false,
                               nullptr, account));
    EXPECT_EQ(info.uuid, "");
    EXPECT_EQ(requests("GET " + pool_path), ++asked);
  };
  gives_up("none");
  gives_up(pool_uuid(2), "another account");
  Host_Manager::instance()->access_key("wrong");
  Common_JSON_RESTful_Client stranger(to.host.c_str(), to.port, to.ssl, true, true);
  Pool_Info info;
  EXPECT_FALSE(get_pool_info(stranger, pool_uuid(8).c_str(), nullptr, info, false, nullptr, -1, -1,
                             false, nullptr, nullptr));
  Common_JSON_RESTful_Client keyless(to.host.c_str(), to.port, to.ssl, false, true);
  EXPECT_FALSE(get_pool_info(keyless, pool_uuid(8).c_str(), nullptr, info, false, nullptr, -1, -1,
                             false, nullptr, nullptr));
  asked += 2;
  for (const char* error : {R"({"code":0})", R"({"code":-5})", "{}", R"({"code":"7"})"}) {
    script("GET", pool_path,
           R"("kind":"status","status":500,"times":1,"body":{"error":)" + std::string(error) + '}');
    gives_up(pool_uuid(8));
  }
  EXPECT_THAT(sleeps_.pauses(), IsEmpty());
  EXPECT_THAT(log_.texts("LM_INFO"), IsEmpty());
}

TEST_P(Library, a_truncated_resolution_is_retried) {
  script("GET", pool_path, R"("kind":"cut","bytes":40,"times":1)");
  EXPECT_EQ(url(8), "https://store.lab/zq/data/5f3a");
  EXPECT_EQ(fired(), 1);
}

TEST_P(Plain_Library, a_response_of_another_type_resolves_nothing) {
  script("GET", pool_path, R"("kind":"wrong_type","type":"array","times":1)");
  Value record;
  EXPECT_FALSE(resolve(8, record));
  EXPECT_THAT(log_.texts("LM_EMERGENCY"), ElementsAre(HasSubstr("result is not object!")));
}

// ---- the catalog's writes

TEST_P(Plain_Library, metadata_is_read_back) {
  EXPECT_TRUE(add("/new/a.img", 7));
  EXPECT_EQ(recorded("/new/a.img"), R"({"path":"/new/a.img","size":7,"type":"file"})");
  EXPECT_TRUE(add("/new/a.img", -1, "weekly"));
  EXPECT_EQ(recorded("/new/a.img"), R"({"path":"/new/a.img","size":7,"type":"file"})"
                                    R"({"grouping":"weekly","path":"/new/a.img","type":"file"})");
  EXPECT_TRUE(remove("/new/a.img"));
  EXPECT_EQ(recorded("/new/a.img"), "");
  EXPECT_TRUE(remove("/new/a.img"));
  EXPECT_THAT(log_.texts("LM_ERROR"), IsEmpty());
}

TEST_P(Plain_Library, metadata_of_an_unusual_name_is_read_back) {
  const std::string path = "/a b&c=d%2f/\xc3\xa9 \"+\\'";
  EXPECT_TRUE(add(path, 0));
  EXPECT_EQ(recorded(path),
            json_spirit::write(Object{{"path", path}, {"size", 0}, {"type", "file"}}));
  EXPECT_TRUE(remove(path));
  EXPECT_EQ(recorded(path), "");
}

TEST_P(Plain_Library, a_refused_write_changes_nothing) {
  const std::string before = ask(service_, "GET", "/zq/lab/scenario").body;
  EXPECT_FALSE(add("/a/../b", 0));
  EXPECT_FALSE(bind(1, "h", "s"));
  EXPECT_FALSE(bind(9, "h", "s"));
  EXPECT_THAT(
      log_.texts("LM_ERROR"),
      ElementsAre(HasSubstr("422"), "Failed to add metadata to pool '" + pool_uuid(1) + "'.\n",
                  HasSubstr("409"), "Failed to bind host to device '" + device_uuid(1) + "'.\n",
                  HasSubstr("409"), "Failed to bind host to device '" + device_uuid(9) + "'.\n"));
  EXPECT_EQ(ask(service_, "GET", "/zq/lab/scenario").body, before);
}

TEST_P(Plain_Library, an_offered_device_is_bound_and_not_offered_again) {
  Object device;
  EXPECT_TRUE(offer(7, device));
  EXPECT_EQ(device.at("uuid"), Value(device_uuid(10)));
  EXPECT_TRUE(bind(10, host_b, "db8"));
  EXPECT_EQ(Value(bound_host(10)), json(R"({"host_id":")" + host_b + R"(","sysname":"db8"})"));
  EXPECT_TRUE(offer(7, device));
  EXPECT_EQ(Value(device), json("{}"));
  EXPECT_TRUE(bind(10, "", ""));
  EXPECT_EQ(Value(bound_host(10)), json("{}"));
  EXPECT_FALSE(offer(40, device));
}

// ---- a service that dies

TEST_P(Library, a_write_whose_response_is_lost_is_made_once) {
  script("POST", metadata_path, R"("kind":"reset_after_commit","times":1)");
  EXPECT_FALSE(add("/new", 7));
  EXPECT_EQ(requests("POST " + metadata_path), 1U);
  EXPECT_EQ(recorded("/new"), R"({"path":"/new","size":7,"type":"file"})");
}

TEST_P(Plain_Library, a_write_that_is_lost_is_not_made) {
  script("POST", metadata_path, R"("kind":"reset_before_commit","times":1)");
  EXPECT_FALSE(add("/new", 7));
  EXPECT_EQ(recorded("/new"), "");
}

TEST_P(Plain_Library, what_was_committed_before_a_kill_is_there_after_a_restart) {
  // Each of these waits for a response that never comes. The service is killed once the change is
  // visible: between commit and response.
  const auto killed_during = [&](const auto& write, const auto& is_done) {
    bool result = true;
    std::thread client([&] { result = write(); });
    while (!is_done())
      std::this_thread::yield();
    service_.kill();
    client.join();
    EXPECT_FALSE(result);
    service_.start();
    EXPECT_TRUE(is_done()) << "it was lost";
    EXPECT_TRUE(write()) << "a second request does what the first did";
    EXPECT_TRUE(is_done());
  };
  const std::string late =
      R"("kind":"delay","delay_ms":600000,"delay_after_commit":true,"times":1)";
  const std::string device = "/zq/r/storage/catalog/device";
  script("PUT", device, late);
  killed_during(
      [&] { return bind(10, host_b, "db8"); },
      [&] {
        return ask(service_, "GET", device + "?uuid=" + device_uuid(10)).body.find(host_b) !=
               std::string::npos;
      });
  const auto is_recorded = [&] {
    return ask(service_, "GET", "/zq/lab/scenario").body.find("/new") != std::string::npos;
  };
  script("POST", metadata_path, late);
  killed_during([&] { return add("/new", 7); }, is_recorded);
  EXPECT_EQ(recorded("/new"), R"({"path":"/new","size":7,"type":"file"})");
  script("DELETE", metadata_path, late);
  killed_during([&] { return remove("/new"); }, [&] { return !is_recorded(); });
}

// ---- space

TEST_P(Plain_Library, space_is_that_of_the_states_file_system) {
  const Endpoint to = endpoint();
  Object info;
  EXPECT_TRUE(get_storaged_space_info(to.host, to.port, to.ssl, service_.access_key(), info));
  struct statvfs figures {};
  ASSERT_EQ(::statvfs(service_.state_file().c_str(), &figures), 0);
  EXPECT_EQ(info.at("size").get_uint64(), figures.f_blocks * figures.f_frsize);
  EXPECT_EQ(info.at("block_size").get_uint64(), figures.f_frsize);
  EXPECT_EQ(info.at("files").get_uint64(), figures.f_files);
  EXPECT_EQ(info.at("used").get_int64() + info.at("free").get_int64(), info.at("size").get_int64());
}

TEST_P(Plain_Library, space_needs_the_key) {
  const Endpoint to = endpoint();
  Object info;
  EXPECT_FALSE(get_storaged_space_info(to.host, to.port, to.ssl, "wrong", info));
  EXPECT_THAT(log_.texts("LM_ERROR").back(), HasSubstr("errno=403, {\"error\":{\"code\":-403,"));
}

}  // namespace
}  // namespace zqpool::test
