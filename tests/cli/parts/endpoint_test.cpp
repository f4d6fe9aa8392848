#include "cli/support/endpoint.h"

#include <gtest/gtest.h>

#include "cli/support/exit_code.h"

namespace zqpool::cli {
namespace {

struct Good {
  const char* text;
  bool ssl;
  const char* host;
  unsigned short port;
  const char* canonical;
};

TEST(Endpoint, is_read_with_its_default_port) {
  for (const Good& good : {
           Good{"https://pool1:8443", true, "pool1", 8443, "https://pool1:8443"},
           Good{"http://pool1", false, "pool1", 80, "http://pool1:80"},
           Good{"https://pool1/", true, "pool1", 443, "https://pool1:443"},
           Good{"http://127.0.0.1:1", false, "127.0.0.1", 1, "http://127.0.0.1:1"},
           Good{"https://[::1]:65535", true, "::1", 65535, "https://[::1]:65535"},
           Good{"https://[fe80::1%eth0]", true, "fe80::1%eth0", 443, "https://[fe80::1%eth0]:443"},
           Good{"https://a_b.c-d", true, "a_b.c-d", 443, "https://a_b.c-d:443"},
       }) {
    const Endpoint endpoint = parse_endpoint(good.text);
    EXPECT_EQ(endpoint.ssl, good.ssl) << good.text;
    EXPECT_EQ(endpoint.host, good.host) << good.text;
    EXPECT_EQ(endpoint.port, good.port) << good.text;
    EXPECT_EQ(endpoint.text(), good.canonical);
  }
}

TEST(Endpoint, anything_else_is_a_usage_error_that_quotes_it) {
  for (const char* const bad : {"",
                                "pool1",
                                "pool1:8443",
                                "ftp://pool1",
                                "https://",
                                "https://:1",
                                "https://h:",
                                "https://h:0",
                                "https://h:65536",
                                "https://h:+1",
                                "https://h:1x",
                                "https://h:1/path",
                                "https://h/path",
                                "https://user@h",
                                "https://h?x",
                                "https://h h",
                                "https://h\r\nX: y",
                                "https://[::1",
                                "https://[pool1]",
                                "https://[::1]8443",
                                "https://[::1]:",
                                "HTTPS://h",
                                "https://pöol"}) {
    try {
      parse_endpoint(bad);
      ADD_FAILURE() << "taken: " << bad;
    } catch (const Usage_Error& error) {
      EXPECT_EQ(error.code, Exit_Code::usage);
      EXPECT_NE(std::string(error.what()).find(bad), std::string::npos);
    }
  }
}

}  // namespace
}  // namespace zqpool::cli
