#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_server.h"

namespace zqpool::test {

/// A request that must be sent, checked to the byte: method, target, body, and the named headers,
/// each exactly once. The harness also checks Host, "Connection: close", X-Request-Id, and that
/// Content-Type and Content-Length are sent only with a body (a POST or PUT without one may send
/// Content-Length: 0).
struct Expected_Request {
  std::string method;
  std::string target;
  std::string body;        ///< "" for none; "{uuid}" in it stands for any
  std::string access_key;  ///< "" for no such header
  Header_List headers;     ///< further ones
};

/// A line that must be logged. In `text`, "{port}" stands for the service's port, "{place}" for a
/// source file and line, "{number}" for digits, "{any}" for any text within the line, "{stack}" for
/// lines of a call stack.
struct Expected_Line {
  std::string priority;
  std::string text;
  bool with_place = true;  ///< source file and line were recorded with it
  std::string file{};      ///< which source file; "" for any
};

/// The result of a call, and its outputs as one JSON object.
struct Outcome {
  bool result = false;
  json_spirit::Object outputs;
};

/// One row of a wire table.
///
/// @code
///   Wire_Row row;
///   row.name = "device_with_one_row";
///   row.call = [](const Endpoint& to) {
///     Object device;
///     const bool ok =
///         Pool_Metadata_Manager::get_device(to.host, to.port, to.ssl, "key", "u", device);
///     return Outcome{ok, {{"device", device}}};
///   };
///   row.requests = {{"GET", "/zq/r/storage/catalog/device?url=u", "", "key"}};
///   row.answers = {json_answer(200, R"({"rows":[{"id":1}]})")};
///   row.result = true;
///   row.outputs = R"({"device":{"id":1}})";
/// @endcode
struct Wire_Row {
  std::string name;  ///< letters, digits and underscores
  std::function<Outcome(const Endpoint&)> call;
  std::vector<Expected_Request> requests;
  std::vector<Answer> answers;
  bool result = false;
  std::string outputs = "{}";        ///< JSON text
  std::vector<Expected_Line> lines;  ///< all that is logged, in order
  /// The pauses between attempts; absent: there must be none.
  std::optional<std::vector<std::chrono::milliseconds>> pauses;
  /// Pauses are not compared (jitter), only counted against `pauses`.
  bool pauses_vary = false;
  /// The client keeps its connection: requests do not say "Connection: close".
  bool keeps_connection = false;
};

std::ostream& operator<<(std::ostream& out, const Wire_Row& row);

/// The line that the REST client logs for a failed exchange on `path` (without query).
Expected_Line client_error(const std::string& method, const std::string& path, bool ssl = false);

/// Plays one row against a server of its own and reports each difference as a test failure.
/// Nothing sleeps meanwhile. With `ssl` over HTTPS, with the test CA trusted. With `silent` no
/// priority is logged, which must change nothing else.
void play(const Wire_Row& row, bool ssl, bool silent = false);

/// Whether `text` matches an Expected_Line's text.
bool line_matches(const std::string& pattern, const std::string& text, unsigned short port);

/// A row and how to play it.
struct Play {
  Wire_Row row;
  bool ssl = false;
  bool silent = false;
};

std::ostream& operator<<(std::ostream& out, const Play& play);

/// Every row over HTTP, the first one also over HTTPS, and the first one that logs also in silence:
/// TLS and logging are the same code for every row of a table.
std::vector<Play> plays(const std::vector<Wire_Row>& rows);
/// The same, and every row over HTTPS.
std::vector<Play> plays_over_both(const std::vector<Wire_Row>& rows);

/// Plays a table. In the test program:
///
/// @code
///   TEST_P(Wire_Table, row_holds) { play(); }
///   INSTANTIATE_TEST_SUITE_P(Catalog, Wire_Table, testing::ValuesIn(plays(rows())),
///                            Wire_Table::name);
/// @endcode
class Wire_Table : public testing::TestWithParam<Play> {
 public:
  /// The row's name followed by "_http", "_https" or "_silent".
  static std::string name(const testing::TestParamInfo<Play>& play);

 protected:
  static void play() { test::play(GetParam().row, GetParam().ssl, GetParam().silent); }
};

}  // namespace zqpool::test
