#include "platform/host/host_id.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/initiators.h"
#include "tests/support/temp_directory.h"

namespace {

/// A host with an "/etc" of its own and no identity set.
class Host_ID_Test : public testing::Test {
 public:
  Host_ID_Test() {
    std::filesystem::create_directory(root_.path("etc"));
    set_host_root(root_.path());
    Host_ID::instance()->set("");
  }
  ~Host_ID_Test() override {
    set_host_root("");
    Host_ID::instance()->set("");
  }

 protected:
  void machine_id(const std::string& content) { root_.write("etc/machine-id", content); }

  zqpool::test::Temp_Directory root_;
};

TEST_F(Host_ID_Test, instance_is_always_the_same) {
  ASSERT_NE(Host_ID::instance(), nullptr);
  EXPECT_EQ(Host_ID::instance(), Host_ID::instance());
}

TEST_F(Host_ID_Test, machine_id_in_the_form_of_a_uuid) {
  machine_id("0123456789abcdef0123456789abcdef\n");
  EXPECT_STREQ(Host_ID::instance()->c_str(), "01234567-89ab-cdef-0123-456789abcdef");
}

TEST_F(Host_ID_Test, machine_id_without_a_newline) {
  machine_id("ffffffffffffffffffffffffffffffff");
  EXPECT_STREQ(Host_ID::instance()->c_str(), "ffffffff-ffff-ffff-ffff-ffffffffffff");
}

TEST_F(Host_ID_Test, no_machine_id_gives_an_empty_text_until_there_is_one) {
  EXPECT_STREQ(Host_ID::instance()->c_str(), "");
  machine_id("0123456789abcdef0123456789abcdef\n");
  EXPECT_STREQ(Host_ID::instance()->c_str(), "01234567-89ab-cdef-0123-456789abcdef");
}

TEST_F(Host_ID_Test, what_is_no_machine_id_is_not_taken) {
  for (const char* content :
       {"", "\n", "uninitialized\n", "0123456789abcdef0123456789abcde\n",
        "0123456789abcdef0123456789abcdef0\n", "0123456789abcdef0123456789abcdeg\n",
        "0123456789ABCDEF0123456789ABCDEF\n", "01234567-89ab-cdef-0123-456789abcdef\n",
        " 123456789abcdef0123456789abcdef\n"}) {
    machine_id(content);
    EXPECT_STREQ(Host_ID::instance()->c_str(), "") << content;
  }
}

TEST_F(Host_ID_Test, machine_id_is_read_once) {
  machine_id("0123456789abcdef0123456789abcdef\n");
  const char* const text = Host_ID::instance()->c_str();
  machine_id("ffffffffffffffffffffffffffffffff\n");
  EXPECT_EQ(Host_ID::instance()->c_str(), text);
  EXPECT_STREQ(text, "01234567-89ab-cdef-0123-456789abcdef");
}

TEST_F(Host_ID_Test, what_the_process_sets_wins_and_is_taken_as_it_is) {
  machine_id("0123456789abcdef0123456789abcdef\n");
  EXPECT_STRNE(Host_ID::instance()->c_str(), "");
  Host_ID::instance()->set("Host A");
  EXPECT_STREQ(Host_ID::instance()->c_str(), "Host A");
}

TEST_F(Host_ID_Test, empty_text_takes_back_what_was_set) {
  machine_id("0123456789abcdef0123456789abcdef\n");
  Host_ID::instance()->set("a");
  Host_ID::instance()->set("");
  EXPECT_STREQ(Host_ID::instance()->c_str(), "01234567-89ab-cdef-0123-456789abcdef");
}

TEST_F(Host_ID_Test, texts_stay_good_when_another_is_set) {
  Host_ID::instance()->set("first");
  const char* const first = Host_ID::instance()->c_str();
  for (int i = 0; i < 100; ++i)
    Host_ID::instance()->set("host " + std::to_string(i));
  Host_ID::instance()->set("");
  EXPECT_STREQ(first, "first");
  Host_ID::instance()->set("first");
  EXPECT_EQ(Host_ID::instance()->c_str(), first);
}

TEST_F(Host_ID_Test, setting_and_reading_on_many_threads) {
  machine_id("0123456789abcdef0123456789abcdef\n");
  const std::vector<std::string> identities = {"aaaaaaaa", "bbbbbbbb", ""};
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers(3);
  for (std::thread& thread : readers) {
    thread = std::thread([&stop] {
      do {
        EXPECT_THAT(std::string(Host_ID::instance()->c_str()),
                    testing::AnyOf("aaaaaaaa", "bbbbbbbb", "01234567-89ab-cdef-0123-456789abcdef"));
      } while (!stop);
    });
  }
  for (std::size_t i = 0; i < 2000; ++i)
    Host_ID::instance()->set(identities[i % identities.size()]);
  stop = true;
  for (std::thread& thread : readers)
    thread.join();
}

TEST_F(Host_ID_Test, root_of_the_host_can_be_changed_again) {
  machine_id("0123456789abcdef0123456789abcdef\n");
  set_host_root(root_.path("nowhere"));
  EXPECT_STREQ(Host_ID::instance()->c_str(), "");
  set_host_root(root_.path());
  EXPECT_STREQ(Host_ID::instance()->c_str(), "01234567-89ab-cdef-0123-456789abcdef");
}

}  // namespace
