#include <gmock/gmock.h>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const char* const pool_row = R"({"rows":[{"uuid":"p-1","name":"vault","size":10737418240}]})";

/// Answers each catalog query with one row that holds the query.
Answer echo_row(const Recorded_Request& request) {
  const std::string asked = request.target.substr(request.target.find('=') + 1);
  return json_answer(200, R"({"rows":[{"asked":")" + asked + R"("}]})");
}

TEST_F(Command, pool_show_prints_the_record) {
  server_.queue(json_answer(200, pool_row));
  const Run_Result result = run({"pool", "show", "p-1"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "uuid  p-1\nname  vault\nsize  10737418240 (10 GiB)\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(server_.request(0).line, "GET /zq/r/storage/catalog/pool?uuid=p-1 HTTP/1.1");
  EXPECT_EQ(server_.request(0).header("X-Access-Key"), key_);
  EXPECT_THAT(server_.request(0).header("User-Agent"), StartsWith("zqpool/"));
}

TEST_F(Command, pool_show_as_json_and_tsv) {
  server_.otherwise(json_answer(200, pool_row));
  EXPECT_EQ(run({"pool", "show", "p-1", "--output", "json"}).out,
            "{\"name\":\"vault\",\"size\":10737418240,\"uuid\":\"p-1\"}\n");
  EXPECT_EQ(run({"-o", "tsv", "pool", "show", "p-1"}).out,
            "p-1\tname\tvault\np-1\tsize\t10737418240\np-1\tuuid\tp-1\n");
}

TEST_F(Command, device_show_asks_by_url_or_uuid) {
  server_.otherwise(&echo_row);
  EXPECT_EQ(run({"device", "show", "--url", "file:///d 1"}).out, "asked  file%3a%2f%2f%2fd+1\n");
  EXPECT_EQ(run({"device", "show", "--uuid", "d-1"}).out, "asked  d-1\n");
  EXPECT_EQ(server_.request(0).target, "/zq/r/storage/catalog/device?url=file%3a%2f%2f%2fd+1");
  EXPECT_EQ(server_.request(1).target, "/zq/r/storage/catalog/device?uuid=d-1");
}

TEST_F(Command, device_located_prints_type_and_devices) {
  const char* const answer =
      R"({"type":"mirror","devices":[{"uuid":"d-1","host":"n1"},{"uuid":"d-2"}]})";
  server_.otherwise(json_answer(200, answer));
  const Run_Result table = run({"device", "located", "p-1", "/a b"});
  EXPECT_EQ(table.exit_code, 0);
  EXPECT_EQ(table.out,
            "type  mirror\n"
            "devices\n"
            "  UUID  HOST\n"
            "  d-1   n1\n"
            "  d-2   -\n");
  EXPECT_EQ(run({"device", "located", "p-1", "/a b", "-o", "json"}).out,
            "{\"devices\":[{\"host\":\"n1\",\"uuid\":\"d-1\"},{\"uuid\":\"d-2\"}],"
            "\"type\":\"mirror\"}\n");
  EXPECT_EQ(run({"device", "located", "p-1", "/a b", "-o", "tsv", "--grouping", "host"}).out,
            "/a b\tdevices.0.host\tn1\n/a b\tdevices.0.uuid\td-1\n/a b\tdevices.1.uuid\td-2\n"
            "/a b\ttype\tmirror\n");
  EXPECT_EQ(server_.request(0).line, "PUT /zq/r/storage/catalog/device/metadata HTTP/1.1");
  EXPECT_EQ(server_.request(0).body, R"({"path":"/a b","pool_uuid":"p-1"})");
  EXPECT_EQ(server_.request(2).body, R"({"grouping":"host","path":"/a b","pool_uuid":"p-1"})");
}

TEST_F(Command, device_info_asks_about_a_url) {
  server_.otherwise(json_answer(200, R"({"online":true})"));
  EXPECT_EQ(run({"device", "info", "file:///d1"}).out, "online  true\n");
  EXPECT_EQ(run({"device", "info", "file:///d1", "--pool", "p-1"}).exit_code, 0);
  EXPECT_EQ(server_.request(0).body, R"({"url":"file:///d1"})");
  EXPECT_EQ(server_.request(1).body, R"({"pool_uuid":"p-1","url":"file:///d1"})");
}

TEST_F(Command, unknown_objects_are_not_found) {
  server_.otherwise(json_answer(200, R"({"rows":[]})"));
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"pool", "show", "p-9"},
                                                    {"device", "show", "--url", "u-9"},
                                                    {"device", "show", "--uuid", "d-9"}}) {
    const Run_Result result = run(arguments);
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "zqpool: " + arguments[0] + " show: " + url_of(server_) +
                              ": not found: the service does not hold exactly one such object\n");
  }
}

TEST_F(Command, a_url_of_several_pools_is_a_conflict) {
  const char* const words = "'file:///d1' is a device of several pools: give 'pool_uuid'";
  server_.queue(json_answer(200, R"({"rows":[{"uuid":"d-1"},{"uuid":"d-2"}]})"))
      .queue(json_answer(409, std::string(R"({"error":{"code":-1,"message":")") + words + "\"}}"));
  const Run_Result result = run({"device", "show", "--url", "file:///d1"});
  EXPECT_EQ(result.exit_code, 4);
  EXPECT_EQ(result.err,
            "zqpool: device show: " + url_of(server_) + ": HTTP status 409: " + words + "\n");
}

TEST_F(Command, an_unknown_path_is_not_found_although_the_call_succeeds) {
  server_.otherwise(json_answer(200, "{}"));
  const Run_Result result = run({"device", "located", "p-1", "/x"});
  EXPECT_EQ(result.exit_code, 3);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "zqpool: device located: " + url_of(server_) +
                            ": not found: the catalog knows no device for /x\n");
  EXPECT_EQ(run({"device", "info", "file:///x"}).exit_code, 3);
}

TEST_F(Command, an_unexpected_answer_fails) {
  const struct {
    std::vector<std::string> arguments;
    const char* answer;
  } table[] = {{{"pool", "show", "p"}, R"({"rows":"x"})"},
               {{"pool", "show", "p"}, "[]"},
               {{"pool", "show", "p"}, R"({"rows":[1]})"},
               {{"device", "show", "--url", "u"}, "[]"},
               {{"device", "show", "--uuid", "u"}, "5"},
               {{"device", "located", "p", "/x"}, "[]"},
               {{"device", "located", "p", "/x"}, R"({"type":"t"})"},
               {{"device", "located", "p", "/x"}, R"({"devices":[]})"},
               {{"device", "info", "u"}, "[]"},
               {{"pool", "show", "p"}, "no json"},
               {{"device", "info", "u"}, "{\"cut\":"}};
  for (const auto& row : table) {
    server_.otherwise(json_answer(200, row.answer));
    const Run_Result result = run(row.arguments);
    EXPECT_EQ(result.exit_code, 1) << row.arguments[1] << ' ' << row.answer << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("zqpool: " + row.arguments[0] + " " + row.arguments[1] +
                                       ": " + url_of(server_) + ": the answer"));
  }
}

TEST_F(Command, each_status_has_its_exit_code_and_shows_the_services_message) {
  const std::pair<unsigned, int> table[] = {{400, 1}, {401, 6}, {403, 6}, {404, 3}, {409, 4},
                                            {422, 1}, {500, 1}, {507, 5}, {301, 1}};
  for (const auto& [status, exit_code] : table) {
    server_.otherwise(
        json_answer(status, R"({"error":{"code":-1,"message":"so it \u001b[31mis"}})"));
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"pool", "show", "p"},
                                                      {"device", "show", "--url", "u"},
                                                      {"device", "show", "--uuid", "d"},
                                                      {"device", "located", "p", "/x"},
                                                      {"device", "info", "u"}}) {
      const Run_Result result = run(arguments);
      EXPECT_EQ(result.exit_code, exit_code) << status;
      EXPECT_EQ(result.err, "zqpool: " + arguments[0] + " " + arguments[1] + ": " +
                                url_of(server_) + ": HTTP status " + std::to_string(status) +
                                ": so it \\x1b[31mis\n");
      EXPECT_EQ(result.out, "");
    }
  }
}

TEST_F(Command, an_error_without_a_message_shows_its_status) {
  for (const char* const body :
       {"", "<html>", "[]", R"({"error":"x"})", R"({"error":{"message":5}})"}) {
    server_.otherwise(http_answer(404, body));
    EXPECT_EQ(run({"device", "info", "u"}).err,
              "zqpool: device info: " + url_of(server_) + ": HTTP status 404\n");
  }
}

TEST_F(Command, a_refused_connection_is_unreachable) {
  const Refused_Port port;
  const std::string endpoint = "http://127.0.0.1:" + std::to_string(port.port());
  const Run_Result result =
      zqpool({"device", "info", "u", "--endpoint", endpoint, "--access-key-file", key_file_});
  EXPECT_EQ(result.exit_code, 7);
  EXPECT_EQ(result.err, "zqpool: device info: " + endpoint + ": connect: Connection refused\n");
}

TEST_F(Command, a_broken_connection_is_unreachable_for_a_read) {
  server_.otherwise(reset_after_request());
  const Run_Result result = run({"device", "info", "u"});
  EXPECT_EQ(result.exit_code, 7);
  EXPECT_THAT(result.err, StartsWith("zqpool: device info: " + url_of(server_) + ": wait: "));
}

TEST_F(Command, a_silent_service_is_abandoned_after_the_timeout) {
  server_.otherwise(silent());
  const Run_Result result = run({"device", "info", "u", "--timeout", "1s"});
  EXPECT_EQ(result.exit_code, 7);
  EXPECT_THAT(result.err, HasSubstr(url_of(server_) + ": wait: "));
  EXPECT_THAT(result.err, testing::ContainsRegex("\\(after [0-9]+\\.[0-9] s\\)\n$"));
}

TEST_F(Command, a_failed_read_is_retried_with_retry) {
  server_.queue(json_answer(500, "{}")).queue(json_answer(200, pool_row));
  const Run_Result result = run({"pool", "show", "p-1", "--retry", "30s", "--trace"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_THAT(result.out, StartsWith("uuid  p-1\n"));
  EXPECT_THAT(result.err, HasSubstr(": HTTP status 500; retrying\n"));
  // Each exchange has its line, including the one that failed.
  EXPECT_THAT(result.err, HasSubstr("status=500"));
  EXPECT_THAT(result.err, HasSubstr("status=200"));
  EXPECT_EQ(server_.request_count(), 2U);
}

TEST_F(Command, trace_shows_each_exchange_on_a_line) {
  server_.otherwise(json_answer(200, pool_row));
  const Run_Result result = run({"pool", "show", "p-1", "--trace"});
  EXPECT_THAT(result.err,
              testing::MatchesRegex(
                  "zqpool: trace: method=GET url=http://127.0.0.1:[0-9]+/zq/r/storage/catalog/pool "
                  "status=200 id=[0-9a-f]+ address=127.0.0.1 attempts=1 reused=no resumed=no "
                  "name=[0-9.]+ms connect=[0-9.]+ms tls=[0-9.]+ms first_byte=[0-9.]+ms "
                  "total=[0-9.]+ms sent=[0-9]+ received=[0-9]+\n"));
  EXPECT_THAT(result.err, HasSubstr("id=" + server_.request(0).header("X-Request-Id") + " "));
  EXPECT_THAT(result.out, Not(HasSubstr("trace")));
}

TEST_F(Command, verbose_shows_the_librarys_log) {
  server_.otherwise(json_answer(404, "{}"));
  const Run_Result quiet = run({"device", "show", "--url", "u"});
  EXPECT_THAT(quiet.err, Not(HasSubstr("Failed to GET data from")));
  const Run_Result verbose = run({"device", "show", "--url", "u", "--verbose"});
  EXPECT_THAT(verbose.err, HasSubstr("Failed to GET data from 'u'.\n"));
}

TEST_F(Command, many_objects_keep_their_order_and_continue_after_a_failure) {
  server_.otherwise([](const Recorded_Request& request) {
    const int number = std::stoi(request.target.substr(request.target.find("=p-") + 3));
    if (number == 7) return json_answer(404, R"({"error":{"message":"no such pool"}})");
    if (number == 11) return json_answer(403, "{}");
    return echo_row(request);
  });
  Run_Options options;
  std::string wanted;
  for (int i = 1; i <= 40; ++i) {
    options.input += "p-" + std::to_string(i) + (i % 5 == 0 ? "\r\n\n" : "\n");
    if (i != 7 && i != 11) wanted += "{\"asked\":\"p-" + std::to_string(i) + "\"}\n";
  }
  for (const char* const jobs : {"1", "4", "16"}) {
    const Run_Result result = run({"pool", "show", "-", "-o", "json", "--jobs", jobs}, options);
    EXPECT_EQ(result.exit_code, 6) << "not allowed is worse than not found";
    EXPECT_EQ(result.out, wanted);
    EXPECT_EQ(result.err, "zqpool: pool show: p-7: " + url_of(server_) +
                              ": HTTP status 404: no such pool\nzqpool: pool show: p-11: " +
                              url_of(server_) + ": HTTP status 403\n");
  }
}

TEST_F(Command, lists_and_arguments_mix) {
  server_.otherwise(&echo_row);
  Run_Options options;
  options.input = "d-2\nd-3";
  EXPECT_EQ(run({"device", "show", "--uuid", "d-1", "-", "d-4", "-o", "json"}, options).out,
            "{\"asked\":\"d-1\"}\n{\"asked\":\"d-2\"}\n{\"asked\":\"d-3\"}\n{\"asked\":\"d-4\"}\n");
  EXPECT_EQ(run({"device", "show", "--url", "a", "--url", "b", "-o", "json"}).out,
            "{\"asked\":\"a\"}\n{\"asked\":\"b\"}\n");
  EXPECT_EQ(run({"pool", "show", "-", "-"}, options).exit_code, 2);
  // Nothing asked for, nothing done.
  const Run_Result nothing = run({"pool", "show", "-"});
  EXPECT_EQ(nothing.exit_code, 0);
  EXPECT_EQ(nothing.out + nothing.err, "");
}

TEST_F(Command, objects_named_like_commands_are_objects) {
  server_.otherwise(&echo_row);
  EXPECT_EQ(run({"pool", "show", "pool", "device", "show", "-o", "json"}).out,
            "{\"asked\":\"pool\"}\n{\"asked\":\"device\"}\n{\"asked\":\"show\"}\n");
}

TEST_F(Command, wrong_calls_are_usage_errors_that_reach_no_service) {
  const std::vector<std::string> table[] = {
      {},
      {"pool"},
      {"nonsense"},
      {"pool", "nonsense"},
      {"pool", "show"},
      {"pool", "show", ""},
      {"pool", "show", "p", "--nonsense"},
      {"device", "show"},
      {"device", "show", "--url", "u", "--uuid", "d"},
      {"device", "located", "p"},
      {"device", "located", "p", "/x", "y"},
      {"device", "info"},
      {"pool", "show", "p", "--jobs", "0"},
      {"pool", "show", "p", "--jobs", "65"},
      {"pool", "show", "p", "--output", "xml"},
      {"pool", "show", "p", "--timeout", "0"},
      {"pool", "show", "p", "--timeout", "1 s"},
      {"pool", "show", "p", "--retry", "-1"},
      {"pool", "show", "p", "--cacert", "/nonexistent/ca.pem"},
      {"pool", "show", "p", "--quiet", "--verbose"},
      {"pool", "show", "p", "--access-key", "hunter2"},
  };
  for (const std::vector<std::string>& arguments : table) {
    const Run_Result result = run(arguments);
    EXPECT_EQ(result.exit_code, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("zqpool: "));
  }
  EXPECT_EQ(server_.connection_count(), 0U);
}

TEST_F(Command, progress_is_for_terminals_only) {
  server_.otherwise(&echo_row);
  Run_Options options;
  EXPECT_EQ(run({"pool", "show", "p-1", "p-2"}, options).err, "");
  options.terminal = true;
  options.error_on_terminal = true;
  const Run_Result shown = run({"pool", "show", "p-1", "p-2", "-o", "json"}, options);
  EXPECT_THAT(shown.terminal, HasSubstr("2 of 2 done"));
  EXPECT_EQ(shown.out, "{\"asked\":\"p-1\"}\n{\"asked\":\"p-2\"}\n");
  EXPECT_EQ(run({"pool", "show", "p-1", "p-2", "--quiet"}, options).terminal, "");
}

TEST(TLS_Command, certificates_are_verified_by_default) {
  const Test_Certificates& certificates = Test_Certificates::instance();
  const Temp_Directory directory;
  const std::string key_file = directory.write("key", "k");
  const auto show = [&](const Identity& identity, std::vector<std::string> more) {
    Server_Options options;
    options.identity = &identity;
    Scripted_Server server(options);
    server.otherwise(json_answer(200, pool_row));
    more.insert(more.begin(), {"pool", "show", "p-1", "--endpoint", url_of(server),
                               "--access-key-file", key_file});
    Run_Result result = zqpool(more);
    EXPECT_EQ(server.request_count(), result.exit_code == 0 ? 1U : 0U);
    return result;
  };
  EXPECT_EQ(show(certificates.server, {"--cacert", certificates.ca_file}).exit_code, 0);
  EXPECT_EQ(show(certificates.server, {"--cacert", certificates.ca_directory}).exit_code, 0);
  const struct {
    const Identity& identity;
    std::string ca;
    const char* words;
  } table[] = {{certificates.expired, certificates.ca_file, "certificate has expired"},
               {certificates.other_host, certificates.ca_file, "mismatch"},
               {certificates.server, certificates.foreign_ca_file, "certificate"},
               {certificates.self_signed, certificates.ca_file, "self-signed certificate"}};
  for (const auto& row : table) {
    const Run_Result refused = show(row.identity, {"--cacert", row.ca});
    EXPECT_EQ(refused.exit_code, 7);
    EXPECT_THAT(refused.err,
                testing::MatchesRegex("zqpool: pool show: https://127.0.0.1:[0-9]+: TLS: .*\n"));
    EXPECT_THAT(refused.err, HasSubstr(row.words));
    const Run_Result taken = show(row.identity, {"--insecure"});
    EXPECT_EQ(taken.exit_code, 0);
    EXPECT_THAT(taken.err, StartsWith("zqpool: WARNING: --insecure: "));
  }
}

}  // namespace
}  // namespace zqpool::test
