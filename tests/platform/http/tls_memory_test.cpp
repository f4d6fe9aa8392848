// HTTPS while OpenSSL's allocations fail, one by one. A program of its own, because OpenSSL takes
// an allocator only before it has allocated anything.

#include <openssl/crypto.h>

#include <cstdlib>

#include "tests/platform/http/http_test.h"

namespace zqpool::test {
namespace {

/// The allocation of this thread that fails, counted from 1; 0: none.
thread_local long failing_allocation = 0;
thread_local long allocations = 0;

bool fails() {
  return ++allocations == failing_allocation;
}

void* allocate(std::size_t size, const char*, int) {
  return fails() ? nullptr : std::malloc(size);
}

void* reallocate(void* block, std::size_t size, const char*, int) {
  return fails() ? nullptr : std::realloc(block, size);
}

void release(void* block, const char*, int) {
  std::free(block);
}

const bool replaced = CRYPTO_set_mem_functions(&allocate, &reallocate, &release) == 1;

class TLS_Memory_Test : public HTTP_Test {
 protected:
  /// Calls the server with a full handshake and the access key.
  static Called call_with_key(const Scripted_Server& server) {
    Call_Options options;
    options.access_key = "secret-key";
    options.tune = [](JSON_RESTful_Client& client) { client.retries(0); };
    return call(server.endpoint(), options);
  }

  /// Calls once for each allocation of a full handshake, which then fails.
  template <typename Check>
  static void for_each_allocation(const Scripted_Server& server, const Check& check) {
    ASSERT_TRUE(replaced);
    call_with_key(server);  // what OpenSSL allocates once per process
    HTTP_Options::set(HTTP_Options::get());
    allocations = 0;
    call_with_key(server);
    const long count = allocations;
    ASSERT_GT(count, 100);
    for (long number = 1; number <= count; ++number) {
      SCOPED_TRACE("allocation " + std::to_string(number) + " of " + std::to_string(count));
      HTTP_Options::set(HTTP_Options::get());  // no session to resume
      allocations = 0;
      failing_allocation = number;
      const Called called = call_with_key(server);
      failing_allocation = 0;
      check(called);
      if (testing::Test::HasFailure()) return;
    }
  }
};

TEST_F(TLS_Memory_Test, a_certificate_for_another_host_is_never_taken) {
  Scripted_Server server(tls(Test_Certificates::instance().other_host));
  server.otherwise(json_answer(200, "{}"));
  for_each_allocation(server, [&](const Called& called) {
    EXPECT_FALSE(called.ok);
    EXPECT_FALSE(called.report.sent);
  });
  EXPECT_TRUE(server.settle());
  EXPECT_EQ(server.request_count(), 0U);
}

TEST_F(TLS_Memory_Test, a_good_call_succeeds_or_fails_and_the_next_one_is_good) {
  Scripted_Server server(tls());
  server.otherwise(json_answer(200, "{}"));
  for_each_allocation(server, [&](const Called& called) {
    EXPECT_EQ(called.report.error, called.ok ? HTTP_Error::none : HTTP_Error::tls)
        << called.report.text;
  });
  EXPECT_TRUE(call_with_key(server).ok) << last_http_exchange().text;
}

}  // namespace
}  // namespace zqpool::test
