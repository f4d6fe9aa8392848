#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zqpool::test {

/// Secrets, such as keys, that no log may show. The test kit adds the access keys that it sees and
/// checks the logs; a test adds only secrets that it makes itself. Thread-safe.
class Secrets {
 public:
  /// Ignores texts of fewer than four bytes, which also occur in other words.
  static void add(const std::string& secret);
  /// Those that appear in `text`.
  static std::vector<std::string> found_in(std::string_view text);
  /// Fails the test, naming `where`, when one of them appears in `text`.
  static void expect_none_in(std::string_view text, const char* where);
};

}  // namespace zqpool::test
