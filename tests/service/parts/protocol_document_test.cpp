#include "tests/service/fixtures/protocol_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "service/assemble.h"
#include "tests/service/fixtures/lab_service.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;

// ---- the checker

const char* const small_document = R"(
paths:
  /zq/r/thing:
    get:
      parameters:
        - {name: uuid, in: query, required: true, schema: {type: string}}
        - {name: limit, in: query, schema: {type: integer, minimum: 0}}
        - $ref: '#/components/parameters/mode'
      responses:
        '200': {$ref: '#/components/responses/Thing'}
        default: {$ref: '#/components/responses/Refusal'}
    delete:
      responses:
        '204': {description: gone}
        default: {$ref: '#/components/responses/Refusal'}
    post:
      requestBody:
        content:
          application/json:
            schema:
              type: object
              required: [name]
              additionalProperties: false
              properties:
                name: {type: string, minLength: 1, maxLength: 3, pattern: '^[a-z]*$'}
                size: {type: integer}
      responses:
        '200': {$ref: '#/components/responses/Thing'}
        default: {$ref: '#/components/responses/Refusal'}
components:
  parameters:
    mode: {name: mode, in: query, schema: {type: string, enum: ['0', '1']}}
  responses:
    Thing:
      content:
        application/json:
          schema: {$ref: '#/components/schemas/Thing'}
    Refusal:
      content:
        application/json:
          schema:
            type: object
            required: [error]
            properties: {error: {type: string}}
  schemas:
    Thing:
      oneOf:
        - {type: object, maxProperties: 0}
        - type: object
          required: [list]
          additionalProperties: {type: integer}
          properties:
            list: {type: array, minItems: 1, items: {type: integer, maximum: 9}}
            none: {type: string, nullable: true}
            all: {allOf: [{type: boolean}]}
)";

class Checker : public testing::Test {
 protected:
  std::string answer(const std::string& text, unsigned status = 200) {
    return document_.contradiction({"GET", "/zq/r/thing?uuid=1", "", status, text});
  }
  std::string query(const std::string& text, unsigned status = 200) {
    return document_.contradiction(
        {"GET", "/zq/r/thing" + text, "", status, status == 200 ? "{}" : R"({"error":"e"})"});
  }
  std::string body(const std::string& text, unsigned status = 200) {
    return document_.contradiction(
        {"POST", "/zq/r/thing", text, status, status == 200 ? "{}" : R"({"error":"e"})"});
  }

  Protocol_Document document_{small_document};
};

TEST_F(Checker, takes_what_is_described) {
  EXPECT_EQ(answer("{}"), "");
  EXPECT_EQ(answer(R"({"list":[1],"none":null,"all":true,"more":5})"), "");
  EXPECT_EQ(answer(R"({"error":"e"})", 404), "");
  EXPECT_EQ(query("?uuid=a%20b+c&limit=5&mode=1"), "");
  EXPECT_EQ(body(R"({"name":"abc","size":5})"), "");
  EXPECT_EQ(document_.contradiction({"DELETE", "http://host:1/zq/r/thing", "", 204, ""}), "");
  EXPECT_EQ(document_.contradiction({"GET", "/zq/lab/x", "", 200, "?"}), "");
  EXPECT_EQ(document_.contradiction({"OPTIONS", "/zq/r/thing", "", 204, ""}), "");
  EXPECT_EQ(document_.contradiction({"HEAD", "/zq/r/thing?uuid=1", "", 200, ""}), "");
  EXPECT_EQ(document_.contradiction({"PATCH", "/zq/r/thing", "", 405, R"({"error":"e"})"}), "");
}

TEST_F(Checker, tells_an_answer_that_is_not_described) {
  EXPECT_THAT(answer("[]"), HasSubstr("is not of type object"));
  EXPECT_THAT(answer(R"({"other":1})"), HasSubstr("lacks list"));
  EXPECT_THAT(answer(R"({"list":[]})"), HasSubstr("below minItems"));
  EXPECT_THAT(answer(R"({"list":[10]})"), HasSubstr("list[0] is above maximum"));
  EXPECT_THAT(answer(R"({"list":[18446744073709551615]})"), HasSubstr("above 2^63-1"));
  EXPECT_THAT(answer(R"({"list":[1.5]})"), HasSubstr("list[0] is not of type integer"));
  EXPECT_THAT(answer(R"({"list":[1],"more":"x"})"), HasSubstr("more is not of type integer"));
  EXPECT_THAT(answer(R"({"list":[1],"all":1})"), HasSubstr("all is not of type boolean"));
  EXPECT_THAT(answer(R"({"list":[1],"none":1})"), HasSubstr("none is not of type string"));
  EXPECT_THAT(answer("{"), HasSubstr("is not JSON"));
  EXPECT_THAT(answer(""), HasSubstr("is not JSON"));
  EXPECT_THAT(answer("{}", 201), HasSubstr("no answer 201 is described"));
  EXPECT_THAT(answer("{}", 404), HasSubstr("lacks error"));
  EXPECT_THAT(document_.contradiction({"DELETE", "/zq/r/thing", "", 204, "{}"}),
              HasSubstr("has a body where there is none"));
  EXPECT_THAT(document_.contradiction({"HEAD", "/zq/r/thing?uuid=1", "", 200, "{}"}),
              HasSubstr("HEAD has a body"));
  EXPECT_THAT(document_.contradiction({"GET", "/zq/r/other", "", 200, "{}"}),
              HasSubstr("undescribed operation"));
  EXPECT_THAT(document_.contradiction({"get", "/zq/r/thing?uuid=1", "", 200, "{}"}),
              HasSubstr("undescribed operation"));
}

TEST_F(Checker, tells_a_request_that_is_carried_out_though_it_is_not_described) {
  EXPECT_THAT(query(""), HasSubstr("lacks uuid"));
  EXPECT_THAT(query("?uuid=1&uuid=2"), HasSubstr("two fields uuid"));
  EXPECT_THAT(query("?uuid=1&x=2"), HasSubstr("unknown field x"));
  EXPECT_THAT(query("?uuid=1&limit=-1"), HasSubstr("limit is below minimum"));
  EXPECT_THAT(query("?uuid=1&limit=x"), HasSubstr("limit is not of type integer"));
  EXPECT_THAT(query("?uuid=1&mode=2"), HasSubstr("not in the enumeration"));
  EXPECT_THAT(query("?uuid=%4"), HasSubstr("broken escape"));
  EXPECT_THAT(body(""), HasSubstr("the body is not JSON"));
  EXPECT_THAT(body("{}"), HasSubstr("lacks name"));
  EXPECT_THAT(body(R"({"name":""})"), HasSubstr("below minLength"));
  EXPECT_THAT(body(R"({"name":"abcd"})"), HasSubstr("above maxLength"));
  EXPECT_THAT(body(R"({"name":"A"})"), HasSubstr("does not look like"));
  EXPECT_THAT(body(R"({"name":"a","x":1})"), HasSubstr("unknown member x"));
  EXPECT_THAT(document_.contradiction({"GET", "/zq/r/thing?uuid=1", "{}", 200, "{}"}),
              HasSubstr("where there is none"));
}

TEST_F(Checker, lets_a_service_refuse_anything) {
  EXPECT_EQ(query("", 400), "");
  EXPECT_EQ(body("{", 400), "");
}

TEST_F(Checker, does_not_pass_over_what_it_does_not_know) {
  Protocol_Document document(R"(
paths:
  /p:
    get:
      responses:
        '200': {content: {application/json: {schema: {type: object, minimal: 5}}}}
components: {responses: {Refusal: {}}}
)");
  EXPECT_THROW(document.contradiction({"GET", "/p", "", 200, "{}"}), std::logic_error);
  EXPECT_THROW(Protocol_Document("a: ["), std::runtime_error);
}

// ---- the document

std::string joined(std::vector<std::string> methods) {
  std::sort(methods.begin(), methods.end());
  std::string out;
  for (const std::string& method : methods)
    out += method + ' ';
  return out;
}

TEST(Protocol_Description, has_every_path_of_the_service_and_no_other) {
  const service::Resources resources = service::assemble();
  std::map<std::string, std::string> served;
  for (const auto& [path, methods] : resources.router.methods())
    served[path] = joined(methods);
  std::map<std::string, std::string> described;
  for (const auto& [path, methods] : Protocol_Document::instance().paths())
    described[path] = joined(methods);
  EXPECT_EQ(served, described);
}

TEST(Protocol_Description, its_examples_are_what_it_describes) {
  EXPECT_EQ(Protocol_Document::instance().example_contradictions(), "");
}

}  // namespace
}  // namespace zqpool::test
