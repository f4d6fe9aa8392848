#include "service/api/request_fields.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "service/api/router.h"
#include "tests/service/fixtures/lab_service.h"

namespace zqpool::service {
namespace {

Object object(const std::string& text) {
  return test::json(text).get_obj();
}

/// "400 url: is missing", or "" when nothing was refused.
std::string refusal(const std::function<void()>& action) {
  try {
    action();
  } catch (const Request_Error& refused) {
    return std::to_string(refused.status()) + ' ' + refused.what();
  }
  return "";
}

Request with_body(const std::string& body, const std::string& type = "application/json") {
  Request request;
  request.method = Method::post;
  request.body = body;
  request.content_type = type;
  return request;
}

Request with_query(const std::string& query) {
  Request request;
  request.query = query;
  return request;
}

TEST(Request_Fields, read_what_is_there) {
  const Object members = object(
      R"({"t":"x","n":5,"f":true,"o":{"a":1},"a":[1],"r":0.5,"w":"b",
          "u":"6f1c2f0e-5d0b-4b6e-9a55-0d6a4f1f7a01"})");
  Request_Fields fields(members, "");
  EXPECT_EQ(fields.text("t"), "x");
  EXPECT_EQ(fields.count("n"), 5);
  EXPECT_TRUE(fields.flag_or("f", false));
  EXPECT_EQ(fields.optional_object("o")->count("a"), 1);
  EXPECT_EQ(fields.optional_array("a")->size(), 1U);
  EXPECT_EQ(fields.optional_real("r"), 0.5);
  EXPECT_EQ(fields.optional_real("n"), 5.0);
  EXPECT_EQ(fields.one_of("w", {"a", "b"}), "b");
  EXPECT_EQ(fields.uuid("u"), "6f1c2f0e-5d0b-4b6e-9a55-0d6a4f1f7a01");
  EXPECT_EQ(refusal([&] { fields.finish(); }), "");
}

TEST(Request_Fields, have_defaults_for_what_is_absent) {
  const Object none;
  Request_Fields fields(none, "");
  EXPECT_EQ(fields.text_or("a", "z"), "z");
  EXPECT_EQ(fields.optional_text("a"), std::nullopt);
  EXPECT_EQ(fields.count_or("a", 7), 7);
  EXPECT_EQ(fields.optional_count("a"), std::nullopt);
  EXPECT_EQ(fields.optional_real("a"), std::nullopt);
  EXPECT_TRUE(fields.flag_or("a", true));
  EXPECT_EQ(fields.optional_object("a"), nullptr);
  EXPECT_EQ(fields.optional_array("a"), nullptr);
  EXPECT_EQ(fields.one_of_or("a", {"x"}, "y"), "y");
}

TEST(Request_Fields, name_the_place_of_what_they_refuse) {
  const Object members =
      object(R"({"s":"x","n":5,"e":"","neg":-1,"big":18446744073709551615,"z":"a\u0000b"})");
  Request_Fields fields(members, "devices[3]");
  EXPECT_EQ(refusal([&] { fields.text("no"); }), "400 devices[3].no: is missing");
  EXPECT_EQ(refusal([&] { fields.text("n"); }),
            "400 devices[3].n: must be a string, not an integer");
  EXPECT_EQ(refusal([&] { fields.text("e"); }), "422 devices[3].e: must not be empty");
  EXPECT_EQ(refusal([&] { fields.text("z"); }),
            "422 devices[3].z: must not contain a zero character");
  EXPECT_EQ(refusal([&] { fields.count("s"); }),
            "400 devices[3].s: must be an integer, not a string");
  EXPECT_EQ(refusal([&] { fields.count("no"); }), "400 devices[3].no: is missing");
  EXPECT_EQ(refusal([&] { fields.count("neg"); }), "422 devices[3].neg: must not be negative");
  EXPECT_EQ(refusal([&] { fields.count("big"); }),
            "422 devices[3].big: is above 9223372036854775807");
  EXPECT_EQ(refusal([&] { fields.flag_or("s", false); }),
            "400 devices[3].s: must be true or false, not a string");
  EXPECT_EQ(refusal([&] { fields.optional_object("s"); }),
            "400 devices[3].s: must be an object, not a string");
  EXPECT_EQ(refusal([&] { fields.optional_array("s"); }),
            "400 devices[3].s: must be an array, not a string");
  EXPECT_EQ(refusal([&] { fields.optional_real("s"); }),
            "400 devices[3].s: must be a number, not a string");
  EXPECT_EQ(refusal([&] { fields.uuid("s"); }), "422 devices[3].s: \"x\" is not a UUID");
  EXPECT_EQ(refusal([&] {
              fields.one_of("s", {"a", "b"});
            }),
            "422 devices[3].s: \"x\" is not one of a, b");
}

TEST(Request_Fields, refuse_what_nobody_asked_for) {
  const Object members = object(R"({"a":1,"uid":"x"})");
  Request_Fields fields(members, "pools[0]");
  fields.count("a");
  EXPECT_EQ(refusal([&] { fields.finish(); }), "400 pools[0].uid: is unknown");
}

TEST(Request_Fields, finish_what_is_inside_them) {
  const Object members = object(R"({"one":{"a":1,"x":2},"many":[{"a":1},{"y":2}]})");
  Request_Fields fields(members, "");
  fields.optional_object("one")->count("a");
  EXPECT_EQ(fields.optional_objects("many").size(), 2U);
  EXPECT_EQ(refusal([&] { fields.finish(); }), "400 many[0].a: is unknown");
  for (Request_Fields& each : fields.optional_objects("many"))
    each.whole();
  EXPECT_EQ(refusal([&] { fields.finish(); }), "400 one.x: is unknown");
  fields.optional_object("one")->whole();
  EXPECT_EQ(refusal([&] { fields.finish(); }), "");
}

TEST(Parsed_Request, has_one_json_object_as_its_body) {
  const auto read = [](const std::string& body, const std::string& type) {
    return refusal([&] { EXPECT_EQ(Parsed_Request(with_body(body, type)).body.count("a"), 1); });
  };
  EXPECT_EQ(read(R"({"a":1})", "application/json"), "");
  EXPECT_EQ(read(R"({"a":1})", ""), "");
  EXPECT_EQ(read(R"({"a":1})", "Application/JSON; charset=utf-8"), "");
  EXPECT_EQ(read("", ""), "400 the body is missing");
  EXPECT_EQ(read("{\"a\":", "").substr(0, 25), "400 the body is not JSON:");
  EXPECT_EQ(read("[1]", ""), "400 the body must be an object, not an array");
  EXPECT_EQ(read("{}", "text/plain"), "415 the body must be application/json");
}

TEST(Parsed_Request, ignores_a_body_where_none_belongs) {
  Request request = with_body("no JSON");
  request.method = Method::del;
  EXPECT_EQ(refusal([&] { Parsed_Request(request).finish(); }), "");
}

TEST(Parsed_Request, refuses_what_nobody_read) {
  Request request = with_body(R"({"a":1,"b":2})");
  request.query = "c=3";
  Parsed_Request parsed(request);
  parsed.body.count("a");
  EXPECT_EQ(refusal([&] { parsed.finish(); }), "400 query field 'c' is unknown");
  parsed.query.count("c");
  EXPECT_EQ(refusal([&] { parsed.finish(); }), "400 b: is unknown");
  parsed.body.count("b");
  EXPECT_EQ(refusal([&] { parsed.finish(); }), "");
}

TEST(Query, is_decoded) {
  Query_Fields query(with_query("url=file%3A%2F%2F%2Fa+b&limit=10&&empty=&bare"));
  EXPECT_EQ(query.text("url"), "file:///a b");
  EXPECT_EQ(query.count("limit"), 10);
  EXPECT_EQ(query.text("empty"), "");
  EXPECT_EQ(query.text("bare"), "");
  EXPECT_EQ(query.text("absent"), std::nullopt);
  EXPECT_EQ(query.count("absent"), std::nullopt);
  EXPECT_EQ(refusal([&] { query.finish(); }), "");
}

TEST(Query, refuses_what_it_cannot_read) {
  EXPECT_EQ(refusal([] { Query_Fields query(with_query("a=%zz")); }),
            "400 the query has a percent sign without two hexadecimal digits");
  EXPECT_EQ(refusal([] { Query_Fields query(with_query("a=%ff")); }), "400 the query is not UTF-8");
  EXPECT_EQ(refusal([] { Query_Fields query(with_query("a=1&%61=2")); }),
            "400 query field 'a' is given twice");
  EXPECT_EQ(refusal([] { Query_Fields query(with_query("a=%00")); }),
            "400 query field 'a' contains a zero character");
}

TEST(Query, refuses_what_nobody_asked_for) {
  Query_Fields query(with_query("uuid=1&uid=2"));
  query.text("uuid");
  EXPECT_EQ(refusal([&] { query.finish(); }), "400 query field 'uid' is unknown");
  EXPECT_EQ(refusal([&] { query.needed_text("no"); }), "400 query field 'no' is missing");
}

TEST(Query, takes_whole_numbers_of_zero_or_more) {
  for (const char* bad :
       {"n=", "n=-1", "n=1x", "n=+1", "n=0x1", "n=1.0", "n=9223372036854775808"}) {
    Query_Fields query(with_query(bad));
    EXPECT_EQ(refusal([&] { query.count("n"); }), "400 query field 'n' must be a number, 0 or more")
        << bad;
  }
  EXPECT_EQ(Query_Fields(with_query("n=9223372036854775807")).count("n"), 9223372036854775807);
}

TEST(Message, codes_of_errors_say_whether_to_try_again) {
  EXPECT_EQ(error_response(404, "m").body, R"({"error":{"code":-404,"message":"m"}})");
  for (const unsigned status : {400U, 401U, 403U, 404U, 405U, 409U, 413U, 415U, 422U, 431U, 500U}) {
    EXPECT_NE(error_response(status, "").body.find(":-"), std::string::npos) << status;
  }
  for (const unsigned status : {408U, 429U, 503U, 507U}) {
    EXPECT_EQ(error_response(status, "").body.find(":-"), std::string::npos) << status;
  }
}

TEST(Message, error_takes_any_bytes) {
  EXPECT_EQ(error_response(400, "\xff\n").body,
            R"({"error":{"code":-400,"message":"\\xFF\\x0A"}})");
}

TEST(Message, methods_have_their_names_and_no_others) {
  for (const char* name : {"GET", "HEAD", "POST", "PUT", "DELETE", "OPTIONS"}) {
    EXPECT_STREQ(method_name(method_from(name)), name);
  }
  for (const char* name : {"", "get", "PATCH", "GETX", "TRACE"}) {
    EXPECT_EQ(method_from(name), Method::other) << name;
  }
}

TEST(Router, finds_a_path_as_a_whole) {
  const auto nothing = [](Connection&, const Parsed_Request&) { return Response(); };
  Router router;
  router.add(Method::get, "/a", Access::read, nothing);
  router.add(Method::put, "/a", Access::write, nothing);
  router.add(Method::post, "/a/b", Access::write, nothing);
  EXPECT_EQ(router.find(Method::get, "/a")->access, Access::read);
  EXPECT_EQ(router.find(Method::put, "/a")->access, Access::write);
  EXPECT_EQ(router.find(Method::head, "/a"), router.find(Method::get, "/a"));
  EXPECT_EQ(router.find(Method::head, "/a/b"), nullptr);
  EXPECT_EQ(router.find(Method::del, "/a"), nullptr);
  for (const char* path : {"", "/", "/a/", "/A", "/a/b/c", "/ab"}) {
    EXPECT_EQ(router.find(Method::get, path), nullptr) << path;
    EXPECT_EQ(router.allowed(path), "") << path;
  }
  EXPECT_EQ(router.allowed("/a"), "GET, HEAD, PUT, OPTIONS");
  EXPECT_EQ(router.allowed("/a/b"), "POST, OPTIONS");
  EXPECT_THROW(router.add(Method::get, "/a", Access::read, nothing), std::logic_error);
}

}  // namespace
}  // namespace zqpool::service
