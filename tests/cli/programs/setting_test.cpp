#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;

/// A home with a configuration.
class Setting : public testing::Test {
 protected:
  void configure(const std::string& text, const std::string& folder = ".config") {
    mkdir(home_.path(folder).c_str(), 0700);
    mkdir(home_.path(folder + "/zqpool").c_str(), 0700);
    home_.write(folder + "/zqpool/config", text);
  }

  Run_Options with_home(std::vector<std::string> environment = {}) const {
    Run_Options options;
    options.home = home_.path();
    options.environment = std::move(environment);
    return options;
  }

  Temp_Directory home_;
};

TEST_F(Setting, argument_beats_environment_beats_file) {
  configure("endpoint = https://from-file:1\n");
  const auto line = [&](std::vector<std::string> arguments, const Run_Options& options) {
    arguments.insert(arguments.begin(), {"config", "show", "-o", "json"});
    const std::string out = zqpool(arguments, options).out;
    return out.substr(0, out.find('\n'));
  };
  const Run_Options variable = with_home({"ZQPOOL_ENDPOINT=https://from-variable:2"});
  EXPECT_EQ(line({"--endpoint", "https://from-argument:3"}, variable),
            R"({"setting":"endpoint","source":"--endpoint","value":"https://from-argument:3"})");
  EXPECT_EQ(
      line({}, variable),
      R"({"setting":"endpoint","source":"ZQPOOL_ENDPOINT","value":"https://from-variable:2"})");
  EXPECT_EQ(line({}, with_home()), R"({"setting":"endpoint","source":")" +
                                       home_.path(".config/zqpool/config") +
                                       R"(","value":"https://from-file:1"})");
}

TEST_F(Setting, the_users_file_is_found_by_xdg_config_home) {
  configure("jobs = 9\n", "elsewhere");
  const Run_Options options = with_home({"XDG_CONFIG_HOME=" + home_.path("elsewhere")});
  EXPECT_THAT(zqpool({"config", "show", "-o", "tsv"}, options).out,
              HasSubstr("jobs\tsource\t" + home_.path("elsewhere/zqpool/config") + "\n"));
  // A relative folder is ignored.
  EXPECT_THAT(zqpool({"config", "show", "-o", "tsv"}, with_home({"XDG_CONFIG_HOME=elsewhere"})).out,
              HasSubstr("jobs\tsource\tdefault\n"));
}

TEST_F(Setting, a_configuration_is_all_that_a_call_needs) {
  const Test_Certificates& certificates = Test_Certificates::instance();
  Server_Options server_options;
  server_options.identity = &certificates.server;
  Scripted_Server server(server_options);
  server.otherwise(json_answer(200, R"({"rows":[{"a":1}]})"));
  configure("endpoint = " + url_of(server) +
            "\naccess_key_file = key\ncacert = " + certificates.ca_file + "\noutput = json\n");
  home_.write(".config/zqpool/key", "file-key\n");
  const Run_Result result = zqpool({"pool", "show", "p"}, with_home());
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.out, "{\"a\":1}\n");
  EXPECT_EQ(server.request(0).header("X-Access-Key"), "file-key");
}

TEST_F(Setting, config_show_tells_every_setting_and_its_source) {
  const Run_Result result = zqpool({"config", "show", "--jobs", "2"}, with_home());
  if (access("/etc/zqpool/config", F_OK) == 0) {
    GTEST_SKIP() << "this machine has a configuration of its own, /etc/zqpool/config";
  }
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out,
            "SETTING          SOURCE   VALUE\n"
            "endpoint         -        -\n"
            "access_key_file  -        -\n"
            "cacert           -        -\n"
            "s3_secret_file   -        -\n"
            "host_root        -        -\n"
            "timeout          default  1m\n"
            "retry            default  0\n"
            "jobs             --jobs   2\n"
            "output           default  table\n");
}

TEST_F(Setting, config_show_never_reads_the_key) {
  const std::string key_file = home_.write("key", "secret-key");
  const Run_Result result = zqpool({"config", "show", "--access-key-file", key_file}, with_home());
  EXPECT_THAT(result.out, HasSubstr(key_file));
  EXPECT_THAT(result.out + result.err, testing::Not(HasSubstr("secret-key")));
}

TEST_F(Setting, errors_say_where_the_value_came_from) {
  configure("timeout = soon\n");
  const auto error = [&](std::vector<std::string> arguments, const Run_Options& options) {
    arguments.insert(arguments.begin(), {"pool", "show", "p"});
    const Run_Result result = zqpool(arguments, options);
    EXPECT_EQ(result.exit_code, 2);
    return result.err;
  };
  EXPECT_THAT(error({"--endpoint", "https://h"}, with_home()),
              HasSubstr("pool show: " + home_.path(".config/zqpool/config") +
                        ": 'soon' is not a duration"));
  EXPECT_THAT(error({"--timeout", "1"}, with_home({"ZQPOOL_ENDPOINT=pool1"})),
              HasSubstr("pool show: ZQPOOL_ENDPOINT: 'pool1' is not an endpoint"));
  EXPECT_THAT(error({"--output", "xml"}, with_home()),
              HasSubstr("pool show: --output: 'xml' is no"));
  configure("endpiont = https://h\n");
  EXPECT_THAT(error({}, with_home()), HasSubstr("'endpiont' is not a setting"));
}

}  // namespace
}  // namespace zqpool::test
