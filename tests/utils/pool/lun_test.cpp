#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/utils/pool/manager_test.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using Retention = SCSI_Target_Manager::Retention_Type;

const std::string lun_path = "/zq/r/scsipool/lun";
const std::string export_path = "/zq/r/scsipool/lun/export";
const std::string info_target = lun_path + "?pool_id=p1&lun_id=l1";

const Expected_Line no_initiator = scsi_error("Failed to get initiator name.\n");

struct New_Lun {
  ACE_UINT64 size = 10;
  int block_size = 0;
  bool to_export = true;
  bool with_acls = false;
  Retention type = SCSI_Target_Manager::TYPE_NORMAL;
  Initiators initiators = Initiators::given;
};

Call create_lun(const New_Lun& lun) {
  return on_pool(
      [lun](SCSI_Target_Manager& pool) {
        std::string lun_id = "old";
        int number = -7;
        const bool ok = pool.create_lun(lun.size, lun_id, number, lun.block_size, lun.to_export,
                                        lun.with_acls, lun.type);
        return Outcome{ok, {{"lun_id", lun_id}, {"lun", number}}};
      },
      lun.initiators);
}

Call create_lun_from(const std::string& snapshot_id, bool to_export) {
  return on_pool([=](SCSI_Target_Manager& pool) {
    std::string lun_id = "old";
    int number = -7;
    const bool ok = pool.create_lun(snapshot_id, lun_id, number, to_export);
    return Outcome{ok, {{"lun_id", lun_id}, {"lun", number}}};
  });
}

Call create_newest_lun(Initiators initiators) {
  return on_pool(
      [](SCSI_Target_Manager& pool) {
        std::string lun_id = "old";
        int number = -7;
        const bool ok = pool.create_newest_lun(1099511627776, lun_id, number);
        return Outcome{ok, {{"lun_id", lun_id}, {"lun", number}}};
      },
      initiators);
}

Call export_lun(Initiators initiators, const char* type, const char* target) {
  return on_pool(
      [=](SCSI_Target_Manager& pool) {
        int number = -7;
        const bool ok = pool.export_lun("l1", number, type, target);
        return Outcome{ok, {{"lun", number}}};
      },
      initiators);
}

Call unexport_lun(bool force) {
  return on_pool([=](SCSI_Target_Manager& pool) {
    return Outcome{pool.unexport_lun("l1", force), {}};
  });
}

Call rollback_lun(bool force) {
  return on_pool([=](SCSI_Target_Manager& pool) {
    return Outcome{pool.rollback_lun("l1", force), {}};
  });
}

Call delete_lun(bool force) {
  return on_pool([=](SCSI_Target_Manager& pool) {
    int status = -7;
    const bool ok = pool.delete_lun("l1", force, &status);
    return Outcome{ok, {{"status", status}}};
  });
}

Call get_scsi_pool_lun_info() {
  return on_pool([](SCSI_Target_Manager& pool) {
    Object info = old_object();
    const bool ok = pool.get_scsi_pool_lun_info("l1", info);
    return Outcome{ok, {{"info", info}}};
  });
}

Call list_scsi_pool_luns() {
  return on_pool([](SCSI_Target_Manager& pool) {
    Array luns = old_array();
    const bool ok = pool.list_scsi_pool_luns(luns);
    return Outcome{ok, {{"luns", luns}}};
  });
}

Call get_lun_num() {
  return on_pool([](SCSI_Target_Manager& pool) {
    int number = -7;
    const bool ok = pool.get_lun_num("l1", number);
    return Outcome{ok, {{"lun", number}}};
  });
}

Call get_serial_number(const std::string& lun_id) {
  return on_pool([=](SCSI_Target_Manager& pool) {
    std::string serial_number = "old";
    const bool ok = pool.get_serial_number(lun_id, serial_number);
    return Outcome{ok, {{"serial", serial_number}}};
  });
}

const std::string no_lun_written = R"({"lun":-7,"lun_id":"old"})";

std::vector<Wire_Row> create_rows() {
  const std::string body =
      R"({"export":true,"lun_size":10,"pool_id":"p1","retention_type":"normal"})";
  const auto answered = [&](const std::string& name, Answer answer) {
    return Row(name, create_lun({})).sends("POST", lun_path, body).gets(std::move(answer));
  };
  const auto good = ok(R"({"lun_id":"l1","lun_num":3,"more":1})");
  const std::string written = R"({"lun":3,"lun_id":"l1"})";

  New_Lun largest;
  largest.size = std::numeric_limits<ACE_UINT64>::max();
  largest.type = SCSI_Target_Manager::TYPE_NEWEST;
  New_Lun big_blocks;
  big_blocks.block_size = 4096;
  New_Lun negative_blocks;
  negative_blocks.block_size = -1;
  New_Lun unexported;
  unexported.to_export = false;
  const std::string unexported_body =
      R"({"export":false,"lun_size":10,"pool_id":"p1","retention_type":"normal"})";
  New_Lun reachable;
  reachable.with_acls = true;
  const std::string reachable_body =
      R"({"acls":)" + given_acls +
      R"(,"export":true,"lun_size":10,"pool_id":"p1","retention_type":"normal"})";
  New_Lun lonely = reachable;
  lonely.initiators = Initiators::none;
  const auto nameless = [](const std::string& name, int type) {
    New_Lun lun;
    lun.type = static_cast<Retention>(type);
    lun.with_acls = true;
    return Row(name, create_lun(lun))
        .logs(scsi_error("Invalid retention type " + std::to_string(type) + ".\n"))
        .gives(false, no_lun_written);
  };
  return {
      answered("number_and_identifier", good).gives(true, written),
      Row("largest_size_and_newest_retention", create_lun(largest))
          .sends("POST", lun_path,
                 R"({"export":true,"lun_size":18446744073709551615,"pool_id":"p1",)"
                 R"("retention_type":"newest"})")
          .gets(good)
          .gives(true, written),
      Row("positive_block_size_is_sent", create_lun(big_blocks))
          .sends("POST", lun_path,
                 R"({"block_size":4096,"export":true,"lun_size":10,"pool_id":"p1",)"
                 R"("retention_type":"normal"})")
          .gets(good)
          .gives(true, written),
      Row("negative_block_size_is_not_sent", create_lun(negative_blocks))
          .sends("POST", lun_path, body)
          .gets(good)
          .gives(true, written),
      Row("access_list_of_this_host", create_lun(reachable))
          .sends("GET", type_target)
          .sends("POST", lun_path, reachable_body)
          .gets(ok(R"([{"type":"FC"}])"))
          .gets(good)
          .gives(true, written),
      Row("host_without_initiators_sends_nothing", create_lun(lonely))
          .sends("GET", type_target)
          .gets(ok(R"([{"type":"iSCSI"}])"))
          .logs(no_initiator)
          .gives(false, no_lun_written),
      Row("host_without_initiators_sends_nothing_where_the_type_is_known",
          on_pool(
              [](SCSI_Target_Manager& pool) {
                pool.scsi_type_ = "iSCSI";
                std::string lun_id = "old";
                int number = -7;
                const bool made = pool.create_lun(10, lun_id, number, 0, true, true,
                                                  SCSI_Target_Manager::TYPE_NORMAL);
                return Outcome{made, {{"lun_id", lun_id}, {"lun", number}}};
              },
              Initiators::none))
          .logs(no_initiator)
          .gives(false, no_lun_written),
      Row("type_that_cannot_be_had_sends_nothing", create_lun(reachable))
          .sends("GET", type_target)
          .gets(ok("[{}]"))
          .logs(scsi_error("Failed to get scsi type for pool p1.\n"))
          .gives(false, no_lun_written),
      nameless("retention_none_is_refused", 0),
      nameless("foreign_retention_is_refused", 7),
      nameless("negative_retention_is_refused", -1),
      Row("unexported_needs_no_number", create_lun(unexported))
          .sends("POST", lun_path, unexported_body)
          .gets(ok(R"({"lun_id":"l1"})"))
          .gives(true, R"({"lun":-7,"lun_id":"l1"})"),
      Row("unexported_takes_a_number_that_is_there", create_lun(unexported))
          .sends("POST", lun_path, unexported_body)
          .gets(good)
          .gives(true, written),
      Row("unexported_ignores_a_number_of_another_type", create_lun(unexported))
          .sends("POST", lun_path, unexported_body)
          .gets(ok(R"({"lun_id":"l1","lun_num":"3"})"))
          .gives(true, R"({"lun":-7,"lun_id":"l1"})"),
      answered("exported_needs_a_number", ok(R"({"lun_id":"l1"})"))
          .logs(scsi_error("Failed to create lun in p1 :{any}lun_num{any}\n"))
          .gives(false, R"({"lun":-7,"lun_id":"l1"})"),
      answered("number_beyond_an_int", ok(R"({"lun_id":"l1","lun_num":2147483648})"))
          .logs(scsi_error("Failed to create lun in p1 :{any}lun_num{any}\n"))
          .gives(false, R"({"lun":-7,"lun_id":"l1"})"),
      answered("identifier_is_needed", ok(R"({"lun_num":3})"))
          .logs(scsi_error("Failed to create lun in p1 :{any}lun_id{any}\n"))
          .gives(false, no_lun_written),
      answered("identifier_that_is_no_string", ok(R"({"lun_id":1,"lun_num":3})"))
          .logs(scsi_error("Failed to create lun in p1 :{any}lun_id{any}\n"))
          .gives(false, no_lun_written),
      answered("array_is_refused_silently", ok(R"([{"lun_id":"l1","lun_num":3}])"))
          .gives(false, no_lun_written),
      answered("no_body_is_refused_silently", http_answer(204, "")).gives(false, no_lun_written),
      answered("failed_call_with_a_good_body", json_answer(507, R"({"lun_id":"l1","lun_num":3})"))
          .logs(client_error("POST", lun_path))
          .gives(false, no_lun_written),
      answered("is_never_sent_twice", http_answer(503, ""))
          .logs(client_error("POST", lun_path))
          .gives(false, no_lun_written),
  };
}

std::vector<Wire_Row> create_from_snapshot_rows() {
  const std::string body = R"({"export":true,"pool_id":"p1","snapshot_id":"s1"})";
  const auto answered = [&](const std::string& name, Answer answer) {
    return Row(name, create_lun_from("s1", true))
        .sends("POST", lun_path, body)
        .gets(std::move(answer));
  };
  const auto fails = [](const std::string& key) {
    return scsi_error("Failed to create lun in p1 based on snapshot s1: {any}" + key + "{any}\n");
  };
  return {
      answered("exported", ok(R"({"lun_id":"l1","lun_num":0})"))
          .gives(true, R"({"lun":0,"lun_id":"l1"})"),
      Row("unexported", create_lun_from("", false))
          .sends("POST", lun_path, R"({"export":false,"pool_id":"p1","snapshot_id":""})")
          .gets(ok(R"({"lun_id":"l1"})"))
          .gives(true, R"({"lun":-7,"lun_id":"l1"})"),
      answered("exported_needs_a_number", ok(R"({"lun_id":"l1"})"))
          .logs(fails("lun_num"))
          .gives(false, R"({"lun":-7,"lun_id":"l1"})"),
      answered("identifier_is_needed", ok("{}")).logs(fails("lun_id")).gives(false, no_lun_written),
      answered("string_is_refused_silently", ok("\"l1\"")).gives(false, no_lun_written),
      answered("refused", refusal())
          .logs(client_error("POST", lun_path))
          .gives(false, no_lun_written),
  };
}

std::vector<Wire_Row> create_newest_rows() {
  const std::string body =
      R"({"acls":)" + iscsi_acls +
      R"(,"export":true,"lun_size":1099511627776,"pool_id":"p1","retention_type":"newest"})";
  const auto asked = [&](const std::string& name, Answer answer) {
    return Row(name, create_newest_lun(Initiators::iscsi))
        .sends("GET", type_target)
        .sends("POST", lun_path, body)
        .gets(ok(R"([{"type":"iSCSI"}])"))
        .gets(std::move(answer));
  };
  return {
      asked("exported_to_this_host", ok(R"({"lun_id":"l1","lun_num":3})"))
          .gives(true, R"({"lun":3,"lun_id":"l1"})"),
      asked("needs_a_number", ok(R"({"lun_id":"l1"})"))
          .logs(scsi_error("Failed to create lun in p1 :{any}lun_num{any}\n"))
          .gives(false, R"({"lun":-7,"lun_id":"l1"})"),
      Row("host_without_initiators_sends_nothing", create_newest_lun(Initiators::none))
          .sends("GET", type_target)
          .gets(ok(R"([{"type":"iSCSI"}])"))
          .logs(no_initiator)
          .gives(false, no_lun_written),
  };
}

std::vector<Wire_Row> export_rows() {
  const std::string untouched = R"({"lun":-7})";
  const std::string plain = R"({"acls":)" + given_acls + R"(,"lun_id":"l1","pool_id":"p1"})";
  const auto answered = [&](const std::string& name, Answer answer) {
    return Row(name, export_lun(Initiators::given, "FC", nullptr))
        .sends("POST", export_path, plain)
        .gets(std::move(answer));
  };
  const auto fails = scsi_error("Failed to export lun(id=l1) in pool(id=p1): {any}lun_num{any}\n");
  return {
      Row("type_and_target_are_sent_together", export_lun(Initiators::given, "FC", "t1"))
          .sends("POST", export_path,
                 R"({"acls":)" + given_acls +
                     R"(,"lun_id":"l1","pool_id":"p1","target":"t1","type":"FC"})")
          .gets(ok(R"({"lun_num":5})"))
          .gives(true, R"({"lun":5})"),
      Row("empty_type_and_target_are_sent", export_lun(Initiators::given, "", ""))
          .sends("POST", export_path,
                 R"({"acls":)" + given_acls +
                     R"(,"lun_id":"l1","pool_id":"p1","target":"","type":""})")
          .gets(ok(R"({"lun_num":5})"))
          .gives(true, R"({"lun":5})"),
      // Without the transport the pool would be asked for it.
      Row("type_alone_is_not_sent_but_chooses_the_initiators",
          export_lun(Initiators::both, "iscsi", nullptr))
          .sends("POST", export_path,
                 R"({"acls":)" + iscsi_acls + R"(,"lun_id":"l1","pool_id":"p1"})")
          .gets(ok(R"({"lun_num":5})"))
          .gives(true, R"({"lun":5})"),
      Row("target_alone_is_not_sent_and_the_pool_is_asked",
          export_lun(Initiators::both, nullptr, "t1"))
          .sends("GET", type_target)
          .sends("POST", export_path,
                 R"({"acls":)" + fibre_channel_acls + R"(,"lun_id":"l1","pool_id":"p1"})")
          .gets(ok(R"([{"type":"FC"}])"))
          .gets(ok(R"({"lun_num":5})"))
          .gives(true, R"({"lun":5})"),
      Row("host_without_initiators_sends_nothing", export_lun(Initiators::none, "iSCSI", "t1"))
          .logs(no_initiator)
          .gives(false, untouched),
      answered("number_is_needed", ok("{}")).logs(fails).gives(false, untouched),
      answered("number_that_is_a_string", ok(R"({"lun_num":"5"})"))
          .logs(fails)
          .gives(false, untouched),
      answered("array_is_refused_silently", ok("[5]")).gives(false, untouched),
      answered("failed_call_with_a_good_body", json_answer(409, R"({"lun_num":5})"))
          .logs(client_error("POST", export_path))
          .gives(false, untouched),
  };
}

std::vector<Wire_Row> unexport_rows() {
  const std::string target = export_path + "?pool_id=p1&lun_id=l1&force=";
  return {
      Row("forced", unexport_lun(true))
          .sends("DELETE", target + "true")
          .gets(ok("[]"))
          .gives(true, "{}"),
      Row("not_forced", unexport_lun(false))
          .sends("DELETE", target + "false")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      Row("refused_is_logged_by_the_client_alone", unexport_lun(false))
          .sends("DELETE", target + "false")
          .gets(refusal())
          .logs(client_error("DELETE", export_path))
          .gives(false, "{}"),
  };
}

std::vector<Wire_Row> rollback_rows() {
  const auto asked = [](const std::string& name, bool force) {
    return Row(name, rollback_lun(force))
        .sends("PUT", lun_path,
               std::string(R"({"force":)") + (force ? "true" : "false") +
                   R"(,"lun_id":"l1","pool_id":"p1"})");
  };
  return {
      asked("forced", true).gets(ok("{}")).gives(true, "{}"),
      asked("not_forced", false).gets(ok(R"({"lun_id":"l1"})")).gives(true, "{}"),
      asked("array_is_refused_silently", false).gets(ok("[]")).gives(false, "{}"),
      asked("no_body_is_refused_silently", false).gets(http_answer(204, "")).gives(false, "{}"),
      asked("refused_with_an_object", false)
          .gets(refusal())
          .logs(client_error("PUT", lun_path))
          .gives(false, "{}"),
      asked("is_never_sent_twice", false)
          .gets(close_after_request())
          .logs(client_error("PUT", lun_path))
          .gives(false, "{}"),
  };
}

std::vector<Wire_Row> delete_rows() {
  const std::string target = lun_path + "?pool_id=p1&lun_id=l1&force=";
  return {
      Row("forced", delete_lun(true))
          .sends("DELETE", target + "true")
          .gets(ok("{}"))
          .gives(true, R"({"status":200})"),
      Row("not_forced", delete_lun(false))
          .sends("DELETE", target + "false")
          .gets(http_answer(204, ""))
          .gives(true, R"({"status":204})"),
      Row("status_of_a_refusal", delete_lun(false))
          .sends("DELETE", target + "false")
          .gets(json_answer(409, "{}"))
          .logs(client_error("DELETE", lun_path))
          .gives(false, R"({"status":409})"),
      Row("status_without_an_answer", delete_lun(false))
          .sends("DELETE", target + "false")
          .gets(close_after_request())
          .logs(client_error("DELETE", lun_path))
          .gives(false, R"({"status":0})"),
      Row("null_status", on_pool([](SCSI_Target_Manager& pool) {
            return Outcome{pool.delete_lun("l1", true, nullptr), {}};
          }))
          .sends("DELETE", target + "true")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
  };
}

const Expected_Line no_info = scsi_error("Failed to get lun 'l1' info.\n");
const Expected_Line no_lun = scsi_error("Failed to get lun(l1) info.\n");

std::vector<Wire_Row> info_rows() {
  const std::string untouched = R"({"info":{"old":true}})";
  const auto answered = [](const std::string& name, Answer answer) {
    return Row(name, get_scsi_pool_lun_info()).sends("GET", info_target).gets(std::move(answer));
  };
  const auto invalid = [&](const std::string& name, const std::string& answer) {
    return answered(name, ok(answer))
        .logs(scsi_error("Invalid value " + answer + " of lun 'l1'.\n"))
        .gives(false, untouched);
  };
  return {
      answered("only_object_is_the_lun", ok(R"([{"lun_num":3}])"))
          .gives(true, R"({"info":{"lun_num":3}})"),
      invalid("two_luns", R"([{"lun_num":3},{"lun_num":4}])"),
      invalid("no_lun", "[]"),
      invalid("number_in_the_array", "[5]"),
      answered("object", ok(R"({"lun_num":3})")).logs(no_info).gives(false, untouched),
      answered("no_body", http_answer(204, "")).logs(no_info).gives(false, untouched),
      answered("refused", refusal())
          .logs(client_error("GET", lun_path))
          .logs(no_info)
          .gives(false, untouched),
      answered("client_repeats_by_itself", http_answer(503, ""))
          .again(1)
          .gets(ok("[{}]"))
          .pauses(1)
          .gives(true, R"({"info":{}})"),
  };
}

std::vector<Wire_Row> list_rows() {
  const auto answered = [](const std::string& name, Answer answer) {
    return Row(name, list_scsi_pool_luns())
        .sends("GET", lun_path + "?pool_id=p1")
        .gets(std::move(answer));
  };
  const Expected_Line failed = scsi_error("Failed to get luns.\n");
  const std::string untouched = R"({"luns":["old"]})";
  return {
      answered("elements_are_not_checked", ok(R"([{"lun_id":"l1"},5,null])"))
          .gives(true, R"({"luns":[{"lun_id":"l1"},5,null]})"),
      answered("no_lun_at_all", ok("[]")).gives(true, R"({"luns":[]})"),
      answered("object", ok("{}")).logs(failed).gives(false, untouched),
      answered("failed_call_with_a_good_body", json_answer(500, "[]"))
          .logs(client_error("GET", lun_path))
          .logs(failed)
          .gives(false, untouched),
  };
}

std::vector<Wire_Row> number_rows() {
  const auto answered = [](const std::string& name, const std::string& answer) {
    return Row(name, get_lun_num()).sends("GET", info_target).gets(ok(answer));
  };
  const auto unreadable = [&](const std::string& name, const std::string& answer,
                              const std::string& found) {
    return answered(name, answer)
        .logs(scsi_error("Failed to get lun(l1) info: {any}" + found + "{any}.\n"))
        .gives(false, R"({"lun":-7})");
  };
  return {
      answered("number", R"([{"lun_num":0}])").gives(true, R"({"lun":0})"),
      unreadable("missing", "[{}]", "null"),
      unreadable("null", R"([{"lun_num":null}])", "null"),
      unreadable("string", R"([{"lun_num":"3"}])", "string"),
      unreadable("beyond_an_int", R"([{"lun_num":2147483648}])", ""),
      answered("no_lun", "[]")
          .logs(scsi_error("Invalid value [] of lun 'l1'.\n"))
          .logs(no_lun)
          .gives(false, R"({"lun":-7})"),
  };
}

std::vector<Wire_Row> serial_rows() {
  const auto answered = [](const std::string& name, const std::string& answer) {
    return Row(name, get_serial_number("l1")).sends("GET", info_target).gets(ok(answer));
  };
  const std::string untouched = R"({"serial":"old"})";
  return {
      answered("serial_number", R"([{"vpd_serial_number":"n1"}])")
          .gives(true, R"({"serial":"n1"})"),
      answered("missing_is_silent", "[{}]").gives(false, untouched),
      answered("number_is_silent", R"([{"vpd_serial_number":5}])").gives(false, untouched),
      Row("empty_identifier_asks_nothing_and_is_silent", get_serial_number(""))
          .gives(false, untouched),
      answered("no_lun", "[]")
          .logs(scsi_error("Invalid value [] of lun 'l1'.\n"))
          .logs(no_lun)
          .gives(false, untouched),
  };
}

INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_create_lun_from_size, Wire_Table,
                         testing::ValuesIn(plays(create_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_create_lun_from_snapshot, Wire_Table,
                         testing::ValuesIn(plays(create_from_snapshot_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_create_newest_lun, Wire_Table,
                         testing::ValuesIn(plays(create_newest_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_export_lun, Wire_Table,
                         testing::ValuesIn(plays(export_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_unexport_lun, Wire_Table,
                         testing::ValuesIn(plays(unexport_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_rollback_lun, Wire_Table,
                         testing::ValuesIn(plays(rollback_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_delete_lun, Wire_Table,
                         testing::ValuesIn(plays(delete_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_scsi_pool_lun_info, Wire_Table,
                         testing::ValuesIn(plays(info_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_list_scsi_pool_luns, Wire_Table,
                         testing::ValuesIn(plays(list_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_lun_num, Wire_Table,
                         testing::ValuesIn(plays(number_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_serial_number, Wire_Table,
                         testing::ValuesIn(plays(serial_rows())), Wire_Table::name);

// --- Any answer --------------------------------------------------------------------------------

/// What a creation makes of an answer, when it says `failure` of a bad object.
Judge creation(const std::string& failure) {
  return [failure](const Value* body) {
    const Object* const lun = as_object(body);
    std::string lun_id = "old";
    int number = -7;
    const bool good = lun != nullptr && json_spirit::object_get(*lun, "lun_id", lun_id) &&
                      json_spirit::object_get(*lun, "lun_num", number);
    const bool says_why = lun != nullptr && !good;
    return Judgement{good,
                     {{"lun_id", lun_id}, {"lun", number}},
                     says_why ? std::vector<std::string>{failure} : std::vector<std::string>{}};
  };
}

const std::string good_creation = R"({"lun_id":"l1","lun_num":3,"more":{"a":[null]}})";

TEST(Lun_Any_Answer, creations) {
  judge_any_answer(create_lun({}), good_creation, creation("Failed to create lun in p1 :{any}\n"));
  judge_any_answer(create_lun_from("s1", true), good_creation,
                   creation("Failed to create lun in p1 based on snapshot s1: {any}\n"));
  judge_any_second_answer(create_newest_lun(Initiators::iscsi), R"([{"type":"iSCSI"}])",
                          good_creation, creation("Failed to create lun in p1 :{any}\n"));
}

TEST(Lun_Any_Answer, export_lun) {
  judge_any_answer(export_lun(Initiators::given, "FC", "t1"), R"({"lun_num":3,"more":[1]})",
                   [](const Value* body) {
                     const Object* const answer = as_object(body);
                     Judgement made;
                     int number = -7;
                     made.result =
                         answer != nullptr && json_spirit::object_get(*answer, "lun_num", number);
                     made.outputs["lun"] = number;
                     if (answer != nullptr && !made.result) {
                       made.messages = {"Failed to export lun(id=l1) in pool(id=p1): {any}\n"};
                     }
                     return made;
                   });
}

TEST(Lun_Any_Answer, withdrawals_succeed_exactly_when_the_exchange_does) {
  judge_any_answer(unexport_lun(false), "{}", [](const Value* body) {
    return Judgement{body != nullptr, {}, {}};
  });
  const Call no_status = on_pool([](SCSI_Target_Manager& pool) {
    return Outcome{pool.delete_lun("l1", false, nullptr), {}};
  });
  judge_any_answer(no_status, "{}", [](const Value* body) {
    return Judgement{body != nullptr, {}, {}};
  });
}

TEST(Lun_Any_Answer, rollback_takes_any_object_and_nothing_else) {
  judge_any_answer(rollback_lun(false), R"({"lun_id":"l1"})", [](const Value* body) {
    return Judgement{as_object(body) != nullptr, {}, {}};
  });
}

std::vector<std::string> info_messages(const Value* body) {
  if (as_array(body) == nullptr) return {"Failed to get lun 'l1' info.\n"};
  if (only_object(body) == nullptr) return {"Invalid value {any} of lun 'l1'.\n"};
  return {};
}

const std::string good_info =
    R"([{"lun_id":"l1","lun_num":3,"vpd_serial_number":"n1","size":18446744073709551615}])";

TEST(Lun_Any_Answer, get_scsi_pool_lun_info) {
  judge_any_answer(get_scsi_pool_lun_info(), good_info, [](const Value* body) {
    const Object* const lun = only_object(body);
    return Judgement{
        lun != nullptr, {{"info", lun != nullptr ? *lun : old_object()}}, info_messages(body)};
  });
}

TEST(Lun_Any_Answer, get_lun_num) {
  judge_any_answer(get_lun_num(), good_info, [](const Value* body) {
    const Object* const lun = only_object(body);
    int number = -7;
    const bool good = lun != nullptr && json_spirit::object_get(*lun, "lun_num", number);
    std::vector<std::string> messages = info_messages(body);
    if (!good) {
      messages.emplace_back(lun == nullptr ? "Failed to get lun(l1) info.\n"
                                           : "Failed to get lun(l1) info: {any}.\n");
    }
    return Judgement{good, {{"lun", number}}, messages};
  });
}

TEST(Lun_Any_Answer, get_serial_number) {
  judge_any_answer(get_serial_number("l1"), good_info, [](const Value* body) {
    const Object* const lun = only_object(body);
    std::string serial = "old";
    const bool good = lun != nullptr && json_spirit::object_get(*lun, "vpd_serial_number", serial);
    std::vector<std::string> messages = info_messages(body);
    if (lun == nullptr) messages.emplace_back("Failed to get lun(l1) info.\n");
    return Judgement{good, {{"serial", serial}}, messages};
  });
}

TEST(Lun_Any_Answer, list_scsi_pool_luns) {
  judge_any_answer(list_scsi_pool_luns(), R"([{"lun_id":"l1"},{"lun_id":"l2"}])",
                   [](const Value* body) {
                     const Array* const luns = as_array(body);
                     Judgement made;
                     made.result = luns != nullptr;
                     made.outputs["luns"] = luns != nullptr ? *luns : old_array();
                     if (luns == nullptr) made.messages = {"Failed to get luns.\n"};
                     return made;
                   });
}

}  // namespace
}  // namespace zqpool::test
