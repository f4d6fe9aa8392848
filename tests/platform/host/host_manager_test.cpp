#include "platform/host/host_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace {

TEST(Host_Manager, access_key_is_what_was_set) {
  Host_Manager* const manager = Host_Manager::instance();
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(manager, Host_Manager::instance());
  manager->access_key("first key");
  EXPECT_EQ(manager->access_key(), "first key");
  manager->access_key(std::string("a\0b", 3));
  EXPECT_EQ(manager->access_key(), std::string("a\0b", 3));
  manager->access_key("");
  EXPECT_EQ(manager->access_key(), "");
}

TEST(Host_Manager, readers_see_whole_keys_while_they_change) {
  const std::string a(100, 'a');
  const std::string b(300, 'b');
  Host_Manager::instance()->access_key(a);
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    do {
      EXPECT_THAT(Host_Manager::instance()->access_key(), testing::AnyOf(a, b));
    } while (!stop);
  });
  for (int i = 0; i < 2000; ++i)
    Host_Manager::instance()->access_key(i % 2 == 0 ? b : a);
  stop = true;
  reader.join();
  Host_Manager::instance()->access_key("");
}

}  // namespace
