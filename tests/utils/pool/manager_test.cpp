#include "tests/utils/pool/manager_test.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/host/host_id.h"
#include "platform/host/initiators.h"
#include "platform/json/json_dump.h"
#include "tests/support/any_answer.h"
#include "tests/support/guards.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;

/// The files of a host of each kind, made once.
class Host_Files {
 public:
  static const Host_Files& instance() {
    static const Host_Files files;
    return files;
  }

  std::string root(Initiators initiators) const {
    switch (initiators) {
      case Initiators::iscsi:
        return directory_.path("iscsi");
      case Initiators::fibre_channel:
        return directory_.path("fibre_channel");
      case Initiators::none:
        return directory_.path("none");
      default:  // also for given initiators, so that a search would find others
        return directory_.path("both");
    }
  }

 private:
  Host_Files() {
    for (const std::string host : {"iscsi/", "both/"})
      write(host + "etc/iscsi", "/initiatorname.iscsi", "InitiatorName=iqn.found\n");
    for (const std::string host : {"fibre_channel/", "both/"}) {
      write(host + "sys/class/fc_host/host1", "/port_name", "0xf1\n");
      write(host + "sys/class/fc_host/host2", "/port_name", "0xf2\n");
    }
  }

  void write(const std::string& folder, const std::string& name, const std::string& text) {
    std::filesystem::create_directories(directory_.path(folder));
    directory_.write(folder + name, text);
  }

  Temp_Directory directory_;
};

/// This host, for the length of a call.
class Host {
 public:
  explicit Host(Initiators initiators) {
    set_host_root(Host_Files::instance().root(initiators));
    Host_ID::instance()->set("h1");
  }
  ~Host() {
    set_host_root("");
    Host_ID::instance()->set("");
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
};

void compare(const Call& call, const Endpoint& to, const Any_Answer& answer, const Judge& judge,
             bool client_logs) {
  const Judgement wanted = judge(answer.exchange_succeeds() ? &answer.value : nullptr);
  const Log_Capture log;
  const Outcome got = call(to);
  EXPECT_EQ(got.result, wanted.result);
  EXPECT_EQ(JSON_Dump(got.outputs, false).str(), JSON_Dump(wanted.outputs, false).str());
  const std::vector<Log_Line> lines = log.lines();
  const std::size_t of_client = client_logs && !answer.exchange_succeeds() ? 1 : 0;
  ASSERT_EQ(lines.size(), of_client + wanted.messages.size()) << log.all();
  for (std::size_t i = 0; i < wanted.messages.size(); ++i) {
    const std::string& text = lines[of_client + i].text;
    EXPECT_TRUE(line_matches(wanted.messages[i], text, 0))
        << "wanted: " << wanted.messages[i] << "\nlogged: " << text;
  }
}

}  // namespace

Call on_pool(std::function<Outcome(SCSI_Target_Manager&)> use, Initiators initiators) {
  return [use = std::move(use), initiators](const Endpoint& to) {
    const Host host(initiators);
    const std::vector<std::string> given = {"i1", "i2"};
    SCSI_Target_Manager pool(to.host, to.port, to.ssl, "key", "p1",
                             initiators == Initiators::given ? &given : nullptr);
    return use(pool);
  };
}

void judge_any_answer(const Call& call, const std::string& good_answer, const Judge& judge,
                      bool client_logs) {
  for_any_answer(good_answer, [&](const Endpoint& to, const Any_Answer& answer) {
    compare(call, to, answer, judge, client_logs);
  });
}

void judge_any_second_answer(const Call& call, const std::string& first,
                             const std::string& good_answer, const Judge& judge) {
  const Sleep_Recorder nothing_sleeps;
  for (const Any_Answer& answer : any_answers(good_answer)) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, answer.name);
    Scripted_Server server;
    server.queue(ok(first)).otherwise(answer.answer);
    compare(call, server.endpoint(), answer, judge, true);
  }
}

const Object* as_object(const Value* body) {
  return body != nullptr && body->type() == json_spirit::obj_type ? &body->get_obj() : nullptr;
}

const Array* as_array(const Value* body) {
  return body != nullptr && body->type() == json_spirit::array_type ? &body->get_array() : nullptr;
}

const Object* only_object(const Value* body) {
  const Array* const array = as_array(body);
  return array != nullptr && array->size() == 1 ? as_object(&array->front()) : nullptr;
}

TEST_P(Wire_Table, row_holds) {
  play();
}

}  // namespace zqpool::test
