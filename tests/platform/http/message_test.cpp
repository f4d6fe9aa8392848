#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>

#include "platform/http/http_exchange_report.h"
#include "platform/http/http_message.h"

namespace {

TEST(HTTP_Message, method_words) {
  EXPECT_STREQ(http_method_name(HTTP_METHOD_CONNECT), "CONNECT");
  EXPECT_STREQ(http_method_name(HTTP_METHOD_COPY), "COPY");
  EXPECT_STREQ(http_method_name(HTTP_METHOD_DELETE), "DELETE");
  EXPECT_STREQ(http_method_name(HTTP_METHOD_GET), "GET");
  EXPECT_STREQ(http_method_name(HTTP_METHOD_HEAD), "HEAD");
  EXPECT_STREQ(http_method_name(HTTP_METHOD_MKCOL), "MKCOL");
  EXPECT_STREQ(http_method_name(HTTP_METHOD_MOVE), "MOVE");
  EXPECT_STREQ(http_method_name(HTTP_METHOD_OPTIONS), "OPTIONS");
  EXPECT_STREQ(http_method_name(HTTP_METHOD_POST), "POST");
  EXPECT_STREQ(http_method_name(HTTP_METHOD_PUT), "PUT");
  EXPECT_STREQ(http_method_name(HTTP_METHOD_TRACE), "TRACE");
}

TEST(HTTP_Message, a_method_without_a_word) {
  EXPECT_STREQ(http_method_name(HTTP_NO_METHOD), "");
  EXPECT_STREQ(http_method_name(NUM_HTTP_METHOD_STRINGS), "");
  EXPECT_STREQ(http_method_name(1 << 30), "");
}

TEST(HTTP_Message, header_texts_are_distinct_and_where_they_belong) {
  std::set<std::string> texts;
  for (int id = 0; id < NUM_HTTP_HEAD_STRINGS; ++id)
    texts.insert(http_head_name(id));
  EXPECT_EQ(texts.size(), static_cast<std::size_t>(NUM_HTTP_HEAD_STRINGS));
  EXPECT_EQ(texts.count(""), 0U);
  EXPECT_STREQ(http_head_name(0), "Accept");
  EXPECT_STREQ(http_head_name(HTTP_HEAD_HOST), "Host");
  EXPECT_STREQ(http_head_name(HTTP_HEAD_CONTENT_TYPE), "Content-Type");
  EXPECT_STREQ(http_head_name(HTTP_HEAD_WWW_AUTHENTICATE), "WWW-Authenticate");
  EXPECT_EQ(static_cast<int>(HTTP_HEAD_X_ACCESS_KEY), 48);
  EXPECT_STREQ(http_head_name(48), "X-Access-Key");
  EXPECT_STREQ(http_head_name(49), "X-Request-Id");
}

TEST(HTTP_Message, a_header_without_a_text) {
  EXPECT_STREQ(http_head_name(-1), "");
  EXPECT_STREQ(http_head_name(NUM_HTTP_HEAD_STRINGS), "");
}

TEST(HTTP_Headers, put_replaces_only_when_told) {
  HTTP_Headers headers;
  EXPECT_EQ(headers.get(HTTP_HEAD_X_ACCESS_KEY), nullptr);
  headers.put(HTTP_HEAD_X_ACCESS_KEY, "one", true);
  EXPECT_STREQ(headers.get(HTTP_HEAD_X_ACCESS_KEY), "one");
  headers.put(HTTP_HEAD_X_ACCESS_KEY, "two", false);
  EXPECT_STREQ(headers.get(HTTP_HEAD_X_ACCESS_KEY), "one");
  headers.put(HTTP_HEAD_X_ACCESS_KEY, "three", true);
  EXPECT_STREQ(headers.get(HTTP_HEAD_X_ACCESS_KEY), "three");
  headers.put(HTTP_HEAD_ACCEPT, "x", false);
  ASSERT_EQ(headers.fields().size(), 2U);
  EXPECT_EQ(headers.fields()[1].first, HTTP_HEAD_ACCEPT);
  headers.clear();
  EXPECT_EQ(headers.get(HTTP_HEAD_ACCEPT), nullptr);
}

TEST(HTTP_Headers, put_ignores_unknown_ids_and_null) {
  HTTP_Headers headers;
  headers.put(-1, "x", true);
  headers.put(NUM_HTTP_HEAD_STRINGS, "x", true);
  headers.put(HTTP_HEAD_ACCEPT, nullptr, true);
  EXPECT_TRUE(headers.fields().empty());
}

TEST(HTTP_Request, keeps_what_it_was_made_of) {
  HTTP_Request request(HTTP_METHOD_PUT, "/zq/x", true);
  EXPECT_EQ(request.method(), HTTP_METHOD_PUT);
  EXPECT_EQ(request.path(), "/zq/x");
  EXPECT_TRUE(request.keep_alive());
  EXPECT_EQ(request.query(), "");
  request.query_string("a=b");
  EXPECT_EQ(request.query(), "a=b");
  request.query_string(nullptr);
  EXPECT_EQ(request.query(), "");
  EXPECT_EQ(HTTP_Request(HTTP_METHOD_GET, nullptr, false).path(), "/");
}

TEST(HTTP_Response, has_no_status_before_an_answer) {
  EXPECT_EQ(HTTP_Response().status(), 0U);
}

TEST(HTTP_Exchange_Report, every_error_and_phase_has_a_name_of_its_own) {
  std::set<std::string> errors;
  for (int i = 0; i <= static_cast<int>(HTTP_Error::status); ++i) {
    errors.insert(http_error_name(static_cast<HTTP_Error>(i)));
  }
  EXPECT_EQ(errors.size(), static_cast<std::size_t>(HTTP_Error::status) + 1);
  EXPECT_EQ(errors.count(""), 0U);
  EXPECT_STREQ(http_error_name(HTTP_Error::timeout), "timeout");
  std::set<std::string> phases;
  for (int i = 0; i <= static_cast<int>(HTTP_Phase::done); ++i) {
    phases.insert(http_phase_name(static_cast<HTTP_Phase>(i)));
  }
  EXPECT_EQ(phases.size(), static_cast<std::size_t>(HTTP_Phase::done) + 1);
  EXPECT_EQ(phases.count(""), 0U);
  EXPECT_STREQ(http_phase_name(HTTP_Phase::name), "name look-up");
  EXPECT_STREQ(http_phase_name(HTTP_Phase::connect), "connect");
}

TEST(HTTP_Exchange_Report, is_fresh_before_the_first_call) {
  HTTP_Exchange_Report report;
  report.method = HTTP_METHOD_GET;
  std::thread([&report] { report = last_http_exchange(); }).join();
  EXPECT_EQ(report.method, -1);
  EXPECT_EQ(report.attempts, 0);
  EXPECT_EQ(report.phase, HTTP_Phase::none);
  EXPECT_EQ(report.request_id, "");
}

TEST(HTTP_Exchange_Report, the_outcome_is_unknown_only_after_sending_without_a_final_word) {
  HTTP_Exchange_Report report;
  for (int i = 0; i <= static_cast<int>(HTTP_Error::status); ++i) {
    report.error = static_cast<HTTP_Error>(i);
    report.sent = false;
    EXPECT_FALSE(report.outcome_unknown()) << http_error_name(report.error);
    report.sent = true;
    const bool final_word = report.error == HTTP_Error::none ||
                            report.error == HTTP_Error::status ||
                            report.error == HTTP_Error::bad_json;
    const bool before_sending = report.error == HTTP_Error::refused_request ||
                                report.error == HTTP_Error::name ||
                                report.error == HTTP_Error::connect;
    EXPECT_EQ(report.outcome_unknown(), !final_word && !before_sending)
        << http_error_name(report.error);
  }
}

}  // namespace
