// This program is not linked with the library. It loads a plug-in that is, and unloads it while a
// thread that has used it is still running.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace {

using Reads = int (*)(const char*);

TEST(Json_Unload, a_thread_may_end_after_the_library_was_closed) {
  for (int round = 0; round < 3; ++round) {
    void* const plugin = dlopen(JSON_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(plugin, nullptr) << dlerror();
    const auto reads = reinterpret_cast<Reads>(dlsym(plugin, "plugin_reads"));
    ASSERT_NE(reads, nullptr);
    std::promise<int> result;
    std::promise<void> closed;
    std::thread thread([&] {
      result.set_value(reads("[1,{\"a\":\"b\"}]"));
      closed.get_future().wait();
    });
    EXPECT_EQ(result.get_future().get(), 1);
    EXPECT_EQ(dlclose(plugin), 0);
    closed.set_value();
    thread.join();
  }
}

}  // namespace
