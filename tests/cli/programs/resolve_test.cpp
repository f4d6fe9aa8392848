#include <gmock/gmock.h>

#include "platform/crypto/s3_key.h"
#include "tests/cli/programs/command_fixture.h"
#include "tests/support/secrets.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The management service's description of a pool with these storages.
Answer pool_of(const std::string& storages, const std::string& more = "") {
  return json_answer(200, R"({"name":"vault",)" + more + R"("storages":[)" + storages + "]}");
}

const char* const plain = R"({"uuid":"d-1","pool_uuid":"p-1","url":"tape://t/1"})";

class Resolve : public Command {
 protected:
  /// `pool resolve` of one pool for the host h-1, as JSON.
  Run_Result resolve(std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"pool", "resolve", "p-1", "-o", "json", "--host-uuid", "h-1"});
    return run(more);
  }

  /// The options with which sealed keys are opened, and such a key for `url`.
  std::vector<std::string> secret_ = {"--s3-secret-file",
                                      directory_.write("s3", "what-seals-the-keys\n")};
  static std::string sealed(const char* url, const std::string& key) {
    set_s3_key_secret("what-seals-the-keys");
    Secrets::add("what-seals-the-keys");
    Secrets::add(key);
    std::string text = key;
    EXPECT_TRUE(encrypt_s3_key(url, text));
    set_s3_key_secret("");
    return text;
  }
};

TEST_F(Resolve, prints_the_record_of_a_plain_pool) {
  server_.otherwise(pool_of(plain, R"("encryption":"aes-256-gcm","iv":"AAEC",)"));
  const Run_Result result = resolve();
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.out,
            R"({"cipher":26,"dedup_backend_type":"","device_exists":true,"ext_attrs":{},)"
            R"("host_uuid":"","iv":"AAEC","key":"","multidevice":false,"name":"vault",)"
            R"("node_addrs":{},"preferred_source_address":"","server_side_encryption":false,)"
            R"("tenant_access_key":"","url":"tape://t/1","uuid":"p-1"})"
            "\n");
  EXPECT_EQ(result.err, "");
  const Recorded_Request request = server_.request(0);
  EXPECT_EQ(request.line, "GET /zq/r/storages/pool?uuid=p-1&agent_uuid=h-1 HTTP/1.1");
  EXPECT_EQ(request.header("X-Access-Key"), key_);
  EXPECT_THAT(run({"pool", "resolve", "p-1"}).out, StartsWith("uuid                      p-1\n"));
  EXPECT_THAT(run({"pool", "resolve", "p-1", "-o", "tsv"}).out,
              HasSubstr("p-1\turl\ttape://t/1\n"));
}

TEST_F(Resolve, sends_the_parameters_of_its_options) {
  server_.otherwise(pool_of(plain + std::string(R"(,{"uuid":"d-2","pool_uuid":"p-1",)"
                                                R"("url":"tape://t/2"})")));
  EXPECT_THAT(resolve({"--device", "d-2"}).out, HasSubstr(R"("url":"tape://t/2")"));
  EXPECT_EQ(resolve({"--restore"}).exit_code, 0);
  EXPECT_EQ(server_.request(1).target,
            "/zq/r/storages/pool?uuid=p-1&agent_uuid=h-1&restore_setting=1");
  const Run_Result absent = resolve({"--device", "d-9"});
  EXPECT_EQ(absent.exit_code, 3);
  EXPECT_EQ(absent.err, "zqpool: pool resolve: " + url_of(server_) +
                            ": not found: the pool has no device d-9\n");
}

TEST_F(Resolve, keys_are_hidden_unless_asked_for) {
  const char* const url = "s3s://store/bucket";
  server_.otherwise(pool_of(R"({"uuid":"d-1","pool_uuid":"p-1","url":"s3s://store/bucket",)"
                            R"("extended_attrs":{"region":"north","access_key":"open-sesame",)"
                            R"("secret_key":")" +
                                sealed(url, "the-secret-itself") + R"("}})",
                            R"("key":"ZGF0YS1rZXk=","tenant_access_key":"of-the-tenant",)"));
  std::vector<std::string> more = secret_;
  more.emplace_back("--trace");
  for (const char* const format : {"table", "json", "tsv"}) {
    more.insert(more.end(), {"--output", format});
    const Run_Result hidden = run([&] {
      std::vector<std::string> all = {"pool", "resolve", "p-1"};
      all.insert(all.end(), more.begin(), more.end());
      return all;
    }());
    EXPECT_EQ(hidden.exit_code, 0) << hidden.err;
    EXPECT_THAT(hidden.out, HasSubstr("(hidden)"));
    EXPECT_THAT(hidden.out, HasSubstr("north"));
    for (const char* const secret :
         {"ZGF0YS1rZXk=", "of-the-tenant", "open-sesame", "the-secret-itself"}) {
      EXPECT_THAT(hidden.out + hidden.err, Not(HasSubstr(secret))) << format;
    }
    more.resize(more.size() - 2);
  }
  more.emplace_back("--show-secrets");
  const Run_Result shown = resolve(more);
  EXPECT_THAT(shown.out, HasSubstr(R"("key":"ZGF0YS1rZXk=")"));
  EXPECT_THAT(shown.out, HasSubstr(R"("tenant_access_key":"of-the-tenant")"));
  EXPECT_THAT(shown.out, HasSubstr(R"("access_key":"open-sesame")"));
  EXPECT_THAT(shown.out, HasSubstr(R"("secret_key":"the-secret-itself")"));
}

TEST_F(Resolve, a_sealed_key_needs_its_secret) {
  server_.otherwise(pool_of(R"({"uuid":"d-1","pool_uuid":"p-1","url":"s3://a/b",)"
                            R"("extended_attrs":{"access_key":"a","secret_key":")" +
                            sealed("s3://a/b", "k") + R"("}})"));
  const Run_Result without = resolve();
  EXPECT_EQ(without.exit_code, 1);
  EXPECT_THAT(without.err, EndsWith("(Failed to decrypt s3 keys of pool info); give the file of "
                                    "their secret with --s3-secret-file\n"));
  const Run_Result wrong = resolve({"--s3-secret-file", directory_.write("other", "another")});
  EXPECT_EQ(wrong.exit_code, 1);
  EXPECT_THAT(wrong.err, EndsWith("(Failed to decrypt s3 keys of pool info)\n"));
  const std::size_t before = server_.request_count();
  EXPECT_EQ(resolve({"--s3-secret-file", directory_.path("nothing")}).exit_code, 2);
  EXPECT_EQ(server_.request_count(), before);
}

TEST_F(Resolve, a_pool_by_the_backup_service_gets_its_socket_and_this_key) {
  server_.otherwise(pool_of(R"({"uuid":"d-1","pool_uuid":"p-1","url":"hbrs://a/b",)"
                            R"("extended_attrs":{"bucket":"b"}})"));
  const Run_Result result = resolve({"--show-secrets"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr(R"("backupd_access_key":")" + key_ +
                                    R"(","backupd_host":"127.0.0.1","backupd_port":")" +
                                    std::to_string(server_.port()) + "\""));
  EXPECT_THAT(result.out, Not(HasSubstr("backupd_ssl")));
  EXPECT_THAT(resolve().out, Not(HasSubstr(key_)));
  const Run_Result elsewhere = resolve({"--backupd", "https://backup1:9443"});
  EXPECT_THAT(elsewhere.out, HasSubstr(R"("backupd_host":"backup1","backupd_port":"9443",)"
                                       R"("backupd_ssl":"")"));
}

TEST_F(Resolve, the_host_decides_where_it_matters) {
  server_.otherwise(
      pool_of(R"({"uuid":"d-1","pool_uuid":"p-1","url":"lanfree://a/1","extended_attrs":)"
              R"({"bound_host":{"host_id":"h-2"}}},)"
              R"({"uuid":"d-2","pool_uuid":"p-1","url":"lanfree://a/2","extended_attrs":)"
              R"({"bound_host":{"host_id":"h-1"}}})"));
  EXPECT_THAT(resolve().out, HasSubstr("lanfree://a/2"));
  EXPECT_THAT(run({"pool", "url", "p-1", "--host-uuid", "h-2"}).out, HasSubstr("lanfree://a/1"));
  server_.otherwise(pool_of(R"({"uuid":"d-1","pool_uuid":"p-1","url":"file:///d","extended_attrs":)"
                            R"({"attached_hosts":{"h-1":"mnt/pool"}}})"));
  EXPECT_THAT(resolve().out, HasSubstr(R"("url":"file:///mnt/pool")"));
  const Run_Result stranger = run({"pool", "url", "p-1", "--host-uuid", "h-2"});
  EXPECT_EQ(stranger.exit_code, 1);
  EXPECT_THAT(stranger.err, HasSubstr("No 'h-2' in attached_hosts."));
}

TEST_F(Resolve, nodes_of_a_deduplication_pool_are_listed) {
  server_.otherwise(pool_of(R"({"uuid":"d-1","pool_uuid":"p-1","url":"dedups://n1:1/s",)"
                            R"("extended_attrs":{"node_id":1}},)"
                            R"({"uuid":"d-2","pool_uuid":"p-1","url":"dedups://n2:2/s",)"
                            R"("extended_attrs":{"node_id":2}})",
                            R"("multidevice":true,)"));
  EXPECT_THAT(run({"pool", "resolve", "p-1", "-o", "tsv"}).out,
              HasSubstr("p-1\tnode_addrs.1\tdedups://n1:1\np-1\tnode_addrs.2\tdedups://n2:2\n"));
}

TEST_F(Resolve, a_replica_is_resolved_by_json_rpc) {
  server_.otherwise(json_answer(200, std::string(R"({"id":"x","jsonrpc":"2.0","result":)") +
                                         R"({"name":"copy","storages":[)" + plain + "]}}"));
  const Run_Result result = run({"pool", "resolve", "--replica", "r-1", "-o", "json"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr(R"("name":"copy")"));
  const Recorded_Request request = server_.request(0);
  EXPECT_EQ(request.line, "POST /zq/jr HTTP/1.1");
  EXPECT_EQ(request.header("X-Access-Key"), key_);
  EXPECT_THAT(request.body, EndsWith(R"("method":"pool.replicate.endpoint.query",)"
                                     R"("params":{"uuid":"r-1"}})"));
}

TEST_F(Resolve, an_error_by_json_rpc_is_shown_without_the_rest_of_the_answer) {
  const std::string start = "zqpool: pool resolve: " + url_of(server_) + ": ";
  server_.queue(json_answer(200, R"({"error":{"code":-404,"message":"no such replica"}})"))
      .queue(json_answer(200, R"({"error":{"code":-32602,"message":"bad"}})"))
      .queue(json_answer(200, R"({"resolt":{"key":"ZGF0YS1rZXk="}})"))
      .queue(json_answer(200, "[]"))
      .queue(json_answer(404, R"({"error":{"code":-5,"message":"no such replica"}})"));
  const Run_Result refused = run({"pool", "resolve", "--replica", "r-1"});
  EXPECT_EQ(refused.exit_code, 3);
  EXPECT_EQ(refused.err, start + "the service says: no such replica\n");
  EXPECT_EQ(run({"pool", "resolve", "--replica", "r-1"}).exit_code, 1);
  const Run_Result odd = run({"pool", "resolve", "--replica", "r-1"});
  EXPECT_EQ(odd.exit_code, 1);
  EXPECT_EQ(odd.err, start + "the answer contains no pool\n");
  EXPECT_EQ(run({"pool", "resolve", "--replica", "r-1"}).exit_code, 1);
  EXPECT_EQ(run({"pool", "resolve", "--replica", "r-1"}).exit_code, 3);
}

TEST_F(Resolve, an_unusable_description_fails_with_its_reason) {
  const std::pair<std::string, const char*> table[] = {
      {"", "'storages' is empty."},
      {"5", "Failed to get storage."},
      {R"({"uuid":"d"})", "No 'url' or 'pool_uuid' in storage object."},
      {R"({"url":"no url","pool_uuid":"p"})", "Failed to parse url: no url"},
      {R"({"url":"s3://a","pool_uuid":"p"})", "No 'extended_attrs' in storage."}};
  for (const auto& [storages, words] : table) {
    server_.otherwise(pool_of(storages));
    for (const char* const verb : {"resolve", "url"}) {
      const Run_Result result = run({"pool", verb, "p-1"});
      EXPECT_EQ(result.exit_code, 1);
      EXPECT_EQ(result.out, "");
      EXPECT_EQ(result.err, std::string("zqpool: pool ") + verb + ": " + url_of(server_) +
                                ": the answer is unusable (" + words + ")\n");
    }
  }
  server_.otherwise(
      pool_of(R"({"uuid":"d","pool_uuid":"p","url":"ws://a","extended_attrs":{"node_id":1}},5)",
              R"("multidevice":true,)"));
  const Run_Result thrown = resolve();
  EXPECT_EQ(thrown.exit_code, 1);
  EXPECT_THAT(thrown.err, HasSubstr(": the answer cannot be read: "));
}

TEST_F(Resolve, is_retried_after_errors_that_permit_it) {
  const Answer later = json_answer(500, R"({"error":{"code":1,"message":"busy"}})");
  server_.queue(later).otherwise(pool_of(plain));
  const Run_Result result = resolve({"--retry", "30s"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr(": HTTP status 500: busy; retrying\n"));
  EXPECT_EQ(server_.request_count(), 2U);
  server_.otherwise(json_answer(500, R"({"error":{"code":-1,"message":"never"}})"));
  EXPECT_EQ(resolve({"--retry", "30s"}).exit_code, 1);
  EXPECT_EQ(server_.request_count(), 3U);
  // Without --retry, and for the URL alone, there is one attempt.
  server_.otherwise(later);
  EXPECT_EQ(resolve().exit_code, 1);
  EXPECT_EQ(run({"pool", "url", "p-1", "--retry", "30s"}).exit_code, 1);
  EXPECT_EQ(server_.request_count(), 5U);
}

TEST_F(Resolve, many_pools_keep_their_order) {
  server_.otherwise([](const Recorded_Request& request) {
    const std::size_t begin = request.target.find("uuid=") + 5;
    const std::string uuid = request.target.substr(begin, request.target.find('&') - begin);
    if (uuid == "p-7") return json_answer(404, R"({"error":{"code":-1,"message":"no pool"}})");
    return pool_of(R"({"uuid":"d","pool_uuid":")" + uuid + R"(","url":"ws://)" + uuid + "\"}");
  });
  Run_Options options;
  std::string wanted;
  for (int i = 1; i <= 20; ++i) {
    const std::string pool = "p-" + std::to_string(i);
    options.input += pool + "\n";
    if (i != 7) wanted.append(pool).append("\turl\tws://").append(pool).append("\n");
  }
  const Run_Result result = run({"pool", "url", "-", "-o", "tsv", "--jobs", "8"}, options);
  EXPECT_EQ(result.exit_code, 3);
  EXPECT_EQ(result.out, wanted);
  EXPECT_EQ(result.err,
            "zqpool: pool url: p-7: " + url_of(server_) + ": HTTP status 404: no pool\n");
}

TEST_F(Resolve, wrong_calls_reach_no_service) {
  const std::vector<std::string> table[] = {
      {"pool", "resolve"},
      {"pool", "resolve", "p", "--replica", "--device", "d"},
      {"pool", "resolve", "p", "--replica", "--host-uuid", "h"},
      {"pool", "resolve", "p", "--replica", "--restore"},
      {"pool", "resolve", "p", "--backupd", "backup1:9443"},
      {"pool", "url", ""},
      {"pool", "url", "p", "--show-secrets"}};
  for (const std::vector<std::string>& arguments : table) {
    EXPECT_EQ(run(arguments).exit_code, 2) << testing::PrintToString(arguments);
  }
  EXPECT_EQ(server_.connection_count(), 0U);
}

}  // namespace
}  // namespace zqpool::test
