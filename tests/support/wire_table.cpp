#include "tests/support/wire_table.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <regex>

#include "platform/json/json_dump.h"
#include "tests/support/guards.h"

namespace zqpool::test {
namespace {

std::string url_start(bool ssl) {
  return ssl ? "https" : "http";
}

void check_framing(const Recorded_Request& sent, const Scripted_Server& server, bool keeps) {
  EXPECT_EQ(sent.line, sent.method + ' ' + sent.target + " HTTP/1.1");
  EXPECT_EQ(sent.header_count("Host"), 1U);
  EXPECT_EQ(sent.header("Host"), server.host() + ':' + std::to_string(server.port()));
  EXPECT_LE(sent.header_count("Connection"), 1U);
  EXPECT_EQ(sent.header("Connection"), keeps ? "" : "close");
  EXPECT_EQ(sent.header_count("X-Request-Id"), 1U);
  EXPECT_NE(sent.header("X-Request-Id"), "");
  EXPECT_EQ(sent.header_count("Transfer-Encoding"), 0U);
  if (sent.body.empty()) {
    EXPECT_EQ(sent.header_count("Content-Type"), 0U);
    if (sent.header_count("Content-Length") != 0) {
      EXPECT_TRUE(sent.method == "POST" || sent.method == "PUT") << sent.line;
      EXPECT_EQ(sent.header("Content-Length"), "0");
    }
  } else {
    EXPECT_EQ(sent.header_count("Content-Type"), 1U);
    EXPECT_EQ(sent.header("Content-Type"), "application/json");
    EXPECT_EQ(sent.header_count("Content-Length"), 1U);
  }
}

/// The body with every UUID in it as "{uuid}".
std::string without_uuids(const std::string& body) {
  static const std::regex uuid("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}");
  return std::regex_replace(body, uuid, "{uuid}");
}

void check_request(const Expected_Request& wanted, const Recorded_Request& sent) {
  EXPECT_EQ(sent.method, wanted.method);
  EXPECT_EQ(sent.target, wanted.target);
  const bool any_uuid = wanted.body.find("{uuid}") != std::string::npos;
  EXPECT_EQ(any_uuid ? without_uuids(sent.body) : sent.body, wanted.body);
  EXPECT_EQ(sent.header_count("X-Access-Key"), wanted.access_key.empty() ? 0U : 1U);
  EXPECT_EQ(sent.header("X-Access-Key"), wanted.access_key);
  for (const auto& [name, value] : wanted.headers) {
    EXPECT_EQ(sent.header_count(name), 1U) << name;
    EXPECT_EQ(sent.header(name), value) << name;
  }
}

void check_lines(const Wire_Row& row, const std::vector<Log_Line>& logged, unsigned short port) {
  for (std::size_t i = 0; i < std::max(row.lines.size(), logged.size()); ++i) {
    if (i >= logged.size()) {
      ADD_FAILURE() << "not logged: " << row.lines[i].priority << ' ' << row.lines[i].text;
    } else if (i >= row.lines.size()) {
      ADD_FAILURE() << "logged, too: " << logged[i];
    } else {
      const Expected_Line& wanted = row.lines[i];
      EXPECT_EQ(logged[i].priority, wanted.priority) << logged[i];
      EXPECT_TRUE(line_matches(wanted.text, logged[i].text, port))
          << "wanted: " << wanted.text << "\nlogged: " << logged[i].text;
      EXPECT_TRUE(logged[i].has_place() || !wanted.with_place) << logged[i];
      if (!wanted.file.empty()) {
        EXPECT_EQ(logged[i].file, wanted.file) << logged[i];
      }
    }
  }
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Wire_Row& row) {
  return out << row.name;
}

Expected_Line client_error(const std::string& method, const std::string& path, bool ssl) {
  // The scheme is left open, so that one row holds over HTTP and HTTPS.
  const std::string scheme = ssl ? url_start(ssl) : "{any}";
  return {"LM_ERROR", method + ' ' + scheme + "://127.0.0.1:{port}" + path + "{any}\n", false};
}

bool line_matches(const std::string& pattern, const std::string& text, unsigned short port) {
  std::string expression;
  for (std::size_t at = 0; at < pattern.size();) {
    const auto takes = [&](const std::string& mark, const std::string& meaning) {
      if (pattern.compare(at, mark.size(), mark) != 0) return false;
      expression += meaning;
      at += mark.size();
      return true;
    };
    if (takes("{port}", std::to_string(port)) || takes("{place}", "[^\\s:]+:[0-9]+") ||
        takes("{number}", "[0-9]+") || takes("{any}", ".*") || takes("{stack}", "(.*\n)*")) {
      continue;
    }
    const char c = pattern[at++];
    const bool plain = std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '\n' || c == ' ' ||
                       static_cast<unsigned char>(c) > 0x7e;
    if (!plain) expression += '\\';
    expression += c;
  }
  return std::regex_match(text, std::regex(expression));
}

void play(const Wire_Row& row, bool ssl, bool silent) {
  Server_Options options;
  if (ssl) options.identity = &Test_Certificates::instance().server;
  Scripted_Server server(options);
  for (const Answer& answer : row.answers)
    server.queue(answer);
  const Options_Guard guard(ssl ? options_with_test_ca() : HTTP_Options::get());
  const Sleep_Recorder recorder;
  Log_Capture log;
  const testing::ScopedTrace mode(__FILE__, __LINE__, silent ? "silent" : "logging");

  Outcome outcome;
  try {
    const std::optional<Log_Silence> silence =
        silent ? std::make_optional<Log_Silence>() : std::nullopt;
    outcome = row.call(server.endpoint());
  } catch (const std::exception& e) {
    ADD_FAILURE() << "the call threw: " << e.what();
  }
  EXPECT_TRUE(server.settle()) << "a connection was left open";

  EXPECT_EQ(outcome.result, row.result);
  json_spirit::Value outputs;
  ASSERT_TRUE(json_spirit::read(row.outputs, outputs)) << "the row's outputs are no JSON";
  const json_spirit::Value brought(outcome.outputs);
  EXPECT_TRUE(brought == outputs) << "wanted: " << JSON_Dump(outputs, false).str()
                                  << "\nbrought: " << JSON_Dump(brought, false).str();

  const std::vector<Recorded_Request> sent = server.requests();
  EXPECT_EQ(sent.size(), row.requests.size());
  for (std::size_t i = 0; i < sent.size(); ++i) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, "request " + std::to_string(i));
    check_framing(sent[i], server, row.keeps_connection);
    if (i < row.requests.size()) check_request(row.requests[i], sent[i]);
  }
  EXPECT_EQ(server.unused_answers(), 0U);
  EXPECT_EQ(server.unscripted_requests(), 0U);

  const std::vector<std::chrono::milliseconds> none;
  const auto pauses = recorder.pauses();
  if (row.pauses_vary) {
    EXPECT_EQ(pauses.size(), row.pauses.value_or(none).size());
  } else {
    EXPECT_EQ(pauses, row.pauses.value_or(none));
  }
  if (silent) {
    EXPECT_THAT(log.lines(), testing::IsEmpty());
  } else {
    check_lines(row, log.take(), server.port());
  }
}

std::ostream& operator<<(std::ostream& out, const Play& play) {
  return out << play.row.name << (play.silent ? "_silent" : play.ssl ? "_https" : "_http");
}

std::vector<Play> plays(const std::vector<Wire_Row>& rows) {
  std::vector<Play> all;
  all.reserve(rows.size() + 2);
  for (const Wire_Row& row : rows)
    all.push_back({row, false, false});
  all.push_back({rows.front(), true, false});
  const auto logs = [](const Wire_Row& row) { return !row.lines.empty(); };
  const auto logging = std::find_if(rows.begin(), rows.end(), logs);
  if (logging != rows.end()) all.push_back({*logging, false, true});
  return all;
}

std::vector<Play> plays_over_both(const std::vector<Wire_Row>& rows) {
  std::vector<Play> all = plays(rows);
  for (auto row = rows.begin() + 1; row != rows.end(); ++row)
    all.push_back({*row, true, false});
  return all;
}

std::string Wire_Table::name(const testing::TestParamInfo<Play>& play) {
  return testing::PrintToString(play.param);
}

}  // namespace zqpool::test
