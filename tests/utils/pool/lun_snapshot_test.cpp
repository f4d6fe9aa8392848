#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/utils/pool/manager_test.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;

const std::string path = "/zq/r/scsipool/snapshot";
const std::string export_path = "/zq/r/scsipool/snapshot/export";
const std::string info_target = path + "?pool_id=p1&snapshot_id=s1";

Call create_snapshot(bool recyclable) {
  return on_pool([=](SCSI_Target_Manager& pool) {
    std::string snapshot_id = "old";
    const bool ok = pool.create_snapshot("l1", snapshot_id, recyclable);
    return Outcome{ok, {{"snapshot_id", snapshot_id}}};
  });
}

Call share_snapshot(Initiators initiators, const char* type, const char* target) {
  return on_pool(
      [=](SCSI_Target_Manager& pool) {
        int lun = -7;
        const bool ok = pool.share_snapshot("s1", type, target, lun);
        return Outcome{ok, {{"lun", lun}}};
      },
      initiators);
}

Call unexport_snapshot(int lun) {
  return on_pool([=](SCSI_Target_Manager& pool) {
    return Outcome{pool.unexport_snapshot("s1", lun), {}};
  });
}

Call delete_snapshot(bool delete_empty_lun) {
  return on_pool([=](SCSI_Target_Manager& pool) {
    return Outcome{pool.delete_snapshot("s1", delete_empty_lun), {}};
  });
}

Call get_snapshot_info(int lun) {
  return on_pool([=](SCSI_Target_Manager& pool) {
    Object info = old_object();
    const bool ok = pool.get_snapshot_info("s1", info, lun);
    return Outcome{ok, {{"info", info}}};
  });
}

Call get_snapshot_serial_number(int lun) {
  return on_pool([=](SCSI_Target_Manager& pool) {
    std::string serial_number = "old";
    const bool ok = pool.get_snapshot_serial_number("s1", lun, serial_number);
    return Outcome{ok, {{"serial", serial_number}}};
  });
}

const std::string untouched_info = R"({"info":{"old":true}})";

std::vector<Wire_Row> create_rows() {
  const auto asked = [](const std::string& name, bool recyclable = false) {
    return Row(name, create_snapshot(recyclable))
        .sends("POST", path,
               std::string(R"({"lun_id":"l1","pool_id":"p1","recycle":)") +
                   (recyclable ? "true}" : "false}"));
  };
  const Expected_Line no_id = scsi_error("Failed to get snapshot id: {any}snapshot_id{any}\n");
  const std::string untouched = R"({"snapshot_id":"old"})";
  return {
      asked("recyclable", true)
          .gets(ok(R"({"snapshot_id":"s1","seq":1})"))
          .gives(true, R"({"snapshot_id":"s1"})"),
      asked("not_recyclable")
          .gets(ok(R"({"snapshot_id":""})"))
          .gives(true, R"({"snapshot_id":""})"),
      asked("identifier_is_needed").gets(ok("{}")).logs(no_id).gives(false, untouched),
      asked("identifier_that_is_a_number")
          .gets(ok(R"({"snapshot_id":7})"))
          .logs(no_id)
          .gives(false, untouched),
      asked("array_is_refused_silently").gets(ok("[]")).gives(false, untouched),
      asked("failed_call_with_a_good_body")
          .gets(json_answer(507, R"({"snapshot_id":"s1"})"))
          .logs(client_error("POST", path))
          .gives(false, untouched),
      asked("is_never_sent_twice")
          .gets(http_answer(503, ""))
          .logs(client_error("POST", path))
          .gives(false, untouched),
  };
}

std::vector<Wire_Row> share_rows() {
  const auto body = [](const std::string& acls, const std::string& way = "") {
    return R"({"acls":)" + acls + R"(,"pool_id":"p1","snapshot_id":"s1")" + way + "}";
  };
  const auto asked = [&](const std::string& name) {
    return Row(name, share_snapshot(Initiators::given, "FC", nullptr))
        .sends("POST", export_path, body(given_acls));
  };
  const Expected_Line no_number = scsi_error("Failed to share snapshot: {any}lun_num{any}\n");
  const std::string untouched = R"({"lun":-7})";
  return {
      Row("type_and_target_are_sent_together", share_snapshot(Initiators::given, "FC", "t1"))
          .sends("POST", export_path, body(given_acls, R"(,"target":"t1","type":"FC")"))
          .gets(ok(R"({"lun_num":5})"))
          .gives(true, R"({"lun":5})"),
      asked("type_alone_is_not_sent").gets(ok(R"({"lun_num":0})")).gives(true, R"({"lun":0})"),
      Row("target_alone_is_not_sent_and_the_pool_is_asked",
          share_snapshot(Initiators::both, nullptr, "t1"))
          .sends("GET", type_target)
          .sends("POST", export_path, body(iscsi_acls))
          .gets(ok(R"([{"type":"iSCSI"}])"))
          .gets(ok(R"({"lun_num":5})"))
          .gives(true, R"({"lun":5})"),
      Row("host_without_initiators_sends_nothing", share_snapshot(Initiators::none, "FC", "t1"))
          .logs(scsi_error("Failed to get initiator name.\n"))
          .gives(false, untouched),
      asked("number_is_needed").gets(ok("{}")).logs(no_number).gives(false, untouched),
      asked("number_that_is_a_real")
          .gets(ok(R"({"lun_num":5.0})"))
          .logs(no_number)
          .gives(false, untouched),
      asked("null_is_refused_silently").gets(ok("null")).gives(false, untouched),
      asked("refused")
          .gets(refusal())
          .logs(client_error("POST", export_path))
          .gives(false, untouched),
  };
}

std::vector<Wire_Row> unexport_rows() {
  const std::string target = export_path + "?pool_id=p1&snapshot_id=s1&lun_num=";
  return {
      Row("number_in_the_query", unexport_snapshot(12))
          .sends("DELETE", target + "12")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      Row("negative_number", unexport_snapshot(-2147483647))
          .sends("DELETE", target + "-2147483647")
          .gets(ok("[]"))
          .gives(true, "{}"),
      Row("refused_is_logged_by_the_client_alone", unexport_snapshot(1))
          .sends("DELETE", target + "1")
          .gets(refusal())
          .logs(client_error("DELETE", export_path))
          .gives(false, "{}"),
  };
}

std::vector<Wire_Row> delete_rows() {
  const std::string target = path + "?pool_id=p1&snapshot_id=s1&delete_empty_lun=";
  return {
      Row("empty_lun_too", delete_snapshot(true))
          .sends("DELETE", target + "true")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      Row("snapshot_alone", delete_snapshot(false))
          .sends("DELETE", target + "false")
          .gets(ok("{}"))
          .gives(true, "{}"),
      Row("refused_is_logged_by_the_client_alone", delete_snapshot(false))
          .sends("DELETE", target + "false")
          .gets(refusal())
          .logs(client_error("DELETE", path))
          .gives(false, "{}"),
  };
}

std::vector<Wire_Row> info_rows() {
  const auto answered = [](const std::string& name, int lun, Answer answer) {
    return Row(name, get_snapshot_info(lun)).sends("GET", info_target).gets(std::move(answer));
  };
  const Expected_Line failed = scsi_error("Failed to get snapshot 's1' info.\n");
  const std::string two = R"([{"lun_num":2},{"lun_num":5}])";
  const auto invalid = [&](const std::string& name, const std::string& answer) {
    return answered(name, 5, ok(answer))
        .logs(scsi_error("Invalid value " + answer + " of snapshot 's1'.\n"))
        .gives(false, untouched_info);
  };
  const auto foreign = [&](const std::string& name, const std::string& answer) {
    return answered(name, 5, ok(answer))
        .logs(no_object<SCSI_Target_Manager>())
        .gives(false, untouched_info);
  };
  return {
      answered("single_one_under_another_number", 5, ok(R"([{"lun_num":2}])"))
          .gives(true, R"({"info":{"lun_num":2}})"),
      answered("single_one_without_a_number", -1, ok("[{}]")).gives(true, R"({"info":{}})"),
      answered("number_selects_of_several", 5, ok(two)).gives(true, R"({"info":{"lun_num":5}})"),
      answered("first_of_several_under_the_number", 5,
               ok(R"([{"lun_num":5,"a":1},{"lun_num":5,"a":2}])"))
          .gives(true, R"({"info":{"a":1,"lun_num":5}})"),
      answered("number_that_none_has_is_silent", 7, ok(two)).gives(false, untouched_info),
      answered("no_snapshot_is_silent", 5, ok("[]")).gives(false, untouched_info),
      answered("minus_one_among_several", -1, ok(R"([{"lun_num":2},{"lun_num":-1}])"))
          .gives(true, R"({"info":{"lun_num":-1}})"),
      foreign("string_before_a_match", R"(["s1",{"lun_num":5}])"),
      foreign("string_alone", R"(["s1"])"),
      answered("string_behind_a_match_is_not_looked_at", 5, ok(R"([{"lun_num":5},"s1"])"))
          .gives(true, R"({"info":{"lun_num":5}})"),
      invalid("missing_number_before_a_match", R"([{},{"lun_num":5}])"),
      invalid("number_that_is_a_string", R"([{"lun_num":2},{"lun_num":"5"}])"),
      invalid("number_beyond_an_int", R"([{"lun_num":4294967301},{"lun_num":5}])"),
      answered("object", 5, ok(R"({"lun_num":5})")).logs(failed).gives(false, untouched_info),
      answered("failed_call_with_a_good_body", 5, json_answer(500, R"([{"lun_num":5}])"))
          .logs(client_error("GET", path))
          .logs(failed)
          .gives(false, untouched_info),
  };
}

std::vector<Wire_Row> serial_rows() {
  const auto answered = [](const std::string& name, const std::string& answer) {
    return Row(name, get_snapshot_serial_number(5)).sends("GET", info_target).gets(ok(answer));
  };
  const Expected_Line failed = scsi_error("Failed to get snapshot(s1) info.\n");
  const std::string untouched = R"({"serial":"old"})";
  return {
      answered("of_the_number",
               R"([{"lun_num":2,"vpd_serial_number":"n2"},{"lun_num":5,"vpd_serial_number":"n5"}])")
          .gives(true, R"({"serial":"n5"})"),
      answered("missing_is_silent", R"([{"lun_num":5}])").gives(false, untouched),
      answered("number_is_silent", R"([{"vpd_serial_number":5}])").gives(false, untouched),
      answered("none_under_the_number", "[]").logs(failed).gives(false, untouched),
      answered("no_array", "{}")
          .logs(scsi_error("Failed to get snapshot 's1' info.\n"))
          .logs(failed)
          .gives(false, untouched),
  };
}

INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_create_snapshot, Wire_Table,
                         testing::ValuesIn(plays(create_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_share_snapshot, Wire_Table,
                         testing::ValuesIn(plays(share_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_unexport_snapshot, Wire_Table,
                         testing::ValuesIn(plays(unexport_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_delete_snapshot, Wire_Table,
                         testing::ValuesIn(plays(delete_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_snapshot_info, Wire_Table,
                         testing::ValuesIn(plays(info_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_snapshot_serial_number, Wire_Table,
                         testing::ValuesIn(plays(serial_rows())), Wire_Table::name);

// --- Any answer --------------------------------------------------------------------------------

TEST(Lun_Snapshot_Any_Answer, create_snapshot) {
  judge_any_answer(create_snapshot(true), R"({"snapshot_id":"s1","seq":1})", [](const Value* body) {
    const Object* const answer = as_object(body);
    Judgement made;
    std::string id = "old";
    made.result = answer != nullptr && json_spirit::object_get(*answer, "snapshot_id", id);
    made.outputs["snapshot_id"] = id;
    if (answer != nullptr && !made.result) {
      made.messages = {"Failed to get snapshot id: {any}\n"};
    }
    return made;
  });
}

TEST(Lun_Snapshot_Any_Answer, share_snapshot) {
  judge_any_answer(
      share_snapshot(Initiators::given, "FC", "t1"), R"({"lun_num":3})", [](const Value* body) {
        const Object* const answer = as_object(body);
        Judgement made;
        int number = -7;
        made.result = answer != nullptr && json_spirit::object_get(*answer, "lun_num", number);
        made.outputs["lun"] = number;
        if (answer != nullptr && !made.result) {
          made.messages = {"Failed to share snapshot: {any}\n"};
        }
        return made;
      });
}

TEST(Lun_Snapshot_Any_Answer, withdrawals_succeed_exactly_when_the_exchange_does) {
  for (const Call& call : {unexport_snapshot(3), delete_snapshot(false)}) {
    judge_any_answer(call, "[]", [](const Value* body) {
      return Judgement{body != nullptr, {}, {}};
    });
  }
}

/// What is to be made of the descriptions of a snapshot where `lun` is wanted.
struct Described {
  const Object* found = nullptr;
  std::vector<std::string> messages;
};
Described described(const Value* body, int lun) {
  const Array* const all = as_array(body);
  if (all == nullptr) return {nullptr, {"Failed to get snapshot 's1' info.\n"}};
  if (only_object(body) != nullptr) return {only_object(body), {}};
  for (const Value& one : *all) {
    int number = 0;
    if (as_object(&one) == nullptr) {
      return {nullptr, {"Unexpected error in {place}, i is not object!\n"}};
    }
    if (!json_spirit::object_get(one.get_obj(), "lun_num", number)) {
      return {nullptr, {"Invalid value {any} of snapshot 's1'.\n"}};
    }
    if (number == lun) return {&one.get_obj(), {}};
  }
  return {};
}

const std::string good_info =
    R"([{"lun_num":2,"vpd_serial_number":"n2"},{"lun_num":5,"vpd_serial_number":"n5"}])";

TEST(Lun_Snapshot_Any_Answer, get_snapshot_info) {
  judge_any_answer(get_snapshot_info(5), good_info, [](const Value* body) {
    const Described is = described(body, 5);
    return Judgement{is.found != nullptr,
                     {{"info", is.found != nullptr ? *is.found : old_object()}},
                     is.messages};
  });
}

TEST(Lun_Snapshot_Any_Answer, get_snapshot_serial_number) {
  judge_any_answer(get_snapshot_serial_number(5), good_info, [](const Value* body) {
    Described is = described(body, 5);
    std::string serial = "old";
    const bool good =
        is.found != nullptr && json_spirit::object_get(*is.found, "vpd_serial_number", serial);
    if (is.found == nullptr) is.messages.emplace_back("Failed to get snapshot(s1) info.\n");
    return Judgement{good, {{"serial", serial}}, is.messages};
  });
}

}  // namespace
}  // namespace zqpool::test
