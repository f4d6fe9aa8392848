#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/guards.h"
#include "tests/utils/pool/manager_test.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;

using Scsi = SCSI_Target_Manager;
using Image = Image_Pool_Manager;

const std::string fs_path = "/zq/r/scsipool/fs";
const std::string mount_path = "/zq/r/scsipool/fs/mount";
const std::string snapshot_path = "/zq/r/scsipool/fs/snapshot";

// --- The operations, whatever their manager calls them -----------------------------------------

/// Null for nullptr, which a std::string cannot hold.
struct Text {
  Text(const char* text) : given(text != nullptr), value(given ? text : "") {}
  const std::string* pointer() const { return given ? &value : nullptr; }
  bool given;
  std::string value;
};

template <typename Manager>
Call create(const std::string& name, const Text& snapshot_id, const Text& mount_point) {
  return [=](const Endpoint& to) {
    return Outcome{make_manager<Manager>(to).create_filesystem(name, snapshot_id.pointer(),
                                                               mount_point.pointer()),
                   {}};
  };
}

template <typename Manager>
Call destroy(const std::string& name) {
  return [=](const Endpoint& to) {
    int status = -7;
    const bool result = make_manager<Manager>(to).delete_filesystem(name, &status);
    return Outcome{result, {{"status", status}}};
  };
}

template <typename Manager>
Call rollback() {
  return [](const Endpoint& to) {
    return Outcome{make_manager<Manager>(to).rollback_filesystem("f1"), {}};
  };
}

bool list_info(const Scsi& pool, const std::string& name, Object& info, int* status,
               bool logging_error = true) {
  return pool.list_filesystem_info(name, info, logging_error, status);
}
bool list_info(const Image& pool, const std::string& name, Object& info, int* status) {
  return pool.list_filesystem_info(name, info, status);
}

template <typename Manager>
Call describe(const std::string& name = "f1") {
  return [=](const Endpoint& to) {
    Object info = old_object();
    int status = -7;
    const bool result = list_info(make_manager<Manager>(to), name, info, &status);
    return Outcome{result, {{"info", info}, {"status", status}}};
  };
}

Outcome describe_quietly(const Endpoint& to) {
  Object info = old_object();
  int status = -7;
  const bool result = list_info(make_manager<Scsi>(to), "f1", info, &status, false);
  return {result, {{"info", info}, {"status", status}}};
}

template <typename Manager>
Call mount() {
  return [](const Endpoint& to) {
    std::string mount_point = "old";
    const bool result = make_manager<Manager>(to).mount_filesystem("f1", mount_point);
    return Outcome{result, {{"mount_point", mount_point}}};
  };
}

template <typename Manager>
Call list_mounted(const Text& name) {
  return [=](const Endpoint& to) {
    Array info = old_array();
    const bool result = make_manager<Manager>(to).list_mounted_filesystem(info, name.pointer());
    return Outcome{result, {{"info", info}}};
  };
}

/// The outputs say what left the call, if something did.
template <typename Manager>
Call update_mountpoint() {
  return [](const Endpoint& to) {
    std::string mount_point = "old";
    Outcome got;
    try {
      got.result =
          make_manager<Manager>(to).update_filesystem_mountpoint("f1", "/srv/new", mount_point);
    } catch (const std::runtime_error&) {
      got.outputs["threw"] = "std::runtime_error";
    }
    got.outputs["mount_point"] = mount_point;
    return got;
  };
}

template <typename Manager>
Call umount(const std::string& name) {
  return [=](const Endpoint& to) {
    return Outcome{make_manager<Manager>(to).umount_filesystem(name), {}};
  };
}

bool take_snapshot(const Scsi& pool, const std::string& name, std::string& id, bool recyclable) {
  return pool.create_filesystem_snapshot(name, id, recyclable);
}
bool take_snapshot(const Image& pool, const std::string& name, std::string& id, bool recyclable) {
  return pool.create_snapshot(name, id, recyclable);
}

template <typename Manager>
Call create_snapshot(bool recyclable) {
  return [=](const Endpoint& to) {
    std::string id = "old";
    const bool result = take_snapshot(make_manager<Manager>(to), "f1", id, recyclable);
    return Outcome{result, {{"id", id}}};
  };
}

bool remove_snapshot(const Scsi& pool, bool delete_empty_fs) {
  return pool.delete_filesystem_snapshot("s1", delete_empty_fs);
}
bool remove_snapshot(const Image& pool, bool delete_empty_fs) {
  return pool.delete_snapshot("s1", delete_empty_fs);
}

template <typename Manager>
Call delete_snapshot(bool delete_empty_fs) {
  return [=](const Endpoint& to) {
    return Outcome{remove_snapshot(make_manager<Manager>(to), delete_empty_fs), {}};
  };
}

bool get_info(const Scsi& pool, Object& info) {
  return pool.get_filesystem_snapshot_info("s1", info);
}
bool get_info(const Image& pool, Object& info) {
  return pool.get_snapshot_info("s1", info);
}

template <typename Manager>
Call describe_snapshot() {
  return [](const Endpoint& to) {
    Object info = old_object();
    const bool result = get_info(make_manager<Manager>(to), info);
    return Outcome{result, {{"info", info}}};
  };
}

// --- Their rows --------------------------------------------------------------------------------

template <typename Manager>
std::vector<Wire_Row> create_rows() {
  const auto row = [](const std::string& name, const Text& snapshot_id, const Text& mount_point,
                      const std::string& body) {
    return Row(name, create<Manager>("f1", snapshot_id, mount_point))
        .sends("POST", fs_path, body)
        .gets(ok(R"(["ignored"])"))
        .gives(true, "{}");
  };
  const std::string plain = R"({"name":"f1","pool_id":"p1"})";
  const bool sends_empty = std::is_same_v<Manager, Image>;
  return {
      row("empty_filesystem", nullptr, nullptr, plain),
      row("from_a_snapshot_and_mounted", "s1", "/srv/f1",
          R"({"mount_point":"/srv/f1","name":"f1","pool_id":"p1","snapshot_id":"s1"})"),
      row("empty_snapshot", "", nullptr,
          sends_empty ? R"({"name":"f1","pool_id":"p1","snapshot_id":""})" : plain),
      row("empty_mount_point", nullptr, "",
          sends_empty ? R"({"mount_point":"","name":"f1","pool_id":"p1"})" : plain),
      Row("any_name_goes_into_the_body", create<Manager>("a&b=\"\xc3\xa9", nullptr, nullptr))
          .sends("POST", fs_path, "{\"name\":\"a&b=\\\"\xc3\xa9\",\"pool_id\":\"p1\"}")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      Row("refused_is_logged_by_the_client_alone", create<Manager>("f1", nullptr, nullptr))
          .sends("POST", fs_path, plain)
          .gets(refusal())
          .logs(client_error("POST", fs_path))
          .gives(false, "{}"),
      Row("is_never_sent_twice", create<Manager>("f1", nullptr, nullptr))
          .sends("POST", fs_path, plain)
          .gets(http_answer(503, ""))
          .logs(client_error("POST", fs_path))
          .gives(false, "{}"),
  };
}

template <typename Manager>
std::vector<Wire_Row> delete_rows() {
  const auto row = [](const std::string& name, const std::string& fs, const std::string& query) {
    return Row(name, destroy<Manager>(fs)).sends("DELETE", fs_path + "?pool_id=p1&name=" + query);
  };
  return {
      row("status_of_success", "f1", "f1")
          .gets(http_answer(204, ""))
          .gives(true, R"({"status":204})"),
      row("name_goes_out_as_it_stands", "a&b=c/d%20\xc3\xa9 ", "a&b=c/d%20%C3%A9%20")
          .gets(ok("{}"))
          .gives(true, R"({"status":200})"),
      row("long_name", std::string(5000, 'n'), std::string(5000, 'n'))
          .gets(ok("{}"))
          .gives(true, R"({"status":200})"),
      row("status_of_a_refusal_which_the_client_alone_logs", "f1", "f1")
          .gets(json_answer(409, "{}"))
          .logs(client_error("DELETE", fs_path))
          .gives(false, R"({"status":409})"),
      row("status_without_an_answer", "f1", "f1")
          .gets(close_after_request())
          .logs(client_error("DELETE", fs_path))
          .gives(false, R"({"status":0})"),
      Row("null_status",
          [](const Endpoint& to) {
            return Outcome{make_manager<Manager>(to).delete_filesystem("f1", nullptr), {}};
          })
          .sends("DELETE", fs_path + "?pool_id=p1&name=f1")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
  };
}

template <typename Manager>
std::vector<Wire_Row> rollback_rows() {
  const auto asked = [](const std::string& name) {
    return Row(name, rollback<Manager>()).sends("PUT", fs_path, R"({"name":"f1","pool_id":"p1"})");
  };
  return {
      asked("without_a_body").gets(http_answer(204, "")).gives(true, "{}"),
      asked("any_answer_will_do").gets(ok("[5]")).gives(true, "{}"),
      asked("refused_is_logged_by_the_client_alone")
          .gets(refusal())
          .logs(client_error("PUT", fs_path))
          .gives(false, "{}"),
  };
}

template <typename Manager>
std::vector<Wire_Row> info_rows() {
  const std::string target = fs_path + "?pool_id=p1&name=f1";
  const auto answered = [&](const std::string& name, Answer answer) {
    return Row(name, describe<Manager>()).sends("GET", target).gets(std::move(answer));
  };
  const auto untouched = [](const std::string& status) {
    return R"({"info":{"old":true},"status":)" + status + "}";
  };
  const auto invalid = [&](const std::string& name, const std::string& answer) {
    return answered(name, ok(answer))
        .logs(error_of<Manager>("Invalid response " + answer + " of filesystem 'f1'.\n"))
        .gives(false, untouched("-7"));
  };
  return {
      answered("only_object_is_the_filesystem_and_no_status_is_stored", ok(R"([{"size":5}])"))
          .gives(true, R"({"info":{"size":5},"status":-7})"),
      Row("name_goes_out_as_it_stands", describe<Manager>("a&b=c"))
          .sends("GET", fs_path + "?pool_id=p1&name=a&b=c")
          .gets(ok("[{}]"))
          .gives(true, R"({"info":{},"status":-7})"),
      answered("no_filesystem_is_silent", ok("[]")).gives(false, untouched("200")),
      answered("two_filesystems_are_silent", ok("[{},{}]")).gives(false, untouched("200")),
      answered("object_is_silent", ok("{}")).gives(false, untouched("200")),
      answered("no_body_is_silent", http_answer(204, "")).gives(false, untouched("204")),
      invalid("number", "[5]"),
      invalid("array", "[[{}]]"),
      answered("refused_is_logged_by_the_client_alone", refusal())
          .logs(client_error("GET", fs_path))
          .gives(false, untouched("404")),
      answered("failed_call_with_a_good_body", json_answer(500, "[{}]"))
          .logs(client_error("GET", fs_path))
          .gives(false, untouched("500")),
      Row("null_status",
          [](const Endpoint& to) {
            Object info = old_object();
            const bool result = list_info(make_manager<Manager>(to), "f1", info, nullptr);
            return Outcome{result, {{"info", info}}};
          })
          .sends("GET", target)
          .gets(ok("[]"))
          .gives(false, R"({"info":{"old":true}})"),
  };
}

std::vector<Wire_Row> quiet_info_rows() {
  const std::string target = fs_path + "?pool_id=p1&name=f1";
  return {
      Row("refused", describe_quietly)
          .sends("GET", target)
          .gets(refusal())
          .gives(false, R"({"info":{"old":true},"status":404})"),
      Row("no_answer", describe_quietly)
          .sends("GET", target)
          .again(2)
          .gets(close_after_request())
          .gets(close_after_request())
          .gets(close_after_request())
          .pauses(2)
          .gives(false, R"({"info":{"old":true},"status":0})"),
      Row("number_is_logged_all_the_same", describe_quietly)
          .sends("GET", target)
          .gets(ok("[5]"))
          .logs(scsi_error("Invalid response [5] of filesystem 'f1'.\n"))
          .gives(false, R"({"info":{"old":true},"status":-7})"),
  };
}

template <typename Manager>
std::vector<Wire_Row> mount_rows() {
  const auto asked = [](const std::string& name, Answer answer) {
    return Row(name, mount<Manager>())
        .sends("POST", mount_path, R"({"name":"f1","pool_id":"p1"})")
        .gets(std::move(answer));
  };
  const std::string untouched = R"({"mount_point":"old"})";
  const Expected_Line failed = error_of<Manager>("Failed to mount filesystem f1.\n");
  return {
      asked("where", ok(R"({"mountpoint":"/srv/f1"})")).gives(true, R"({"mount_point":"/srv/f1"})"),
      asked("empty_object_is_silent", ok("{}")).gives(false, untouched),
      asked("key_of_the_request_is_not_that_of_the_answer", ok(R"({"mount_point":"/srv/f1"})"))
          .gives(false, untouched),
      asked("number_is_silent", ok(R"({"mountpoint":5})")).gives(false, untouched),
      asked("string", ok("\"/srv/f1\"")).logs(failed).gives(false, untouched),
      asked("no_body", http_answer(204, "")).logs(failed).gives(false, untouched),
      asked("failed_call_with_a_good_body", json_answer(409, R"({"mountpoint":"/srv/f1"})"))
          .logs(client_error("POST", mount_path))
          .logs(failed)
          .gives(false, untouched),
  };
}

template <typename Manager>
std::vector<Wire_Row> list_mounted_rows() {
  const auto row = [](const std::string& name, const Text& fs, const std::string& query,
                      Answer answer) {
    return Row(name, list_mounted<Manager>(fs))
        .sends("GET", mount_path + "?pool_id=p1" + query)
        .gets(std::move(answer));
  };
  const std::string untouched = R"({"info":["old"]})";
  const Expected_Line failed = error_of<Manager>("Failed to get filesystem mount info.\n");
  return {
      row("all_and_unchecked", nullptr, "", ok(R"([{"name":"f1"},5])"))
          .gives(true, R"({"info":[{"name":"f1"},5]})"),
      row("empty_name_is_all", "", "", ok("[]")).gives(true, R"({"info":[]})"),
      row("one_name_as_it_stands", "a&b=c", "&name=a&b=c", ok("[]")).gives(true, R"({"info":[]})"),
      row("object", nullptr, "", ok("{}")).logs(failed).gives(false, untouched),
      row("failed_call_with_a_good_body", nullptr, "", json_answer(500, "[]"))
          .logs(client_error("GET", mount_path))
          .logs(failed)
          .gives(false, untouched),
  };
}

template <typename Manager>
std::vector<Wire_Row> update_rows() {
  const auto asked = [](const std::string& name, Answer answer) {
    return Row(name, update_mountpoint<Manager>())
        .sends("PUT", mount_path, R"({"mount_point":"/srv/new","name":"f1","pool_id":"p1"})")
        .gets(std::move(answer));
  };
  const std::string untouched = R"({"mount_point":"old"})";
  const Expected_Line failed = error_of<Manager>("Failed to update filesystem f1 mountpoint.\n");
  return {
      asked("string_is_taken_for_an_object_and_throws", ok("\"/srv/new\""))
          .gives(false, R"({"mount_point":"old","threw":"std::runtime_error"})"),
      asked("object_is_refused", ok(R"({"mountpoint":"/srv/new"})"))
          .logs(failed)
          .gives(false, untouched),
      asked("no_body", http_answer(204, "")).logs(failed).gives(false, untouched),
      asked("failed_call_with_a_string", json_answer(500, "\"/srv/new\""))
          .logs(client_error("PUT", mount_path))
          .logs(failed)
          .gives(false, untouched),
  };
}

template <typename Manager>
std::vector<Wire_Row> umount_rows() {
  return {
      Row("unmounted", umount<Manager>("f1"))
          .sends("DELETE", mount_path + "?pool_id=p1&name=f1")
          .gets(ok("[]"))
          .gives(true, "{}"),
      Row("name_goes_out_as_it_stands", umount<Manager>("a&b=c"))
          .sends("DELETE", mount_path + "?pool_id=p1&name=a&b=c")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      Row("refused_is_logged_by_the_client_alone", umount<Manager>("f1"))
          .sends("DELETE", mount_path + "?pool_id=p1&name=f1")
          .gets(refusal())
          .logs(client_error("DELETE", mount_path))
          .gives(false, "{}"),
  };
}

template <typename Manager>
std::vector<Wire_Row> create_snapshot_rows() {
  const auto asked = [](const std::string& name, Answer answer, bool recyclable = false) {
    return Row(name, create_snapshot<Manager>(recyclable))
        .sends("POST", snapshot_path,
               std::string(R"({"names":["f1"],"pool_id":"p1","recycle":)") +
                   (recyclable ? "true}" : "false}"))
        .gets(std::move(answer));
  };
  const std::string untouched = R"({"id":"old"})";
  const Expected_Line failed = error_of<Manager>("Failed to create filesystem f1 snapshot.\n");
  const auto invalid = [&](const std::string& name, const std::string& answer,
                           const std::string& said) {
    return asked(name, ok(answer))
        .logs(error_of<Manager>("Invalid response of filesystem 'f1', {any}" + said + "{any}\n"))
        .gives(false, untouched);
  };
  return {
      asked("recyclable", ok(R"([{"snapshot_id":"s1","seq":1}])"), true)
          .gives(true, R"({"id":"s1"})"),
      asked("not_recyclable", ok(R"([{"snapshot_id":""}])")).gives(true, R"({"id":""})"),
      invalid("identifier_that_is_a_number", R"([{"snapshot_id":7}])", "snapshot_id"),
      invalid("identifier_that_is_missing", "[{}]", "snapshot_id"),
      invalid("element_that_is_no_object", R"(["s1"])", "object"),
      asked("none", ok("[]")).logs(failed).gives(false, untouched),
      asked("two", ok(R"([{"snapshot_id":"s1"},{"snapshot_id":"s2"}])"))
          .logs(failed)
          .gives(false, untouched),
      asked("object", ok(R"({"snapshot_id":"s1"})")).logs(failed).gives(false, untouched),
      asked("failed_call_with_a_good_body", json_answer(507, R"([{"snapshot_id":"s1"}])"))
          .logs(client_error("POST", snapshot_path))
          .logs(failed)
          .gives(false, untouched),
  };
}

template <typename Manager>
std::vector<Wire_Row> delete_snapshot_rows() {
  const std::string target = snapshot_path + "?pool_id=p1&snapshot_id=s1&delete_empty_fs=";
  return {
      Row("empty_filesystem_too", delete_snapshot<Manager>(true))
          .sends("DELETE", target + "true")
          .gets(ok("[]"))
          .gives(true, "{}"),
      Row("snapshot_alone", delete_snapshot<Manager>(false))
          .sends("DELETE", target + "false")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      Row("refused_is_logged_by_the_client_alone", delete_snapshot<Manager>(false))
          .sends("DELETE", target + "false")
          .gets(refusal())
          .logs(client_error("DELETE", snapshot_path))
          .gives(false, "{}"),
  };
}

template <typename Manager>
std::vector<Wire_Row> snapshot_info_rows() {
  const auto answered = [](const std::string& name, Answer answer) {
    return Row(name, describe_snapshot<Manager>())
        .sends("GET", snapshot_path + "?pool_id=p1&snapshot_id=s1")
        .gets(std::move(answer));
  };
  const std::string untouched = R"({"info":{"old":true}})";
  const Expected_Line failed = error_of<Manager>("Failed to get snapshot s1 info.\n");
  return {
      answered("only_object_is_the_snapshot", ok(R"([{"seq":1}])"))
          .gives(true, R"({"info":{"seq":1}})"),
      answered("none", ok("[]")).logs(failed).gives(false, untouched),
      answered("two", ok("[{},{}]")).logs(failed).gives(false, untouched),
      answered("object", ok("{}")).logs(failed).gives(false, untouched),
      answered("element_that_is_no_object", ok("[5]"))
          .logs(error_of<Manager>("Invalid response [5] of snapshot 's1'.\n"))
          .gives(false, untouched),
      answered("refused", refusal())
          .logs(client_error("GET", snapshot_path))
          .logs(failed)
          .gives(false, untouched),
  };
}

INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_create_filesystem, Wire_Table,
                         testing::ValuesIn(plays(create_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_create_filesystem, Wire_Table,
                         testing::ValuesIn(plays(create_rows<Image>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_delete_filesystem, Wire_Table,
                         testing::ValuesIn(plays(delete_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_delete_filesystem, Wire_Table,
                         testing::ValuesIn(plays(delete_rows<Image>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_rollback_filesystem, Wire_Table,
                         testing::ValuesIn(plays(rollback_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_rollback_filesystem, Wire_Table,
                         testing::ValuesIn(plays(rollback_rows<Image>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_list_filesystem_info, Wire_Table,
                         testing::ValuesIn(plays(info_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_list_filesystem_info_quietly, Wire_Table,
                         testing::ValuesIn(plays(quiet_info_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_list_filesystem_info, Wire_Table,
                         testing::ValuesIn(plays(info_rows<Image>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_mount_filesystem, Wire_Table,
                         testing::ValuesIn(plays(mount_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_mount_filesystem, Wire_Table,
                         testing::ValuesIn(plays(mount_rows<Image>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_list_mounted_filesystem, Wire_Table,
                         testing::ValuesIn(plays(list_mounted_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_list_mounted_filesystem, Wire_Table,
                         testing::ValuesIn(plays(list_mounted_rows<Image>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_update_filesystem_mountpoint, Wire_Table,
                         testing::ValuesIn(plays(update_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_update_filesystem_mountpoint, Wire_Table,
                         testing::ValuesIn(plays(update_rows<Image>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_umount_filesystem, Wire_Table,
                         testing::ValuesIn(plays(umount_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_umount_filesystem, Wire_Table,
                         testing::ValuesIn(plays(umount_rows<Image>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_create_filesystem_snapshot, Wire_Table,
                         testing::ValuesIn(plays(create_snapshot_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_create_snapshot, Wire_Table,
                         testing::ValuesIn(plays(create_snapshot_rows<Image>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_delete_filesystem_snapshot, Wire_Table,
                         testing::ValuesIn(plays(delete_snapshot_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_delete_snapshot, Wire_Table,
                         testing::ValuesIn(plays(delete_snapshot_rows<Image>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_filesystem_snapshot_info, Wire_Table,
                         testing::ValuesIn(plays(snapshot_info_rows<Scsi>())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_get_snapshot_info, Wire_Table,
                         testing::ValuesIn(plays(snapshot_info_rows<Image>())), Wire_Table::name);

// --- Any answer, and more of both managers -----------------------------------------------------

template <typename Manager>
class Filesystem_Test : public testing::Test {};

using Both = testing::Types<Scsi, Image>;

class Manager_Name {
 public:
  template <typename Manager>
  static std::string GetName(int) {
    return std::is_same_v<Manager, Scsi> ? "SCSI" : "Image";
  }
};

TYPED_TEST_SUITE(Filesystem_Test, Both, Manager_Name);

TYPED_TEST(Filesystem_Test, what_reads_no_answer_succeeds_exactly_when_the_exchange_does) {
  for (const Call& call :
       {create<TypeParam>("f1", "s1", nullptr), rollback<TypeParam>(), umount<TypeParam>("f1"),
        delete_snapshot<TypeParam>(true), Call([](const Endpoint& to) {
          return Outcome{make_manager<TypeParam>(to).delete_filesystem("f1", nullptr), {}};
        })}) {
    judge_any_answer(call, R"({"name":"f1"})", [](const Value* body) {
      return Judgement{body != nullptr, {}, {}};
    });
  }
}

/// What list_filesystem_info() is to make of an answer; a failed exchange is the client's to log.
Judgement judge_info(const Value* body) {
  const Array* const list = as_array(body);
  const Object* const fs = only_object(body);
  Judgement made;
  made.result = fs != nullptr;
  made.outputs["info"] = fs != nullptr ? *fs : old_object();
  if (fs == nullptr && list != nullptr && list->size() == 1) {
    made.messages = {"Invalid response {any} of filesystem 'f1'.\n"};
  }
  return made;
}

TYPED_TEST(Filesystem_Test, any_answer_to_list_filesystem_info) {
  const Call call = [](const Endpoint& to) {
    Object info = old_object();
    const bool result = list_info(make_manager<TypeParam>(to), "f1", info, nullptr);
    return Outcome{result, {{"info", info}}};
  };
  judge_any_answer(call, R"([{"name":"f1","size":5,"tags":["a",{"b":null}]}])", judge_info);
}

TYPED_TEST(Filesystem_Test, any_answer_to_mount_filesystem) {
  judge_any_answer(
      mount<TypeParam>(), R"({"mountpoint":"/srv/f1","more":1})", [](const Value* body) {
        const Object* const answer = as_object(body);
        Judgement made;
        std::string where = "old";
        made.result = answer != nullptr && json_spirit::object_get(*answer, "mountpoint", where);
        made.outputs["mount_point"] = where;
        if (answer == nullptr) made.messages = {"Failed to mount filesystem f1.\n"};
        return made;
      });
}

TYPED_TEST(Filesystem_Test, any_answer_to_list_mounted_filesystem) {
  judge_any_answer(list_mounted<TypeParam>("f1"), R"([{"name":"f1"},{"name":"f2"}])",
                   [](const Value* body) {
                     const Array* const list = as_array(body);
                     Judgement made;
                     made.result = list != nullptr;
                     made.outputs["info"] = list != nullptr ? *list : old_array();
                     if (list == nullptr) {
                       made.messages = {"Failed to get filesystem mount info.\n"};
                     }
                     return made;
                   });
}

TYPED_TEST(Filesystem_Test, any_answer_to_update_filesystem_mountpoint) {
  judge_any_answer(update_mountpoint<TypeParam>(), R"("/srv/new")", [](const Value* body) {
    Judgement made;
    made.outputs["mount_point"] = "old";
    if (body != nullptr && body->type() == json_spirit::str_type) {
      made.outputs["threw"] = "std::runtime_error";
    } else {
      made.messages = {"Failed to update filesystem f1 mountpoint.\n"};
    }
    return made;
  });
}

TYPED_TEST(Filesystem_Test, any_answer_to_the_creation_of_a_snapshot) {
  judge_any_answer(
      create_snapshot<TypeParam>(true), R"([{"snapshot_id":"s1","seq":1}])", [](const Value* body) {
        const Array* const list = as_array(body);
        const Object* const snapshot = only_object(body);
        Judgement made;
        std::string id = "old";
        made.result = snapshot != nullptr && json_spirit::object_get(*snapshot, "snapshot_id", id);
        made.outputs["id"] = id;
        if (list == nullptr || list->size() != 1) {
          made.messages = {"Failed to create filesystem f1 snapshot.\n"};
        } else if (!made.result) {
          made.messages = {"Invalid response of filesystem 'f1', {any}\n"};
        }
        return made;
      });
}

TYPED_TEST(Filesystem_Test, any_answer_to_the_description_of_a_snapshot) {
  judge_any_answer(describe_snapshot<TypeParam>(), R"([{"snapshot_id":"s1","seq":1}])",
                   [](const Value* body) {
                     const Array* const list = as_array(body);
                     const Object* const snapshot = only_object(body);
                     Judgement made;
                     made.result = snapshot != nullptr;
                     made.outputs["info"] = snapshot != nullptr ? *snapshot : old_object();
                     if (list == nullptr || list->size() != 1) {
                       made.messages = {"Failed to get snapshot s1 info.\n"};
                     } else if (!made.result) {
                       made.messages = {"Invalid response {any} of snapshot 's1'.\n"};
                     }
                     return made;
                   });
}

TYPED_TEST(Filesystem_Test, one_manager_is_asked_by_many_threads) {
  Scripted_Server server;
  server.otherwise([](const Recorded_Request& request) {
    return ok(R"([{"asked":")" + request.target.substr(request.target.rfind('=') + 1) + R"("}])");
  });
  const auto pool = make_manager<TypeParam>(server.endpoint());
  std::vector<std::thread> threads;
  std::vector<int> good(16);
  for (std::size_t i = 0; i < good.size(); ++i) {
    threads.emplace_back([&pool, &good, i] {
      for (int n = 0; n < 10; ++n) {
        const std::string name = std::to_string(i) + "-" + std::to_string(n);
        Object info;
        Array mounts;
        good[i] += list_info(pool, name, info, nullptr) && info == Object{{"asked", name}};
        good[i] += pool.list_mounted_filesystem(mounts, &name) && mounts.size() == 1;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(good, std::vector<int>(good.size(), 20));
}

TEST(Filesystem_Any_Answer, quiet_list_filesystem_info_leaves_the_client_silent) {
  const Call call = [](const Endpoint& to) {
    Object info = old_object();
    const bool result = list_info(make_manager<Scsi>(to), "f1", info, nullptr, false);
    return Outcome{result, {{"info", info}}};
  };
  judge_any_answer(call, "[{}]", judge_info, false);
}

TEST(Image_Pool_Manager_Test, asks_where_its_url_says) {
  Scripted_Server server;
  server.otherwise(ok("[]"));
  const Image pool("dedup://127.0.0.1:" + std::to_string(server.port()) + "/pool", "k", "p1");
  Array mounts = old_array();
  EXPECT_TRUE(pool.list_mounted_filesystem(mounts, nullptr));
  EXPECT_EQ(server.request(0).header("X-Access-Key"), "k");
  EXPECT_EQ(server.request(0).target, mount_path + "?pool_id=p1");
}

TEST(Image_Pool_Manager_Test, asks_over_tls_where_its_url_says_so) {
  const Options_Guard trusted(options_with_test_ca());
  Server_Options options;
  options.identity = &Test_Certificates::instance().server;
  Scripted_Server server(options);
  server.otherwise(http_answer(204, ""));
  const Image pool("https://127.0.0.1:" + std::to_string(server.port()), "k", "p1");
  EXPECT_TRUE(pool.umount_filesystem("f1"));
}

TEST(Image_Pool_Manager_Test, is_made_from_a_url_that_does_not_parse) {
  Log_Capture log;
  const Image pool("no url", "k", "p1");
  const std::vector<Log_Line> lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].priority, "LM_ERROR");
  EXPECT_EQ(lines[0].text, "Failed to parse url: no url\n");
  EXPECT_EQ(lines[0].file, source_of<Image>);
  EXPECT_EQ(pool.host_, "");
  EXPECT_EQ(pool.port_, 0);
  EXPECT_FALSE(pool.ssl_);
  EXPECT_EQ(pool.access_key_, "k");
  EXPECT_EQ(pool.pool_uuid_, "p1");
  Array mounts;
  EXPECT_FALSE(pool.list_mounted_filesystem(mounts, nullptr));
  EXPECT_THAT(log.texts("LM_ERROR"),
              testing::ElementsAre(testing::_, "Failed to get filesystem mount info.\n"));
}

}  // namespace
}  // namespace zqpool::test
