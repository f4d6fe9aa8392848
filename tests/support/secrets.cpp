#include "tests/support/secrets.h"

#include <gtest/gtest.h>

#include <mutex>
#include <set>

namespace zqpool::test {
namespace {

constexpr std::size_t shortest = 4;

struct Known {
  std::mutex mutex;
  std::set<std::string> secrets;
};

Known& known() {
  static Known all;
  return all;
}

}  // namespace

void Secrets::add(const std::string& secret) {
  if (secret.size() < shortest) return;
  Known& all = known();
  const std::lock_guard lock(all.mutex);
  all.secrets.insert(secret);
}

std::vector<std::string> Secrets::found_in(std::string_view text) {
  std::vector<std::string> found;
  Known& all = known();
  const std::lock_guard lock(all.mutex);
  for (const std::string& secret : all.secrets) {
    if (text.find(secret) != std::string_view::npos) found.push_back(secret);
  }
  return found;
}

void Secrets::expect_none_in(std::string_view text, const char* where) {
  for (const std::string& secret : found_in(text)) {
    ADD_FAILURE() << "the secret '" << secret << "' stands in " << where << ":\n" << text;
  }
}

}  // namespace zqpool::test
