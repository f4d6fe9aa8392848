#include "platform/host/websocket_options.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

class WebSocket_Options_Test : public testing::Test {
 public:
  WebSocket_Options_Test() { WebSocket_Options::clear(); }
  ~WebSocket_Options_Test() override { WebSocket_Options::clear(); }
};

TEST_F(WebSocket_Options_Test, no_instance_until_configured) {
  EXPECT_EQ(WebSocket_Options::instance(), nullptr);
  WebSocket_Options::configure("backup.example", 7443, true);
  ASSERT_NE(WebSocket_Options::instance(), nullptr);
  EXPECT_STREQ(WebSocket_Options::instance()->host(), "backup.example");
  EXPECT_EQ(WebSocket_Options::instance()->port(), 7443);
  EXPECT_TRUE(WebSocket_Options::instance()->ssl());
}

TEST_F(WebSocket_Options_Test, null_host_gives_an_instance_without_host) {
  WebSocket_Options::configure(nullptr, 65535, false);
  ASSERT_NE(WebSocket_Options::instance(), nullptr);
  EXPECT_EQ(WebSocket_Options::instance()->host(), nullptr);
  EXPECT_EQ(WebSocket_Options::instance()->port(), 65535);
  EXPECT_FALSE(WebSocket_Options::instance()->ssl());
}

TEST_F(WebSocket_Options_Test, empty_host_is_a_host) {
  WebSocket_Options::configure("", 0, false);
  EXPECT_STREQ(WebSocket_Options::instance()->host(), "");
}

TEST_F(WebSocket_Options_Test, clear_takes_the_instance_away) {
  WebSocket_Options::configure("a", 1, false);
  WebSocket_Options::clear();
  EXPECT_EQ(WebSocket_Options::instance(), nullptr);
  WebSocket_Options::configure("a", 1, false);
  EXPECT_STREQ(WebSocket_Options::instance()->host(), "a");
}

TEST_F(WebSocket_Options_Test, an_instance_never_changes) {
  WebSocket_Options::configure("first", 1, true);
  const WebSocket_Options* const first = WebSocket_Options::instance();
  WebSocket_Options::configure("second", 2, false);
  EXPECT_STREQ(WebSocket_Options::instance()->host(), "second");
  WebSocket_Options::clear();
  EXPECT_STREQ(first->host(), "first");
  EXPECT_EQ(first->port(), 1);
  EXPECT_TRUE(first->ssl());
}

TEST_F(WebSocket_Options_Test, the_same_values_take_no_more_memory) {
  WebSocket_Options::configure("a", 1, false);
  const WebSocket_Options* const first = WebSocket_Options::instance();
  WebSocket_Options::configure("a", 1, true);
  EXPECT_NE(WebSocket_Options::instance(), first);
  WebSocket_Options::configure("a", 1, false);
  EXPECT_EQ(WebSocket_Options::instance(), first);
}

TEST_F(WebSocket_Options_Test, values_read_together_belong_together) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers(3);
  for (std::thread& thread : readers) {
    thread = std::thread([&stop] {
      do {
        const WebSocket_Options* const options = WebSocket_Options::instance();
        if (options == nullptr) continue;
        EXPECT_EQ(std::to_string(options->port()), options->host());
        EXPECT_EQ(options->ssl(), options->port() % 2 == 1);
      } while (!stop);
    });
  }
  for (unsigned short i = 0; i < 2000; ++i) {
    const auto port = static_cast<unsigned short>(i % 10);
    WebSocket_Options::configure(std::to_string(port).c_str(), port, port % 2 == 1);
    if (i % 7 == 0) WebSocket_Options::clear();
  }
  stop = true;
  for (std::thread& thread : readers)
    thread.join();
}

}  // namespace
