#include "platform/crypto/s3_key.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/crypto/base64.h"
#include "platform/crypto/detail/base64_encode.h"
#include "tests/support/log_capture.h"

namespace {

constexpr const char* shared_secret = "a secret that service and host share";
constexpr const char* url = "s3s://objects.example:9000/bucket1";
constexpr const char* clear_key = "wJalrXUtnFEMI/K7MDENG/bPxRfiCYEXAMPLEKEY";
// Made by another implementation with the shared secret and the nonce 0, 1, ... 11.
constexpr const char* sealed_key =
    "AAECAwQFBgcICQoL49kpd4qmG5jj4R6APo0P0GxJdbZ5D1Do/N/5J9d1JkyOgHAbjDNbnImVcqusHL+OpkjO+iygiio=";
constexpr const char* sealed_empty_key = "AAECAwQFBgcICQoLZ0WKoEmB3XsC4VZE0CLg7w==";

class S3_Key : public testing::Test {
 public:
  S3_Key() {
    ERR_clear_error();
    set_s3_key_secret(shared_secret);
  }
  ~S3_Key() override {
    set_s3_key_secret("");
    EXPECT_EQ(ERR_peek_error(), 0U) << "an error left behind would fail the thread's next TLS call";
  }

 protected:
  static void refuses(const char* of_url, const std::string& sealed) {
    std::string secret = sealed;
    EXPECT_FALSE(decrypt_s3_key(of_url, secret));
    EXPECT_EQ(secret, sealed);
  }

  static std::string sealed(const std::string& clear) {
    std::string secret = clear;
    EXPECT_TRUE(encrypt_s3_key(url, secret));
    return secret;
  }
};

TEST_F(S3_Key, opens_what_another_implementation_sealed) {
  std::string secret = sealed_key;
  EXPECT_TRUE(decrypt_s3_key(url, secret));
  EXPECT_EQ(secret, clear_key);
  secret = sealed_empty_key;
  EXPECT_TRUE(decrypt_s3_key(url, secret));
  EXPECT_EQ(secret, "");
}

TEST_F(S3_Key, round_trip_of_any_bytes_and_sizes) {
  for (const std::string& clear : {std::string(), std::string("k"), std::string(clear_key),
                                   std::string("a\0b\n\xff", 5), std::string(100000, 'x')}) {
    std::string secret = clear;
    ASSERT_TRUE(encrypt_s3_key(url, secret));
    EXPECT_NE(secret, clear);
    EXPECT_EQ(secret.size(), (clear.size() + 12 + 16 + 2) / 3 * 4);
    ASSERT_TRUE(decrypt_s3_key(url, secret));
    EXPECT_EQ(secret, clear);
  }
}

TEST_F(S3_Key, sealed_text_differs_each_time) {
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i)
    seen.insert(sealed(clear_key));
  EXPECT_EQ(seen.size(), 100U);
}

TEST_F(S3_Key, a_flipped_bit_anywhere_in_the_text_is_refused) {
  const std::string good = sealed_key;
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string changed = good;
      changed[at] = static_cast<char>(changed[at] ^ (1 << bit));
      refuses(url, changed);
    }
  }
}

TEST_F(S3_Key, a_flipped_bit_anywhere_in_the_bytes_is_refused) {
  const std::string text = sealed_key;
  Base64_Decoder decoder;
  ASSERT_TRUE(decoder.set(text.data(), text.size()));
  const std::string good(decoder.get(), decoder.length());
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string changed = good;
      changed[at] = static_cast<char>(changed[at] ^ (1 << bit));
      refuses(url, zqpool::detail::base64_encode(changed));
    }
  }
}

TEST_F(S3_Key, every_cut_or_prolonged_text_is_refused) {
  const std::string good = sealed_key;
  for (std::size_t size = 0; size < good.size(); ++size) {
    refuses(url, good.substr(0, size));
    refuses(url, good.substr(size + 1));
  }
  for (const char* more : {"=", "A", "AAAA", "\n", " "}) {
    refuses(url, good + more);
    refuses(url, more + good);
  }
  refuses(url, clear_key);
}

TEST_F(S3_Key, another_url_is_refused) {
  for (const char* other :
       {"", "s3s://objects.example:9000/bucket2", "s3s://objects.example:9000/bucket1/",
        "s3s://objects.example:9000/bucket", "s3://objects.example:9000/bucket1",
        "S3S://objects.example:9000/bucket1"}) {
    refuses(other, sealed_key);
  }
}

TEST_F(S3_Key, an_empty_url_is_a_url) {
  std::string secret = clear_key;
  ASSERT_TRUE(encrypt_s3_key("", secret));
  refuses(url, secret);
  ASSERT_TRUE(decrypt_s3_key("", secret));
  EXPECT_EQ(secret, clear_key);
}

TEST_F(S3_Key, a_null_url_is_refused) {
  refuses(nullptr, sealed_key);
  std::string secret = clear_key;
  EXPECT_FALSE(encrypt_s3_key(nullptr, secret));
  EXPECT_EQ(secret, clear_key);
}

TEST_F(S3_Key, without_a_secret_nothing_works_and_nothing_changes) {
  set_s3_key_secret("");
  refuses(url, sealed_key);
  std::string secret = clear_key;
  EXPECT_FALSE(encrypt_s3_key(url, secret));
  EXPECT_EQ(secret, clear_key);
}

TEST_F(S3_Key, another_secret_is_refused_and_the_right_one_serves_again) {
  for (const char* other : {"another", "a secret that service and host shar",
                            "a secret that service and host share "}) {
    set_s3_key_secret(other);
    refuses(url, sealed_key);
  }
  set_s3_key_secret(shared_secret);
  std::string secret = sealed_key;
  EXPECT_TRUE(decrypt_s3_key(url, secret));
}

TEST_F(S3_Key, the_secret_may_hold_any_byte) {
  set_s3_key_secret(std::string("\0a", 2));
  std::string secret = sealed(clear_key);
  set_s3_key_secret(std::string("\0b", 2));
  refuses(url, secret);
  set_s3_key_secret(std::string(1 << 20, '\0'));
  refuses(url, secret);
  set_s3_key_secret(std::string("\0a", 2));
  EXPECT_TRUE(decrypt_s3_key(url, secret));
}

TEST_F(S3_Key, without_hkdf_in_openssl_there_is_no_secret) {
  // No OpenSSL provider of the test's process has this property.
  ASSERT_EQ(EVP_set_default_properties(nullptr, "fips=yes"), 1);
  set_s3_key_secret("another");
  ASSERT_EQ(EVP_set_default_properties(nullptr, ""), 1);
  refuses(url, sealed_key);
  std::string secret = clear_key;
  EXPECT_FALSE(encrypt_s3_key(url, secret));
  EXPECT_EQ(secret, clear_key);
}

TEST_F(S3_Key, logs_nothing) {
  const zqpool::test::Log_Capture log;
  std::string secret = sealed(clear_key);
  refuses("other", secret);
  EXPECT_TRUE(decrypt_s3_key(url, secret));
  EXPECT_EQ(log.all(), "");
}

TEST_F(S3_Key, many_threads_while_the_secret_changes) {
  std::atomic<bool> stop{false};
  std::atomic<int> opened{0};
  std::vector<std::thread> threads(3);
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      do {
        std::string secret = sealed_key;
        if (decrypt_s3_key(url, secret)) {
          EXPECT_EQ(secret, clear_key);
          ++opened;
        } else {
          EXPECT_EQ(secret, sealed_key);
        }
      } while (!stop);
    });
  }
  for (int i = 0; i < 500; ++i)
    set_s3_key_secret(i % 2 == 0 ? "another" : shared_secret);
  while (opened == 0)
    std::this_thread::yield();
  stop = true;
  for (std::thread& thread : threads)
    thread.join();
}

}  // namespace
