#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>
#include <functional>

#ifdef LIBRARY_NEEDS_LARGE_STACK
constexpr std::size_t small_stack = std::size_t{2} << 20;
#else
constexpr std::size_t small_stack = std::size_t{128} << 10;
#endif

/// Runs `work` on a thread that has only the stack that json_spirit::max_depth promises to suffice.
inline void on_small_stack(std::function<void()> work) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, small_stack), 0);
  pthread_t thread;
  const auto run = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}
