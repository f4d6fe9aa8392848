#include "service/app/faults.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/service/fixtures/lab_service.h"

namespace zqpool::service {
namespace {

using json_spirit::Value;

Object object(const std::string& text) {
  return test::json(text).get_obj();
}

Object script(const std::string& fault) {
  return object(R"({"faults":[)" + fault + "]}");
}

/// Which of the next requests are hit: "x" or ".".
std::string hits(Fault_Script& faults, int requests, const std::string& query = "") {
  std::string out;
  for (int i = 0; i < requests; ++i) {
    out += faults.choose(Method::get, "/zq/r/x", query) ? 'x' : '.';
  }
  return out;
}

std::string hits(const std::string& rest, int requests) {
  Fault_Script faults;
  faults.add(script(R"({"path":"/zq/r/x","kind":"reset_before_commit")" + rest + "}"));
  return hits(faults, requests);
}

std::string refusal(const std::string& document) {
  Fault_Script faults;
  try {
    faults.add(object(document));
  } catch (const Request_Error& refused) {
    return std::to_string(refused.status()) + ' ' + refused.what();
  }
  return "";
}

TEST(Fault_Script, hits_every_request_unless_told_otherwise) {
  EXPECT_EQ(hits("", 4), "xxxx");
}

TEST(Fault_Script, hits_so_many_times) {
  EXPECT_EQ(hits(R"(,"times":2)", 4), "xx..");
  EXPECT_EQ(hits(R"(,"times":0)", 2), "..");
}

TEST(Fault_Script, skips_the_first) {
  EXPECT_EQ(hits(R"(,"skip":2,"times":1)", 5), "..x..");
}

TEST(Fault_Script, hits_every_third) {
  EXPECT_EQ(hits(R"(,"every":3)", 9), "..x..x..x");
  EXPECT_EQ(hits(R"(,"every":3,"skip":1,"times":2)", 12), "...x..x.....");
}

TEST(Fault_Script, hits_by_chance_the_same_way_for_the_same_seed) {
  const std::string once = hits(R"(,"probability":0.3,"seed":7)", 2000);
  EXPECT_EQ(hits(R"(,"probability":0.3,"seed":7)", 2000), once);
  EXPECT_NE(hits(R"(,"probability":0.3,"seed":8)", 2000), once);
  const auto count = std::count(once.begin(), once.end(), 'x');
  EXPECT_GT(count, 500);
  EXPECT_LT(count, 700);
  EXPECT_EQ(hits(R"(,"probability":0)", 100), std::string(100, '.'));
  EXPECT_EQ(hits(R"(,"probability":1)", 100), std::string(100, 'x'));
}

TEST(Fault_Script, is_for_its_method_path_and_query) {
  Fault_Script faults;
  faults.add(script(R"({"method":"PUT","path":"/a","kind":"reset_before_commit"},
                       {"path":"/b/*","kind":"reset_before_commit"},
                       {"path":"/c","query":"uuid=7","kind":"reset_before_commit"})"));
  const auto hit = [&faults](Method method, const std::string& path,
                             const std::string& query = "") {
    return faults.choose(method, path, query) != nullptr;
  };
  EXPECT_TRUE(hit(Method::put, "/a"));
  EXPECT_FALSE(hit(Method::get, "/a"));
  EXPECT_FALSE(hit(Method::put, "/a/b"));
  EXPECT_TRUE(hit(Method::get, "/b/"));
  EXPECT_TRUE(hit(Method::del, "/b/c/d"));
  EXPECT_FALSE(hit(Method::get, "/b"));
  EXPECT_TRUE(hit(Method::get, "/c", "x=1&uuid=78"));
  EXPECT_FALSE(hit(Method::get, "/c", "uuid=8"));
  EXPECT_FALSE(hit(Method::get, "/c"));
}

TEST(Fault_Script, does_the_first_that_hits_alone_and_counts) {
  Fault_Script faults;
  EXPECT_EQ(Value(faults.add(script(
                R"({"path":"/zq/r/x","kind":"reset_before_commit","times":1},
                   {"path":"/zq/r/x","kind":"cut","bytes":5,"every":2})"))),
            Value(Array{1, 2}));
  EXPECT_EQ(hits(faults, 4), "x.x.");
  const Array list = faults.list();
  ASSERT_EQ(list.size(), 2U);
  const Object& first = list[0].get_obj();
  EXPECT_EQ(first.at("id"), Value(1));
  EXPECT_EQ(first.at("kind"), Value("reset_before_commit"));
  EXPECT_EQ(first.at("matched"), Value(4));
  EXPECT_EQ(first.at("chosen"), Value(1));
  EXPECT_EQ(first.at("fired"), Value(0)) << "nothing was done on the wire";
  const Object& second = list[1].get_obj();
  EXPECT_EQ(second.at("bytes"), Value(5));
  EXPECT_EQ(second.at("matched"), Value(3)) << "the first request was the other's";
  EXPECT_EQ(second.at("chosen"), Value(1));
}

TEST(Fault_Script, a_chosen_fault_outlives_its_script) {
  Fault_Script faults;
  faults.add(script(R"({"path":"/zq/r/x","kind":"reset_before_commit"})"));
  const Fault_Pointer chosen = faults.choose(Method::get, "/zq/r/x", "");
  EXPECT_EQ(faults.clear(), 1);
  EXPECT_EQ(faults.clear(), 0);
  EXPECT_TRUE(faults.list().empty());
  EXPECT_EQ(chosen->kind, Fault_Kind::reset_before_commit);
  EXPECT_EQ(hits(faults, 1), ".");
}

TEST(Fault_Script, adds_all_or_none) {
  Fault_Script faults;
  EXPECT_THROW(faults.add(script(R"({"path":"/a","kind":"reset_before_commit"},
                                    {"path":"/a","kind":"nonsense"})")),
               Request_Error);
  EXPECT_TRUE(faults.list().empty());
}

TEST(Fault_Script, is_bounded) {
  std::string many = R"({"path":"/a","kind":"reset_before_commit"})";
  for (int i = 1; i < 1000; ++i)
    many += R"(,{"path":"/a","kind":"reset_before_commit"})";
  Fault_Script faults;
  faults.add(script(many));
  EXPECT_THROW(faults.add(script(R"({"path":"/a","kind":"reset_before_commit"})")), Request_Error);
  EXPECT_EQ(faults.clear(), 1000);
}

TEST(Fault_Script, refuses_a_script_that_makes_no_sense) {
  EXPECT_EQ(refusal("{}"), "400 faults: is missing");
  EXPECT_EQ(refusal(R"({"faults":[],"mode":1})"), "400 mode: is unknown");
  EXPECT_EQ(refusal(R"({"faults":[5]})"), "400 faults[0]: must be an object");
  const auto one = [](const std::string& fault) {
    return refusal(R"({"faults":[{"path":"/a","kind":"cut","bytes":1},)" + fault + "]}");
  };
  EXPECT_EQ(one(R"({"kind":"cut","bytes":1})"), "400 faults[1].path: is missing");
  EXPECT_EQ(one(R"({"path":"/a"})"), "400 faults[1].kind: is missing");
  EXPECT_EQ(one(R"({"path":"/a","kind":"x"})"), "422 faults[1].kind: \"x\" is not a kind of fault");
  EXPECT_EQ(one(R"({"path":"/a","kind":"cut"})"), "400 faults[1].bytes: is missing");
  EXPECT_EQ(one(R"({"path":"/a","kind":"cut","bytes":1,"status":500})"),
            "400 faults[1].status: is unknown");
  EXPECT_EQ(one(R"({"path":"/a","kind":"status"})"),
            "422 faults[1].status: must be from 200 to 599");
  EXPECT_EQ(one(R"({"path":"/a","kind":"delay"})"), "400 faults[1].delay_ms: is missing");
  EXPECT_EQ(one(R"({"path":"/a","kind":"delay","delay_ms":600001})"),
            "422 faults[1].delay_ms: must be from 0 to 600000");
  EXPECT_EQ(one(R"({"path":"/a","kind":"drip","bytes":0})"),
            "422 faults[1].bytes: must be from 1 to 1048576");
  EXPECT_EQ(one(R"({"path":"/a","kind":"drip","interval_ms":0})"),
            "422 faults[1].interval_ms: must be from 1 to 600000");
  EXPECT_EQ(one(R"({"path":"/a","kind":"huge"})"),
            "422 faults[1].bytes: must be from 2 to 1099511627776");
  EXPECT_EQ(
      one(R"({"path":"/a","kind":"wrong_type","type":"int"})"),
      "422 faults[1].type: \"int\" is not one of string, number, boolean, null, array, object");
  EXPECT_EQ(one(R"({"path":"/a","kind":"cut","bytes":1,"method":"PATCH"})"),
            "422 faults[1].method: is not a method of the service");
  EXPECT_EQ(one(R"({"path":"/a","kind":"cut","bytes":1,"every":0})"),
            "422 faults[1].every: must be 1 or more");
  EXPECT_EQ(one(R"({"path":"/a","kind":"cut","bytes":1,"probability":1.5})"),
            "422 faults[1].probability: must be from 0 to 1");
  EXPECT_EQ(one(R"({"path":"/a","kind":"cut","bytes":1,"times":-1})"),
            "422 faults[1].times: must not be negative");
}

TEST(Fault_Script, a_scripted_status_has_an_error_body_unless_one_is_given) {
  const auto body = [](const std::string& rest) {
    Fault_Script faults;
    faults.add(script(R"({"path":"/zq/r/x","kind":"status")" + rest + "}"));
    return faults.choose(Method::get, "/zq/r/x", "")->body;
  };
  EXPECT_EQ(body(R"(,"status":503)"), R"({"error":{"code":503,"message":"scripted fault"}})");
  EXPECT_EQ(body(R"(,"status":404)"), R"({"error":{"code":-404,"message":"scripted fault"}})");
  EXPECT_EQ(body(R"(,"status":200)"), "");
  EXPECT_EQ(body(R"(,"status":500,"body":"<html>")"), "<html>");
  EXPECT_EQ(body(R"(,"status":500,"body":"")"), "");
  EXPECT_EQ(body(R"(,"status":200,"body":{"rows":[]})"), R"({"rows":[]})");
}

TEST(Fault_Script, changes_the_type_of_an_answer_or_a_member) {
  const auto changed = [](const std::string& rest, const std::string& body) {
    Fault_Script faults;
    faults.add(script(R"({"path":"/zq/r/x","kind":"wrong_type")" + rest + "}"));
    Response answer{200, body, {}};
    return change_type(*faults.choose(Method::get, "/zq/r/x", ""), answer) ? answer.body : "no";
  };
  EXPECT_EQ(changed("", R"({"rows":[]})"), R"("wrong type")");
  EXPECT_EQ(changed(R"(,"type":"array")", R"({"rows":[]})"), R"(["wrong type"])");
  EXPECT_EQ(changed(R"(,"type":"null")", R"({"rows":[]})"), "null");
  EXPECT_EQ(changed(R"(,"member":"rows")", R"({"a":1,"rows":[]})"),
            R"({"a":1,"rows":"wrong type"})");
  EXPECT_EQ(changed(R"(,"member":"rows","type":"number")", R"({"rows":[]})"), R"({"rows":4711})");
  EXPECT_EQ(changed(R"(,"member":"rows","type":"boolean")", R"({"rows":[]})"), R"({"rows":true})");
  EXPECT_EQ(changed(R"(,"member":"rows","type":"object")", R"({"rows":[]})"),
            R"({"rows":{"wrong":"type"}})");
  EXPECT_EQ(changed(R"(,"member":"rows","type":"array")", R"({"rows":[]})"), "no") << "is one";
  EXPECT_EQ(changed(R"(,"member":"none")", R"({"rows":[]})"), "no");
  EXPECT_EQ(changed(R"(,"member":"rows")", "[]"), "no");
  EXPECT_EQ(changed("", ""), "no");
}

TEST(Fault_Script, stays_as_it_is_when_a_request_is_refused) {
  test::Lab_Service lab;
  const std::string path = "/zq/lab/faults";
  const std::string body = R"({"faults":[{"path":"/zq/r/x","kind":"reset_before_commit"}]})";
  EXPECT_EQ(lab.refusal("POST", path + "?x=1", body), "400 query field 'x' is unknown");
  EXPECT_EQ(lab.good("GET", path), object(R"({"faults":[]})"));
  EXPECT_EQ(lab.ask("POST", path, body).status, 201U);
  EXPECT_EQ(lab.refusal("DELETE", path + "?x=1"), "400 query field 'x' is unknown");
  EXPECT_EQ(lab.good("GET", path).get_obj().at("faults").get_array().size(), 1U);
}

TEST(Fault_Script, garbage_is_the_same_for_the_same_seed) {
  EXPECT_EQ(random_bytes(1, 100), random_bytes(1, 100));
  EXPECT_NE(random_bytes(1, 100), random_bytes(2, 100));
  EXPECT_EQ(random_bytes(1, 7).size(), 7U);
}

}  // namespace
}  // namespace zqpool::service
