#include "platform/host/uuid.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string new_uuid(bool upper_case = false) {
  std::string out = "old";
  uuid_string(out, upper_case);
  return out;
}

constexpr const char* version_4 =
    "^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$";

TEST(uuid_string, random_version_in_lower_case_with_hyphens) {
  for (int i = 0; i < 100; ++i)
    EXPECT_THAT(new_uuid(), testing::ContainsRegex(version_4));
}

TEST(uuid_string, upper_case_on_demand) {
  EXPECT_THAT(new_uuid(true), testing::ContainsRegex("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-"
                                                     "[89AB][0-9A-F]{3}-[0-9A-F]{12}$"));
}

TEST(uuid_string, every_random_bit_varies) {
  // The odds that one of 122 random bits is the same in 200 texts are about 1 to 2^192.
  std::vector<std::set<char>> seen(36);
  for (int i = 0; i < 200; ++i) {
    const std::string uuid = new_uuid();
    ASSERT_EQ(uuid.size(), seen.size());
    for (std::size_t at = 0; at < seen.size(); ++at)
      seen[at].insert(uuid[at]);
  }
  for (std::size_t at = 0; at < seen.size(); ++at) {
    const bool fixed = at == 8 || at == 13 || at == 14 || at == 18 || at == 23;
    if (fixed) {
      EXPECT_EQ(seen[at].size(), 1U) << at;
    } else {
      EXPECT_GE(seen[at].size(), at == 19 ? 2U : 6U) << at;
    }
  }
}

TEST(uuid_string, distinct_over_threads) {
  constexpr std::size_t each = 5000;
  std::vector<std::vector<std::string>> made(4);
  std::vector<std::thread> threads;
  threads.reserve(made.size());
  for (auto& list : made) {
    threads.emplace_back([&list] {
      for (std::size_t i = 0; i < each; ++i)
        list.push_back(new_uuid());
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  std::set<std::string> all;
  for (const auto& list : made)
    all.insert(list.begin(), list.end());
  EXPECT_EQ(all.size(), made.size() * each);
}

TEST(uuid_string, distinct_after_fork) {
  new_uuid();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    const std::string uuid = new_uuid();
    _exit(write(ends[1], uuid.data(), uuid.size()) == 36 ? 0 : 1);
  }
  const std::string mine = new_uuid();
  char theirs[36] = {};
  EXPECT_EQ(read(ends[0], theirs, sizeof theirs), 36);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  close(ends[0]);
  close(ends[1]);
  EXPECT_NE(mine, std::string(theirs, sizeof theirs));
}

}  // namespace
