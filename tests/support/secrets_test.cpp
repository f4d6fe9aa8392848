#include "tests/support/secrets.h"

#include <ace/Log_Msg.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <memory>

#include "platform/http/rest_client.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_server.h"

namespace zqpool::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Secrets_Test, are_found_in_a_text) {
  Secrets::add("open sesame");
  Secrets::add("abc");
  EXPECT_THAT(Secrets::found_in("say open sesame twice"), ElementsAre("open sesame"));
  EXPECT_THAT(Secrets::found_in("abc, open  sesame"), IsEmpty());
}

TEST(Secrets_Test, fail_a_test_that_logs_one) {
  Secrets::add("hidden treasure");
  EXPECT_NONFATAL_FAILURE(
      {
        const Log_Capture log;
        ACE_ERROR((LM_DEBUG, "The hidden treasure lies here.\n"));
      },
      "hidden treasure");
}

TEST(Secrets_Test, fail_a_test_that_logs_one_and_takes_the_line) {
  Secrets::add("hidden treasure");
  EXPECT_NONFATAL_FAILURE(
      {
        Log_Capture log;
        ACE_ERROR((LM_DEBUG, "The hidden treasure lies here.\n"));
        log.take();
      },
      "hidden treasure");
}

TEST(Secrets_Test, the_access_key_that_a_server_is_sent_is_one) {
  Scripted_Server server;
  server.queue(http_answer(200, ""));
  JSON_RESTful_Client client(server.host().c_str(), server.port(), false, false);
  HTTP_Request request(HTTP_METHOD_GET, "/", false);
  request.headers().put(HTTP_HEAD_X_ACCESS_KEY, "met on the way", true);
  json_spirit::Value answer;
  EXPECT_TRUE(client.get(request, &answer));
  EXPECT_THAT(Secrets::found_in("what was met on the way"), ElementsAre("met on the way"));
}

}  // namespace
}  // namespace zqpool::test
