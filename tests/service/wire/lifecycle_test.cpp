// Start, stop and crash of the real process, and the state it leaves.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/service/fixtures/http_client.h"
#include "tests/service/fixtures/small_lab.h"
#include "tests/support/service_process.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds max_wait{60};

const std::string pool_path = "/zq/r/storage/catalog/pool";

std::string content_of(const std::string& file) {
  std::ostringstream out;
  out << std::ifstream(file, std::ios::binary).rdbuf();
  return out.str();
}

void script(const Service_Process& service, const std::string& fault) {
  EXPECT_EQ(ask(service, "POST", "/zq/lab/faults",
                R"({"faults":[{"path":")" + pool_path + R"(",)" + fault + "}]}")
                .status,
            201U);
}

/// Waits until the script's first fault was chosen for a request.
void wait_until_chosen(const Service_Process& service) {
  const auto start = Clock::now();
  while (true) {
    const json_spirit::Value list = ask(service, "GET", "/zq/lab/faults").json();
    const Object& fault = list.get_obj().at("faults").get_array().at(0).get_obj();
    if (fault.at("chosen").get_int64() > 0) return;
    if (Clock::now() - start > max_wait) throw std::runtime_error("not chosen");
  }
}

bool connects(const Endpoint& to) {
  try {
    const Http_Client client(to);
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

std::string pool_entry(int number) {
  std::string digits = std::to_string(number);
  digits.insert(0, 12 - digits.size(), '0');
  return R"({"uuid":"11111111-0000-4000-8000-)" + digits + R"(","name":"p)" +
         std::to_string(number) + R"(","type":"file"})";
}

// ---- stopping

TEST(Stop, of_an_idle_service_is_immediate_and_leaves_no_journal) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Service_Process service({small_lab(), {}});
    EXPECT_TRUE(std::filesystem::exists(service.state_file() + "-wal"));
    service.signal(signal);
    EXPECT_EQ(service.wait(), 0) << service.messages();
    EXPECT_FALSE(std::filesystem::exists(service.state_file() + "-wal"));
    EXPECT_EQ(service.messages(), "");
    EXPECT_FALSE(connects(service.http()));
    EXPECT_FALSE(connects(service.https()));
  }
}

class Stop_Over : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Each, Stop_Over, testing::Bool(), transport_name);

TEST_P(Stop_Over, closes_idle_connections_in_order) {
  Service_Process service({small_lab(), {}});
  Http_Client fresh(service.endpoint(GetParam()));
  Http_Client used(service.endpoint(GetParam()));
  used.send(request_text("GET", pool_path, service.access_key()));
  ASSERT_TRUE(used.read());
  service.signal(SIGTERM);
  EXPECT_EQ(used.ending(), Ending::closed);
  EXPECT_EQ(fresh.ending(), Ending::closed);
  EXPECT_EQ(service.wait(), 0);
  EXPECT_EQ(service.messages(), "");
}

TEST_P(Stop_Over, lets_a_running_request_end) {
  Service_Process service({small_lab(), {}});
  script(service, R"("kind":"delay","delay_ms":400)");
  Http_Client client(service.endpoint(GetParam()));
  client.send(request_text("GET", pool_path, service.access_key()));
  wait_until_chosen(service);
  service.signal(SIGTERM);
  const auto answer = client.read();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200U);
  EXPECT_EQ(answer->header("connection"), "close");
  EXPECT_EQ(client.ending(), Ending::closed);
  EXPECT_EQ(service.wait(), 0);
  EXPECT_EQ(service.messages(), "");
}

TEST_P(Stop_Over, waits_for_a_request_up_to_its_timeout) {
  Service_Process service({small_lab(), {"--stop-timeout", "0.3"}});
  script(service, R"("kind":"delay","delay_ms":600000)");
  Http_Client client(service.endpoint(GetParam()));
  client.send(request_text("GET", pool_path, service.access_key()));
  wait_until_chosen(service);
  EXPECT_EQ(service.stop(), 0);
  EXPECT_FALSE(client.read());
  EXPECT_THAT(service.messages(), HasSubstr("stopped after the time allowed"));
  EXPECT_FALSE(std::filesystem::exists(service.state_file() + "-wal"));
}

TEST(Stop, a_second_signal_does_not_wait) {
  Service_Process service({small_lab(), {"--stop-timeout", "600"}});
  script(service, R"("kind":"delay","delay_ms":600000)");
  Http_Client client(service.http());
  client.send(request_text("GET", pool_path, service.access_key()));
  wait_until_chosen(service);
  service.signal(SIGTERM);
  // Equal pending signals are merged, so the first must be handled before the second is sent.
  while (connects(service.http())) {
  }
  service.signal(SIGTERM);
  EXPECT_EQ(service.wait(), 0);
  EXPECT_THAT(service.messages(), HasSubstr("stopped at the second signal"));
}

TEST(Stop, while_clients_of_all_kinds_are_busy) {
  Service_Process service({small_lab(), {}});
  std::atomic<bool> done{false};
  std::atomic<int> answered{0};
  std::vector<std::thread> clients;
  clients.reserve(8);
  for (int t = 0; t < 8; ++t) {
    clients.emplace_back([&, t] {
      while (!done) {
        try {
          Http_Client client(service.endpoint(t % 2 == 1));
          for (int i = 0; i < 3; ++i) {
            client.send(request_text("GET", pool_path, service.access_key()));
            const auto answer = client.read();
            if (!answer) break;
            if (answer->status == 200) ++answered;
          }
        } catch (const std::exception&) {
          // refused or disconnected: the service is stopping
        }
      }
    });
  }
  while (answered < 100)
    std::this_thread::yield();
  service.signal(SIGTERM);
  const int code = service.wait();
  done = true;
  for (std::thread& client : clients)
    client.join();
  EXPECT_EQ(code, 0);
  EXPECT_EQ(service.messages(), "");
}

// ---- the state

TEST(Service_State, survives_stop_and_kill) {
  Service_Process service({small_lab(), {}});
  const std::string before = ask(service, "GET", "/zq/lab/scenario").body;
  EXPECT_EQ(service.stop(), 0);
  service.start();
  EXPECT_EQ(ask(service, "GET", "/zq/lab/scenario").body, before);
  EXPECT_THAT(service.messages(), HasSubstr("exists and is kept; the scenario is not loaded"));
  service.kill();
  service.start();
  EXPECT_EQ(ask(service, "GET", "/zq/lab/scenario").body, before);
}

TEST(Service_State, has_every_acknowledged_change_after_a_kill_and_none_in_part) {
  Service_Process service;
  int done = 0;
  for (int round = 0; round < 5; ++round) {
    std::atomic<int> acknowledged{done};
    std::atomic<bool> killed{false};
    std::thread writer([&] {
      try {
        // Each request creates a pair of pools.
        for (int i = done; !killed; ++i) {
          Http_Client client(service.http());
          client.send(request_text(
              "POST", "/zq/lab/scenario?mode=merge", service.access_key(),
              R"({"pools":[)" + pool_entry(2 * i) + ',' + pool_entry(2 * i + 1) + "]}"));
          const auto answer = client.read();
          if (!answer || answer->status != 200) return;
          acknowledged = i + 1;
        }
      } catch (const std::system_error&) {
        // refused: the service is dead
      }
    });
    while (acknowledged < done + 5)
      std::this_thread::yield();
    ::kill(service.pid(), SIGKILL);
    killed = true;
    writer.join();
    service.wait();
    service.start();
    const json_spirit::Value answer = ask(service, "GET", pool_path + "?limit=0").json();
    const std::int64_t pools = answer.get_obj().at("total").get_int64();
    EXPECT_EQ(pools % 2, 0) << "half a request";
    EXPECT_GE(pools, 2 * acknowledged);
    EXPECT_LE(pools, 2 * (acknowledged + 1)) << "more than was asked for";
    done = static_cast<int>(pools / 2);
  }
}

TEST(Service_State, is_reloaded_only_on_request) {
  Service_Process service({small_lab(), {"--reload-scenario"}});
  ask(service, "POST", "/zq/lab/scenario", "{\"pools\":[" + pool_entry(1) + "]}");
  EXPECT_EQ(service.stop(), 0);
  service.start();
  EXPECT_THAT(ask(service, "GET", pool_path + "?limit=0").body, HasSubstr("\"total\":3"));
  EXPECT_EQ(service.messages(), "");
}

TEST(Service_State, stays_new_after_an_invalid_scenario) {
  const Temp_Directory directory;
  const std::vector<std::string> command = {"--state",
                                            directory.path("state"),
                                            "--no-access-key",
                                            "--listen",
                                            "127.0.0.1:0",
                                            "--scenario",
                                            directory.path("scenario"),
                                            "--access-log",
                                            directory.path("log"),
                                            "--ready-file",
                                            directory.path("ready")};
  directory.write("scenario",
                  R"({"pools":[{"uuid":")" + pool_uuid(1) + R"(","name":"n","type":"file"},{}]})");
  for (int i = 0; i < 2; ++i) {
    const Service_Result result = run_service(command);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_THAT(result.messages, HasSubstr("scenario '" + directory.path("scenario") +
                                           "': pools[1].uuid: is missing"));
    EXPECT_EQ(result.output, "");
  }
  EXPECT_FALSE(std::filesystem::exists(directory.path("ready")));
}

TEST(Service_State, a_full_disk_refuses_changes_and_loses_nothing) {
  const Temp_Directory directory;
  const std::string disk = directory.path("disk");
  std::filesystem::create_directory(disk);
  // A mount that only this process sees.
  if (::unshare(CLONE_NEWNS) != 0 ||
      ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=1m") != 0) {
    GTEST_SKIP() << "a small disk needs the right to mount: " << std::strerror(errno);
  }
  {
    Service_Process service({"", {"--state", disk + "/state"}});
    int made = 0;
    Http_Answer answer;
    do {
      const std::string padding(20000, 'd');
      std::string entry = pool_entry(made);
      entry.insert(entry.size() - 1, R"(,"description":")" + padding + '"');
      answer = ask(service, "POST", "/zq/lab/scenario?mode=merge", R"({"pools":[)" + entry + "]}");
      if (answer.status == 200) ++made;
    } while (answer.status == 200 && made < 1000);
    EXPECT_EQ(answer.status, 507U) << answer.body;
    EXPECT_THAT(answer.body, HasSubstr("\"code\":507"));
    EXPECT_GT(made, 3);
    const std::string expected = "\"total\":" + std::to_string(made) + '}';
    EXPECT_THAT(ask(service, "GET", pool_path + "?limit=0").body, EndsWith(expected));
    service.kill();
    service.start();
    EXPECT_THAT(ask(service, "GET", pool_path + "?limit=0").body, EndsWith(expected));
    EXPECT_EQ(service.stop(), 0);
    // A new state has no space either.
    std::ofstream(disk + "/filler") << std::string(2000000, 'x');
    const Service_Result none =
        run_service({"--state", disk + "/other", "--no-access-key", "--listen", "127.0.0.1:0"});
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_THAT(none.messages, HasSubstr(disk + "/other'"));
  }
  EXPECT_EQ(::umount(disk.c_str()), 0);
}

TEST(Service_State, cannot_be_used_by_a_second_service) {
  const Service_Process service;
  const Service_Result second =
      run_service({"--state", service.state_file(), "--no-access-key", "--listen", "127.0.0.1:0"});
  EXPECT_EQ(second.exit_code, 1);
  EXPECT_THAT(second.messages, HasSubstr("is in use by another zqpoold (process " +
                                         std::to_string(service.pid()) + ")"));
  EXPECT_EQ(ask(service, "GET", pool_path).status, 200U);
}

// ---- the command line

TEST(Command_Line, help_and_version) {
  const Service_Result help = run_service({"--help"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_THAT(help.output, HasSubstr("--access-key-file FILE"));
  EXPECT_EQ(help.messages, "");
  const Service_Result version = run_service({"--version"});
  EXPECT_EQ(version.exit_code, 0);
  EXPECT_THAT(version.output, testing::MatchesRegex("zqpoold [0-9]+[.][0-9]+[.][0-9]+\n"));
}

TEST(Command_Line, usage_errors_exit_with_2_and_change_nothing) {
  const Temp_Directory directory;
  const std::string state = directory.path("state");
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"--state", state},
      {"--no-access-key"},
      {"--state", state, "--no-access-key", "--access-key-file", "x"},
      {"--state", state, "--no-access-key", "--nonsense"},
      {"--state", state, "--no-access-key", "argument"},
      {"--state", state, "--no-access-key", "--listen", "127.0.0.1"},
      {"--state", state, "--no-access-key", "--listen", "127.0.0.1:"},
      {"--state", state, "--no-access-key", "--listen", "127.0.0.1:65536"},
      {"--state", state, "--no-access-key", "--listen", "127.0.0.1:1x"},
      {"--state", state, "--no-access-key", "--listen", "::1:0"},
      {"--state", state, "--no-access-key", "--listen", ":0"},
      {"--state", state, "--no-access-key", "--tls-listen", "127.0.0.1:0"},
      {"--state", state, "--no-access-key", "--threads", "0"},
      {"--state", state, "--no-access-key", "--threads", "x"},
      {"--state", state, "--no-access-key", "--idle-timeout", "0"},
      {"--state", state, "--no-access-key", "--reload-scenario"},
  };
  for (const auto& arguments : wrong) {
    const Service_Result result = run_service(arguments);
    EXPECT_EQ(result.exit_code, 2) << testing::PrintToString(arguments);
    EXPECT_NE(result.messages, "");
    EXPECT_EQ(result.output, "");
  }
  EXPECT_FALSE(std::filesystem::exists(state));
}

TEST(Command_Line, failures_at_start_exit_with_1_and_a_reason) {
  const Temp_Directory directory;
  int states = 0;
  const auto reason = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {"--state",      directory.path(std::to_string(++states)),
                                          "--listen",     "127.0.0.1:0",
                                          "--access-log", directory.path("log")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Service_Result result = run_service(arguments);
    EXPECT_EQ(result.exit_code, 1) << testing::PrintToString(more);
    EXPECT_EQ(result.output, "");
    return result.messages;
  };
  EXPECT_THAT(reason({"--access-key-file", directory.path("none")}),
              HasSubstr("cannot read an access key from"));
  EXPECT_THAT(reason({"--no-access-key", "--state", directory.path("none/state")}),
              HasSubstr("No such file or directory"));
  EXPECT_THAT(reason({"--no-access-key", "--access-log", directory.path("none/log")}),
              HasSubstr("cannot open access log"));
  EXPECT_THAT(reason({"--no-access-key", "--scenario", directory.path("none")}),
              HasSubstr("cannot read it: No such file"));
  EXPECT_THAT(reason({"--no-access-key", "--listen", "localhost:0"}),
              HasSubstr("'localhost' is not an IP address"));
  EXPECT_THAT(reason({"--no-access-key", "--listen", "127.0.0.1:0", "--ready-file",
                      directory.path("none/ready")}),
              HasSubstr("cannot write"));
  EXPECT_THAT(reason({"--no-access-key", "--tls-listen", "127.0.0.1:0", "--certificate",
                      directory.path("none"), "--private-key", directory.path("none")}),
              HasSubstr("cannot use certificate"));
  const Test_Certificates& certificates = Test_Certificates::instance();
  EXPECT_THAT(
      reason({"--no-access-key", "--tls-listen", "127.0.0.1:0", "--certificate",
              certificates.server.certificate_file, "--private-key", certificates.client.key_file}),
      HasSubstr("cannot use private key"));
  const Service_Process running;
  EXPECT_THAT(
      reason({"--no-access-key", "--listen", "127.0.0.1:" + std::to_string(running.http().port)}),
      HasSubstr("Address already in use"));
}

TEST(Command_Line, without_a_key_every_client_is_accepted_with_a_warning) {
  Service_Settings settings;
  settings.scenario = small_lab();
  settings.access_key = false;
  const Service_Process service(settings);
  EXPECT_EQ(service.access_key(), "");
  EXPECT_EQ(ask(service, "GET", pool_path).status, 200U);
  EXPECT_EQ(ask(service, "GET", pool_path, "", "X-Access-Key: any\r\n").status, 200U);
  EXPECT_THAT(service.messages(), HasSubstr("WARNING: no access key is required"));
}

TEST(Command_Line, the_lab_exists_only_on_request) {
  Service_Settings settings;
  settings.scenario = small_lab();
  settings.lab = false;
  const Service_Process service(settings);
  EXPECT_EQ(ask(service, "GET", pool_path).status, 200U);
  for (const char* path : {"/zq/lab/health", "/zq/lab/faults", "/zq/lab/scenario"}) {
    EXPECT_EQ(ask(service, "GET", path).status, 404U) << path;
  }
}

TEST(Command_Line, the_ready_file_has_the_ready_line_while_it_serves) {
  const Temp_Directory directory;
  const std::string file = directory.path("ready");
  Service_Process service({"", {"--ready-file", file}});
  EXPECT_EQ(content_of(file),
            "zqpoold ready http://127.0.0.1:" + std::to_string(service.http().port) +
                " https://127.0.0.1:" + std::to_string(service.https().port) + '\n');
  EXPECT_EQ(service.stop(), 0);
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(Access_Log_File, is_reopened_on_sighup) {
  const Service_Process service({small_lab(), {}});
  const std::string log = service.directory().path("log");
  ask(service, "GET", pool_path, "", "X-Request-Id: before\r\n");
  std::filesystem::rename(log, log + ".1");
  service.signal(SIGHUP);
  const auto start = Clock::now();
  while (!std::filesystem::exists(log)) {
    ASSERT_LT(Clock::now() - start, max_wait);
    std::this_thread::yield();
  }
  ask(service, "GET", pool_path, "", "X-Request-Id: after\r\n");
  EXPECT_THAT(content_of(log + ".1"), HasSubstr("id=before"));
  EXPECT_THAT(content_of(log), HasSubstr("id=after"));
  struct stat status {};
  EXPECT_EQ(stat(log.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(Access_Log_File, may_be_unwritable_without_stopping_the_service) {
  const Service_Process service({small_lab(), {"--access-log", "/dev/full"}});
  EXPECT_EQ(ask(service, "GET", pool_path).status, 200U);
  EXPECT_EQ(ask(service, "GET", pool_path).status, 200U);
  EXPECT_THAT(service.messages(), HasSubstr("cannot write to access log '/dev/full'"));
}

}  // namespace
}  // namespace zqpool::test
