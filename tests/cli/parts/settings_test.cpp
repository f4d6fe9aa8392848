#include "cli/command/settings.h"

#include <gtest/gtest.h>

#include <map>

#include "cli/support/exit_code.h"
#include "tests/support/temp_directory.h"

namespace zqpool::cli {
namespace {

using Texts = std::map<std::string, std::string>;

Setting_Lookup lookup_in(const Texts& texts, const char* Setting::*name) {
  return [&texts, name](const Setting& setting) -> const char* {
    const auto found = texts.find(setting.*name);
    return found != texts.end() ? found->second.c_str() : nullptr;
  };
}

Settings settings_of(const Texts& arguments, const Texts& environment, const Config_Files& files) {
  return Settings(lookup_in(arguments, &Setting::option),
                  lookup_in(environment, &Setting::variable), files);
}

TEST(Settings, the_table_is_in_the_order_of_its_ids) {
  std::size_t index = 0;
  for (const Setting& setting : all_settings()) {
    EXPECT_EQ(static_cast<std::size_t>(setting.id), index++) << setting.key;
  }
}

TEST(Settings, argument_beats_environment_beats_user_beats_system_beats_default) {
  const test::Temp_Directory directory;
  const Config_Files files{directory.write("user", "jobs = 3\n"),
                           directory.write("system", "jobs = 2\n")};
  const Texts argument = {{"--jobs", "5"}};
  const Texts variable = {{"ZQPOOL_JOBS", "4"}};
  const auto jobs = [](const Settings& settings) {
    const Setting_Value& value = settings[Setting_Id::jobs];
    return value.text + " " + value.source;
  };
  EXPECT_EQ(jobs(settings_of(argument, variable, files)), "5 --jobs");
  EXPECT_EQ(jobs(settings_of({}, variable, files)), "4 ZQPOOL_JOBS");
  EXPECT_EQ(jobs(settings_of({}, {{"ZQPOOL_JOBS", ""}}, files)), "3 " + files.user);
  EXPECT_EQ(jobs(settings_of({}, {}, {"", files.system})), "2 " + files.system);
  EXPECT_EQ(jobs(settings_of({}, {}, {directory.path("none"), directory.path("neither")})),
            "4 default");
  EXPECT_FALSE(settings_of({}, {}, {})[Setting_Id::endpoint].given);
}

TEST(Settings, a_file_is_key_and_value_a_line) {
  const test::Temp_Directory directory;
  const std::string user = directory.write("user",
                                           "# the lab\n"
                                           "\n"
                                           "endpoint = https://pool1:8443   # its door\n"
                                           "access_key_file=\"a key, with blanks\"\n"
                                           "  cacert = /etc/ssl/ca one.pem\n"
                                           "timeout = 1m30s\n");
  const Settings settings = settings_of({}, {}, {user, ""});
  EXPECT_EQ(settings[Setting_Id::endpoint].text, "https://pool1:8443");
  EXPECT_EQ(settings[Setting_Id::access_key_file].text, directory.path("a key, with blanks"));
  EXPECT_EQ(settings[Setting_Id::cacert].text, "/etc/ssl/ca one.pem");
  EXPECT_EQ(settings[Setting_Id::timeout].text, "1m30s");
}

TEST(Settings, a_path_of_an_argument_stays_as_it_is) {
  EXPECT_EQ(settings_of({{"--cacert", "ca.pem"}}, {}, {})[Setting_Id::cacert].text, "ca.pem");
}

TEST(Settings, a_bad_file_is_refused_with_its_name_and_the_key) {
  const test::Temp_Directory directory;
  const std::pair<const char*, const char*> table[] = {
      {"endpiont = https://h\n", "'endpiont' is not a setting"},
      {"[service]\nendpoint = https://h\n", "is not a setting"},
      {"jobs = 1\njobs = 2\n", "'jobs' is set twice"},
      {"jobs = 1\ntimeout = 2\njobs = 2\n", "'jobs' is set twice"},
      {"access_key = hunter2\n", "never read from a configuration"}};
  for (const auto& [text, expected] : table) {
    const std::string file = directory.write("bad", text);
    try {
      settings_of({}, {}, {"", file});
      ADD_FAILURE() << "taken: " << text;
    } catch (const Usage_Error& error) {
      const std::string what = error.what();
      EXPECT_NE(what.find(expected), std::string::npos) << what;
      EXPECT_NE(what.find(file), std::string::npos) << what;
      EXPECT_EQ(what.find("hunter2"), std::string::npos) << what;
    }
  }
  EXPECT_THROW(settings_of({}, {}, {directory.path(), ""}), Usage_Error) << "a folder";
}

}  // namespace
}  // namespace zqpool::cli
