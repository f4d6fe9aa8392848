#include "utils/pool/pool_metadata_manager.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/support/any_answer.h"
#include "tests/support/guards.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_server.h"
#include "tests/support/wire_row.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;

const std::string key = "key";
const std::string pool_path = "/zq/r/storage/catalog/pool";
const std::string device_path = "/zq/r/storage/catalog/device";
const std::string info_path = "/zq/r/storage/catalog/device/info";
const std::string metadata_path = "/zq/r/storage/catalog/device/metadata";

/// What outputs hold before a call, to see whether it wrote them.
Object old_object() {
  return {{"old", true}};
}
Array old_array() {
  return {Value("old")};
}
const std::string untouched_pool = R"({"pool":{"old":true}})";
const std::string untouched_device = R"({"device":{"old":true}})";
const std::string untouched_devices = R"({"devices":["old"],"type":"old"})";

using Call = std::function<Outcome(const Endpoint&)>;

Call get_pool_info(const std::string& pool_uuid, int timeout, const std::string& access_key = key) {
  return [=](const Endpoint& to) {
    Object pool = old_object();
    const bool ok = Pool_Metadata_Manager::get_pool_info(to.host, to.port, to.ssl, access_key,
                                                         pool_uuid, pool, timeout);
    return Outcome{ok, {{"pool", pool}}};
  };
}

Call get_located_devices(const std::string& pool_uuid, const std::string& path,
                         const char* grouping, const std::string& access_key = key) {
  return [=](const Endpoint& to) {
    std::string type = "old";
    Array devices = old_array();
    const bool ok = Pool_Metadata_Manager::get_located_devices(
        to.host, to.port, to.ssl, access_key, pool_uuid, path, type, devices, grouping);
    return Outcome{ok, {{"type", type}, {"devices", devices}}};
  };
}

Call get_device(const std::string& url, const std::string& access_key = key) {
  return [=](const Endpoint& to) {
    Object device = old_object();
    const bool ok =
        Pool_Metadata_Manager::get_device(to.host, to.port, to.ssl, access_key, url, device);
    return Outcome{ok, {{"device", device}}};
  };
}

Call get_device_info(std::optional<std::string> pool_uuid, const std::string& url,
                     const std::string& access_key = key) {
  return [=](const Endpoint& to) {
    Object device = old_object();
    const bool ok = Pool_Metadata_Manager::get_device_info(
        to.host, to.port, to.ssl, access_key, pool_uuid ? &*pool_uuid : nullptr, url, device);
    return Outcome{ok, {{"device", device}}};
  };
}

Call get_device_with_uuid(const std::string& uuid, int timeout,
                          const std::string& access_key = key) {
  return [=](const Endpoint& to) {
    Object device = old_object();
    const bool ok = Pool_Metadata_Manager::get_device_with_uuid(to.host, to.port, to.ssl,
                                                                access_key, uuid, device, timeout);
    return Outcome{ok, {{"device", device}}};
  };
}

Expected_Line retry_notice(int number) {
  return test::retry_notice(number, "utils/pool/pool_metadata_manager.cpp");
}

/// What the operations with a timeout do alike. `ask(timeout)` asks for `uuid`; `output` is what
/// the record goes into.
template <typename Ask>
std::vector<Wire_Row> retry_rows(const Ask& ask, const std::string& path, const std::string& uuid,
                                 const std::string& output, const Expected_Line& gave_up) {
  const std::string target = path + "?uuid=" + uuid;
  return {
      Row("timeout_0_makes_one_attempt", ask(0))
          .sends("GET", target)
          .gets(refusal())
          .logs(client_error("GET", path))
          .logs(gave_up)
          .gives(false, "{\"" + output + R"(":{"old":true}})"),
      Row("answer_is_not_reset_between_attempts", ask(-1))
          .sends("GET", target)
          .again(1)
          .gets(json_answer(500, R"({"rows":[{"uuid":"of the first attempt"}]})"))
          .gets(http_answer(204, ""))
          .logs(client_error("GET", path))
          .logs(retry_notice(1))
          .pauses(1)
          .gives(true, "{\"" + output + R"(":{"uuid":"of the first attempt"}})"),
  };
}

std::vector<Wire_Row> joined(std::vector<Wire_Row> rows, const std::vector<Wire_Row>& more) {
  rows.insert(rows.end(), more.begin(), more.end());
  return rows;
}

std::vector<Wire_Row> pool_info_rows() {
  const std::string target = pool_path + "?uuid=p1";
  const Expected_Line gave_up = error("Failed to get pool info from pool 'p1'.\n");
  const Expected_Line not_one = error("Failed to get pool 'p1' info.\n");
  const Expected_Line failed = client_error("GET", pool_path);
  const auto wrong_type = [&](const std::string& name, const std::string& body,
                              const std::string& wanted, const std::string& found) {
    // Without a limit, to see that it is not tried again.
    return Row(name, get_pool_info("p1", -1))
        .sends("GET", target)
        .gets(ok(body))
        .logs(error("Failed to get pool info: {any}" + wanted + "{any}" + found + "{any}\n"))
        .gives(false, untouched_pool);
  };
  const std::vector<Wire_Row> rows = {
      Row("one_row_is_the_pool", get_pool_info("p1", 0))
          .sends("GET", target)
          .gets(ok(R"({"rows":[{"uuid":"p1","size":18446744073709551615}],"total":1})"))
          .gives(true, R"({"pool":{"size":18446744073709551615,"uuid":"p1"}})"),
      Row("uuid_is_percent_encoded", get_pool_info("a b/c&d=\xc3\xa9%", 0))
          .sends("GET", pool_path + "?uuid=a+b%2fc%26d%3d%c3%a9%25")
          .gets(ok(R"({"rows":[{}]})"))
          .gives(true, R"({"pool":{}})"),
      Row("empty_uuid_is_sent_empty", get_pool_info("", 0))
          .sends("GET", pool_path + "?uuid=")
          .gets(ok(R"({"rows":[]})"))
          .logs(error("Failed to get pool '' info.\n"))
          .gives(false, untouched_pool),
      Row("empty_access_key_sends_no_header", get_pool_info("p1", 0, ""))
          .sends("GET", target, "", "")
          .gets(ok(R"({"rows":[{}]})"))
          .gives(true, R"({"pool":{}})"),
      Row("two_rows_are_not_one", get_pool_info("p1", -1))
          .sends("GET", target)
          .gets(ok(R"({"rows":[{"uuid":"p1"},{"uuid":"p1"}]})"))
          .logs(not_one)
          .gives(false, untouched_pool),
      Row("no_row_is_not_one", get_pool_info("p1", -1))
          .sends("GET", target)
          .gets(ok(R"({"rows":[]})"))
          .logs(not_one)
          .gives(false, untouched_pool),
      wrong_type("rows_that_are_a_string", R"({"rows":"text"})", "array", "string"),
      wrong_type("rows_that_are_an_object", R"({"rows":{}})", "array", "object"),
      wrong_type("rows_that_are_missing", R"({"total":1})", "array", "null"),
      wrong_type("row_that_is_not_an_object", R"({"rows":["p1"]})", "object", "string"),
      wrong_type("answer_that_is_not_an_object_is_not_retried", R"([{"uuid":"p1"}])", "object",
                 "array"),
      Row("answer_without_a_body_is_no_object", get_pool_info("p1", -1))
          .sends("GET", target)
          .gets(http_answer(204, ""))
          .logs(error("Failed to get pool info: {any}object{any}null{any}\n"))
          .gives(false, untouched_pool),
      Row("failed_call_with_the_wanted_rows_is_a_failure", get_pool_info("p1", 0))
          .sends("GET", target)
          .gets(json_answer(500, R"({"rows":[{"uuid":"p1"}]})"))
          .logs(failed)
          .logs(gave_up)
          .gives(false, untouched_pool),
      Row("retries_until_the_call_succeeds", get_pool_info("p1", -1))
          .sends("GET", target)
          .again(2)
          .gets(refusal())
          .gets(http_answer(500, "<html>"))
          .gets(ok(R"({"rows":[{"uuid":"p1"}]})"))
          .logs(failed)
          .logs(retry_notice(1))
          .logs(failed)
          .logs(retry_notice(2))
          .pauses(2)
          .gives(true, R"({"pool":{"uuid":"p1"}})"),
      // The first delay is one second, so a limit of one second allows one more attempt.
      Row("gives_up_when_the_timeout_is_reached", get_pool_info("p1", 1))
          .sends("GET", target)
          .again(1)
          .gets(refusal())
          .gets(refusal())
          .logs(failed)
          .logs(retry_notice(1))
          .logs(failed)
          .logs(gave_up)
          .pauses(1)
          .gives(false, untouched_pool),
      Row("client_repeats_by_itself_first", get_pool_info("p1", 0))
          .sends("GET", target)
          .again(2)
          .gets(http_answer(503, ""))
          .gets(close_after_request())
          .gets(http_answer(502, ""))
          .logs(failed)
          .logs(gave_up)
          .pauses(2)
          .gives(false, untouched_pool),
      Row("body_that_is_no_json_is_a_failed_call", get_pool_info("p1", 0))
          .sends("GET", target)
          .gets(ok(R"({"rows":[{"uuid":"p1"}])"))
          .logs(failed)
          .logs(gave_up)
          .gives(false, untouched_pool),
  };
  const auto ask = [](int timeout) { return get_pool_info("p1", timeout); };
  return joined(rows, retry_rows(ask, pool_path, "p1", "pool", gave_up));
}

std::vector<Wire_Row> located_devices_rows() {
  const std::string body = R"({"grouping":"g1","path":"/a b","pool_uuid":"p1"})";
  const Call call = get_located_devices("p1", "/a b", "g1");
  const Expected_Line failed = client_error("PUT", metadata_path);
  const Expected_Line message = error("Failed to get located devices for '/a b' in pool 'p1'.\n");
  const auto answered = [&](const std::string& name, const std::string& answer) {
    return Row(name, call).sends("PUT", metadata_path, body).gets(ok(answer));
  };
  return {
      answered("type_and_devices", R"({"type":"file","devices":[{"uuid":"d1"},5],"more":1})")
          .gives(true, R"({"devices":[{"uuid":"d1"},5],"type":"file"})"),
      answered("no_devices_at_all", R"({"type":"","devices":[]})")
          .gives(true, R"({"devices":[],"type":""})"),
      answered("path_that_is_not_known_leaves_the_outputs", "{}").gives(true, untouched_devices),
      Row("null_grouping_is_not_sent", get_located_devices("p1", "/a", nullptr))
          .sends("PUT", metadata_path, R"({"path":"/a","pool_uuid":"p1"})")
          .gets(ok("{}"))
          .gives(true, untouched_devices),
      Row("empty_grouping_is_sent", get_located_devices("", "", ""))
          .sends("PUT", metadata_path, R"({"grouping":"","path":"","pool_uuid":""})")
          .gets(ok("{}"))
          .gives(true, untouched_devices),
      Row("empty_access_key_sends_no_header", get_located_devices("p1", "/a", nullptr, ""))
          .sends("PUT", metadata_path, R"({"path":"/a","pool_uuid":"p1"})", "")
          .gets(ok("{}"))
          .gives(true, untouched_devices),
      Row("texts_are_json_strings", get_located_devices("\"p\\\n", "/\xc3\xa9\t", nullptr))
          .sends("PUT", metadata_path, "{\"path\":\"/\xc3\xa9\\t\",\"pool_uuid\":\"\\\"p\\\\\\n\"}")
          .gets(ok("{}"))
          .gives(true, untouched_devices),
      answered("type_that_is_missing_is_silent", R"({"devices":[]})")
          .gives(false, untouched_devices),
      answered("type_that_is_no_string_is_silent", R"({"type":1,"devices":[]})")
          .gives(false, untouched_devices),
      answered("devices_that_are_missing_leave_the_type_written", R"({"type":"file"})")
          .gives(false, R"({"devices":["old"],"type":"file"})"),
      answered("devices_that_are_no_array_leave_the_type_written",
               R"({"type":"file","devices":{"uuid":"d1"}})")
          .gives(false, R"({"devices":["old"],"type":"file"})"),
      answered("answer_that_is_an_array", R"([{"type":"file","devices":[]}])")
          .logs(message)
          .gives(false, untouched_devices),
      Row("answer_without_a_body", call)
          .sends("PUT", metadata_path, body)
          .gets(http_answer(204, ""))
          .logs(message)
          .gives(false, untouched_devices),
      Row("refused_call", call)
          .sends("PUT", metadata_path, body)
          .gets(refusal())
          .logs(failed)
          .logs(message)
          .gives(false, untouched_devices),
      Row("failed_call_with_a_good_body_is_a_failure", call)
          .sends("PUT", metadata_path, body)
          .gets(json_answer(500, R"({"type":"file","devices":[]})"))
          .logs(failed)
          .logs(message)
          .gives(false, untouched_devices),
      Row("is_never_sent_twice", call)
          .sends("PUT", metadata_path, body)
          .gets(http_answer(503, ""))
          .logs(failed)
          .logs(message)
          .gives(false, untouched_devices),
      Row("path_that_json_cannot_say_is_not_sent", get_located_devices("p1", "/\xff", nullptr))
          .logs({"LM_ERROR", "PUT {any} failed: {any}not UTF-8.\n", false})
          .logs(error("Failed to get located devices for '/\xff' in pool 'p1'.\n"))
          .gives(false, untouched_devices),
  };
}

std::vector<Wire_Row> device_rows() {
  const std::string target = device_path + "?url=u1";
  const Call call = get_device("u1");
  const Expected_Line failed = client_error("GET", device_path);
  const Expected_Line no_data = error("Failed to GET data from 'u1'.\n");
  const Expected_Line not_one = error("Failed to get device with url: u1\n");
  const auto answered = [&](const std::string& name, const std::string& answer) {
    return Row(name, call).sends("GET", target).gets(ok(answer));
  };
  const auto not_one_row = [&](const std::string& name, const std::string& answer) {
    return answered(name, answer).logs(not_one).gives(false, untouched_device);
  };
  return {
      answered("one_row_is_the_device", R"({"rows":[{"uuid":"d1","tags":[1,{"a":null}]}]})")
          .gives(true, R"({"device":{"tags":[1,{"a":null}],"uuid":"d1"}})"),
      Row("url_is_percent_encoded", get_device("file:///srv/d 1?x=1&y=#z"))
          .sends("GET", device_path + "?url=file%3a%2f%2f%2fsrv%2fd+1%3fx%3d1%26y%3d%23z")
          .gets(ok(R"({"rows":[{}]})"))
          .gives(true, R"({"device":{}})"),
      Row("empty_access_key_sends_no_header", get_device("u1", ""))
          .sends("GET", target, "", "")
          .gets(ok(R"({"rows":[{}]})"))
          .gives(true, R"({"device":{}})"),
      not_one_row("two_rows_are_not_one", R"({"rows":[{"uuid":"d1"},{"uuid":"d2"}]})"),
      not_one_row("no_row_is_not_one", R"({"rows":[]})"),
      not_one_row("row_that_is_no_object", R"({"rows":["d1"]})"),
      not_one_row("rows_that_are_missing", R"({"total":0})"),
      not_one_row("rows_that_are_no_array", R"({"rows":{"uuid":"d1"}})"),
      not_one_row("empty_object", "{}"),
      answered("answer_that_is_an_array", R"([{"uuid":"d1"}])")
          .logs(no_data)
          .gives(false, untouched_device),
      Row("answer_without_a_body", call)
          .sends("GET", target)
          .gets(http_answer(204, ""))
          .logs(no_data)
          .gives(false, untouched_device),
      Row("refused_call_is_not_retried", call)
          .sends("GET", target)
          .gets(refusal())
          .logs(failed)
          .logs(no_data)
          .gives(false, untouched_device),
      Row("failed_call_with_a_good_body_is_a_failure", call)
          .sends("GET", target)
          .gets(json_answer(500, R"({"rows":[{"uuid":"d1"}]})"))
          .logs(failed)
          .logs(no_data)
          .gives(false, untouched_device),
  };
}

std::vector<Wire_Row> device_info_rows() {
  const std::string body = R"({"pool_uuid":"p1","url":"file:///d"})";
  const Call call = get_device_info("p1", "file:///d");
  const Expected_Line failed = client_error("POST", info_path);
  const Expected_Line message = error("Failed to check device info.\n");
  const auto answered = [&](const std::string& name, Answer answer) {
    return Row(name, call).sends("POST", info_path, body).gets(std::move(answer));
  };
  return {
      answered("answer_is_the_device", ok(R"({"uuid":"d1","size":-1})"))
          .gives(true, R"({"device":{"size":-1,"uuid":"d1"}})"),
      Row("null_pool_sends_the_url_alone", get_device_info(std::nullopt, "file:///d"))
          .sends("POST", info_path, R"({"url":"file:///d"})")
          .gets(ok(R"({"uuid":"d1"})"))
          .gives(true, R"({"device":{"uuid":"d1"}})"),
      Row("empty_pool_is_sent", get_device_info("", ""))
          .sends("POST", info_path, R"({"pool_uuid":"","url":""})")
          .gets(ok(R"({"uuid":"d1"})"))
          .gives(true, R"({"device":{"uuid":"d1"}})"),
      Row("empty_access_key_sends_no_header", get_device_info(std::nullopt, "u", ""))
          .sends("POST", info_path, R"({"url":"u"})", "")
          .gets(ok(R"({"uuid":"d1"})"))
          .gives(true, R"({"device":{"uuid":"d1"}})"),
      answered("empty_object_empties_the_device_silently", ok("{}"))
          .gives(false, R"({"device":{}})"),
      answered("answer_that_is_an_array", ok(R"([{"uuid":"d1"}])"))
          .logs(message)
          .gives(false, untouched_device),
      answered("answer_without_a_body", http_answer(204, ""))
          .logs(message)
          .gives(false, untouched_device),
      answered("refused_call", refusal()).logs(failed).logs(message).gives(false, untouched_device),
      answered("failed_call_with_a_good_body_is_a_failure", json_answer(500, R"({"uuid":"d1"})"))
          .logs(failed)
          .logs(message)
          .gives(false, untouched_device),
      answered("is_never_sent_twice", close_after_request())
          .logs(failed)
          .logs(message)
          .gives(false, untouched_device),
  };
}

std::vector<Wire_Row> device_with_uuid_rows() {
  const std::string target = device_path + "?uuid=d1";
  const Expected_Line failed = client_error("GET", device_path);
  const Expected_Line gave_up = error("Failed to GET device with 'd1'.\n");
  const Expected_Line not_one = error("Failed to get device with uuid: d1\n");
  const auto not_one_row = [&](const std::string& name, const std::string& answer) {
    // Without a limit, to see that it is not tried again.
    return Row(name, get_device_with_uuid("d1", -1))
        .sends("GET", target)
        .gets(ok(answer))
        .logs(not_one)
        .gives(false, untouched_device);
  };
  const std::vector<Wire_Row> rows = {
      Row("one_row_is_the_device", get_device_with_uuid("d1", 0))
          .sends("GET", target)
          .gets(ok(R"({"rows":[{"uuid":"d1"}]})"))
          .gives(true, R"({"device":{"uuid":"d1"}})"),
      Row("uuid_is_percent_encoded", get_device_with_uuid("a/b c", 0))
          .sends("GET", device_path + "?uuid=a%2fb+c")
          .gets(ok(R"({"rows":[{}]})"))
          .gives(true, R"({"device":{}})"),
      Row("empty_access_key_sends_no_header", get_device_with_uuid("d1", 0, ""))
          .sends("GET", target, "", "")
          .gets(ok(R"({"rows":[{}]})"))
          .gives(true, R"({"device":{}})"),
      not_one_row("two_rows_are_not_one", R"({"rows":[{"uuid":"d1"},{"uuid":"d1"}]})"),
      not_one_row("no_row_is_not_one", R"({"rows":[]})"),
      not_one_row("row_that_is_no_object", R"({"rows":[[]]})"),
      not_one_row("rows_that_are_missing", R"({"total":0})"),
      not_one_row("rows_that_are_no_array", R"({"rows":"d1"})"),
      Row("answer_that_is_no_object_is_retried", get_device_with_uuid("d1", -1))
          .sends("GET", target)
          .again(3)
          .gets(ok("[]"))
          .gets(http_answer(204, ""))
          .gets(ok("\"text\""))
          .gets(ok(R"({"rows":[{"uuid":"d1"}]})"))
          .logs(retry_notice(1))
          .logs(retry_notice(2))
          .logs(retry_notice(3))
          .pauses(3)
          .gives(true, R"({"device":{"uuid":"d1"}})"),
      Row("failed_call_is_retried", get_device_with_uuid("d1", -1))
          .sends("GET", target)
          .again(1)
          .gets(refusal())
          .gets(ok(R"({"rows":[{"uuid":"d1"}]})"))
          .logs(failed)
          .logs(retry_notice(1))
          .pauses(1)
          .gives(true, R"({"device":{"uuid":"d1"}})"),
      Row("timeout_0_gives_up_on_an_answer_that_is_no_object", get_device_with_uuid("d1", 0))
          .sends("GET", target)
          .gets(ok("[]"))
          .logs(gave_up)
          .gives(false, untouched_device),
      Row("gives_up_when_the_timeout_is_reached", get_device_with_uuid("d1", 1))
          .sends("GET", target)
          .again(1)
          .gets(ok("null"))
          .gets(refusal())
          .logs(retry_notice(1))
          .logs(failed)
          .logs(gave_up)
          .pauses(1)
          .gives(false, untouched_device),
  };
  const auto ask = [](int timeout) { return get_device_with_uuid("d1", timeout); };
  return joined(rows, retry_rows(ask, device_path, "d1", "device", gave_up));
}

TEST_P(Wire_Table, row_holds) {
  play();
}
INSTANTIATE_TEST_SUITE_P(Pool_Metadata_Manager_get_pool_info, Wire_Table,
                         testing::ValuesIn(plays_over_both(pool_info_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Pool_Metadata_Manager_get_located_devices, Wire_Table,
                         testing::ValuesIn(plays(located_devices_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Pool_Metadata_Manager_get_device, Wire_Table,
                         testing::ValuesIn(plays(device_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Pool_Metadata_Manager_get_device_info, Wire_Table,
                         testing::ValuesIn(plays(device_info_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Pool_Metadata_Manager_get_device_with_uuid, Wire_Table,
                         testing::ValuesIn(plays(device_with_uuid_rows())), Wire_Table::name);

// Any answer at all. What each operation makes of it is told from the answer alone.

const Object* as_object(const Any_Answer& answer) {
  return answer.exchange_succeeds() && answer.value.type() == json_spirit::obj_type
             ? &answer.value.get_obj()
             : nullptr;
}

/// The one record of the answer's rows, or null.
const Object* only_row(const Any_Answer& answer) {
  const Object* const object = as_object(answer);
  const Array* const rows =
      object != nullptr ? json_spirit::object_get_array(*object, "rows") : nullptr;
  return rows != nullptr && rows->size() == 1 && rows->front().type() == json_spirit::obj_type
             ? &rows->front().get_obj()
             : nullptr;
}

/// Makes the call and checks its result, its outputs and that it logs `message` when there is one
/// to log (behind what the client logs by itself, which is one line of a failed exchange).
void check(const Call& call, const Endpoint& to, const Any_Answer& answer, bool result,
           const Object& outputs, const std::string& message) {
  const Log_Capture log;
  const Outcome outcome = call(to);
  EXPECT_EQ(outcome.result, result);
  EXPECT_EQ(json_spirit::write(Value(outcome.outputs)), json_spirit::write(Value(outputs)));
  const std::vector<std::string> lines = log.texts("LM_ERROR");
  const std::size_t of_client = answer.exchange_succeeds() ? 0 : 1;
  ASSERT_EQ(lines.size(), of_client + (message.empty() ? 0 : 1)) << log.all();
  EXPECT_TRUE(message.empty() || line_matches(message, lines.back(), 0)) << lines.back();
}

const std::string good_rows =
    R"({"rows":[{"uuid":"d1","size":18446744073709551615,"tags":["a",{"b":null}]}],"total":1})";

TEST(Any_Answer_To, get_pool_info) {
  for_any_answer(good_rows, [](const Endpoint& to, const Any_Answer& answer) {
    const Object* const row = only_row(answer);
    const Object* const object = as_object(answer);
    const Array* const rows =
        object != nullptr ? json_spirit::object_get_array(*object, "rows") : nullptr;
    const std::string message = row != nullptr                ? ""
                                : !answer.exchange_succeeds() ? "Failed to get pool info from "
                                                                "pool 'p1'.\n"
                                : rows != nullptr && rows->size() != 1
                                    ? "Failed to get pool 'p1' info.\n"
                                    : "Failed to get pool info: {any}\n";
    check(get_pool_info("p1", 0), to, answer, row != nullptr,
          {{"pool", row != nullptr ? *row : old_object()}}, message);
  });
}

TEST(Any_Answer_To, get_device) {
  for_any_answer(good_rows, [](const Endpoint& to, const Any_Answer& answer) {
    const Object* const row = only_row(answer);
    const std::string message = row != nullptr                 ? ""
                                : as_object(answer) == nullptr ? "Failed to GET data from 'u1'.\n"
                                                               : "Failed to get device with url: "
                                                                 "u1\n";
    check(get_device("u1"), to, answer, row != nullptr,
          {{"device", row != nullptr ? *row : old_object()}}, message);
  });
}

TEST(Any_Answer_To, get_device_with_uuid) {
  for_any_answer(good_rows, [](const Endpoint& to, const Any_Answer& answer) {
    const Object* const row = only_row(answer);
    const std::string message = row != nullptr                 ? ""
                                : as_object(answer) == nullptr ? "Failed to GET device with 'd1'.\n"
                                                               : "Failed to get device with uuid: "
                                                                 "d1\n";
    check(get_device_with_uuid("d1", 0), to, answer, row != nullptr,
          {{"device", row != nullptr ? *row : old_object()}}, message);
  });
}

TEST(Any_Answer_To, get_device_info) {
  const std::string good = R"({"uuid":"d1","size":5,"tags":["a",{"b":null}]})";
  for_any_answer(good, [](const Endpoint& to, const Any_Answer& answer) {
    const Object* const object = as_object(answer);
    check(get_device_info("p1", "u1"), to, answer, object != nullptr && !object->empty(),
          {{"device", object != nullptr ? *object : old_object()}},
          object == nullptr ? "Failed to check device info.\n" : "");
  });
}

TEST(Any_Answer_To, get_located_devices) {
  const std::string good = R"({"type":"file","devices":[{"uuid":"d1"},{"uuid":"d2"}]})";
  for_any_answer(good, [](const Endpoint& to, const Any_Answer& answer) {
    const Object* const object = as_object(answer);
    const std::string* const type =
        object != nullptr ? json_spirit::object_get_str(*object, "type") : nullptr;
    const Array* const devices =
        type != nullptr ? json_spirit::object_get_array(*object, "devices") : nullptr;
    check(get_located_devices("p1", "/a", nullptr), to, answer,
          devices != nullptr || (object != nullptr && object->empty()),
          {{"type", type != nullptr ? *type : "old"},
           {"devices", devices != nullptr ? *devices : old_array()}},
          object == nullptr ? "Failed to get located devices for '/a' in pool 'p1'.\n" : "");
  });
}

TEST(Pool_Metadata_Manager_Test, service_that_is_not_there) {
  const Refused_Port nobody;
  const Endpoint to{"127.0.0.1", nobody.port(), false};
  const Sleep_Recorder sleeps;
  Log_Capture log;
  EXPECT_FALSE(get_device("u1")(to).result);
  const std::vector<Log_Line> lines = log.take();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(line_matches(client_error("GET", device_path).text, lines[0].text, nobody.port()))
      << lines[0].text;
  EXPECT_EQ(lines[1].text, "Failed to GET data from 'u1'.\n");
  EXPECT_EQ(log.all().find(key), std::string::npos) << "the access key is never logged";
}

TEST(Pool_Metadata_Manager_Test, long_names_are_sent_whole) {
  Scripted_Server server;
  server.otherwise(json_answer(200, R"({"rows":[{}]})"));
  const std::string name(5000, 'n');
  EXPECT_TRUE(get_device(name)(server.endpoint()).result);
  EXPECT_EQ(server.request(0).target, device_path + "?url=" + name);
}

TEST(Pool_Metadata_Manager_Test, sixteen_threads_ask_at_once) {
  Scripted_Server server;
  server.otherwise([](const Recorded_Request& request) {
    const std::string uuid = request.target.substr(request.target.find('=') + 1);
    return json_answer(200, R"({"rows":[{"uuid":")" + uuid + R"("}]})");
  });
  const Endpoint to = server.endpoint();
  std::vector<std::thread> threads;
  std::vector<int> good(16);
  for (std::size_t i = 0; i < good.size(); ++i) {
    threads.emplace_back([&to, &good, i] {
      for (int n = 0; n < 10; ++n) {
        const std::string uuid = std::to_string(i) + "-" + std::to_string(n);
        const Object wanted{{"uuid", uuid}};
        const Outcome device = get_device_with_uuid(uuid, 0)(to);
        const Outcome pool = get_pool_info(uuid, 0)(to);
        good[i] += device.result && device.outputs.at("device") == Value(wanted);
        good[i] += pool.result && pool.outputs.at("pool") == Value(wanted);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(good, std::vector<int>(good.size(), 20));
}

}  // namespace
}  // namespace zqpool::test
