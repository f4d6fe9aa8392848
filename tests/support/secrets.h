#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zqpool::test {

/// Keys and the like, which no log may show. The test kit adds the access keys that it meets and
/// looks through what is logged, so a test only adds what it makes itself. Thread-safe.
class Secrets {
 public:
  /// Texts of fewer than four bytes are left out: they stand in other words, too.
  static void add(const std::string& secret);
  /// Those that appear in `text`.
  static std::vector<std::string> found_in(std::string_view text);
  /// Fails the test, naming `where`, when one of them appears in `text`.
  static void expect_none_in(std::string_view text, const char* where);
};

}  // namespace zqpool::test
