#include "platform/crypto/base64.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>

#include "platform/crypto/detail/base64_encode.h"

namespace {

using zqpool::detail::base64_encode;

std::optional<std::string> decoded(const std::string& text) {
  Base64_Decoder decoder;
  if (!decoder.set(text.data(), text.size())) {
    EXPECT_EQ(decoder.length(), 0U) << text;
    EXPECT_STREQ(decoder.get(), "") << text;
    return std::nullopt;
  }
  return std::string(decoder.get(), decoder.length());
}

TEST(Base64_Decoder, vectors_of_rfc_4648) {
  struct {
    const char* bytes;
    const char* text;
  } const vectors[] = {{"", ""},
                       {"f", "Zg=="},
                       {"fo", "Zm8="},
                       {"foo", "Zm9v"},
                       {"foob", "Zm9vYg=="},
                       {"fooba", "Zm9vYmE="},
                       {"foobar", "Zm9vYmFy"}};
  for (const auto& vector : vectors) {
    EXPECT_EQ(decoded(vector.text), vector.bytes);
    EXPECT_EQ(base64_encode(vector.bytes), vector.text);
  }
}

TEST(Base64_Decoder, every_byte_and_zero_bytes_are_kept) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte)
    bytes += static_cast<char>(byte);
  EXPECT_EQ(decoded(base64_encode(bytes)), bytes);
  EXPECT_EQ(decoded("AAAA"), std::string(3, '\0'));
  EXPECT_EQ(decoded("AA=="), std::string(1, '\0'));
  EXPECT_EQ(decoded("++//"), "\xfb\xef\xff");
}

TEST(Base64_Decoder, random_bytes_of_every_length) {
  std::mt19937 random(1);
  for (std::size_t size = 0; size < 300; ++size) {
    std::string bytes(size, '\0');
    for (char& c : bytes)
      c = static_cast<char>(random());
    EXPECT_EQ(decoded(base64_encode(bytes)), bytes) << size;
  }
}

TEST(Base64_Decoder, refuses_what_is_not_strict_base64) {
  for (const std::string text : {"Z",          "Zg",          "Zg=",      "Zm8",
                                 "Zm9vY",      "=",           "==",       "===",
                                 "====",       "Z===",        "Zg==Zg==", "Zm8=Zm9v",
                                 "Zg=a",       "=Zg=",        "Zm9v====", "Zm9v\n",
                                 "Zm9vYg==\n", " Zm9v",       "Zm9v ",    "   Zm9v",
                                 "Zm9v    ",   "Zm 9",        "Zm9\n",    "Zm-v",
                                 "Zm_v",       "Zm9v.mFy",    "Zm9*",     "\xff\xff\xff\xff",
                                 "Zm9v-END",   "Zm9v\r\n\r\n"}) {
    EXPECT_EQ(decoded(text), std::nullopt) << text;
  }
  EXPECT_EQ(decoded(std::string("Zm9\0", 4)), std::nullopt);
  EXPECT_EQ(decoded(std::string("Zm9v\0\0\0\0", 8)), std::nullopt);
}

TEST(Base64_Decoder, refuses_unused_bits_that_are_set) {
  EXPECT_EQ(decoded("Zg=="), "f");
  for (const char* text : {"Zh==", "Zi==", "Zo==", "Zv==", "Zm9=", "Zm+="}) {
    EXPECT_EQ(decoded(text), std::nullopt) << text;
  }
}

TEST(Base64_Decoder, null_text) {
  Base64_Decoder decoder;
  EXPECT_TRUE(decoder.set(nullptr, 0));
  EXPECT_EQ(decoder.length(), 0U);
  EXPECT_FALSE(decoder.set(nullptr, 4));
}

TEST(Base64_Decoder, fresh_one_has_no_bytes) {
  const Base64_Decoder decoder;
  EXPECT_EQ(decoder.length(), 0U);
  EXPECT_STREQ(decoder.get(), "");
}

TEST(Base64_Decoder, one_decoder_serves_one_text_after_another) {
  Base64_Decoder decoder;
  ASSERT_TRUE(decoder.set("Zm9vYmFy", 8));
  EXPECT_STREQ(decoder.get(), "foobar");
  ASSERT_TRUE(decoder.set("Zg==", 4));
  EXPECT_STREQ(decoder.get(), "f");
  EXPECT_FALSE(decoder.set("Zg=", 3));
  EXPECT_EQ(decoder.length(), 0U);
  ASSERT_TRUE(decoder.set("Zm8=", 4));
  EXPECT_EQ(decoder.length(), 2U);
}

TEST(Base64_Decoder, reads_no_more_than_the_given_length) {
  Base64_Decoder decoder;
  ASSERT_TRUE(decoder.set("Zm9vYmFy", 4));
  EXPECT_STREQ(decoder.get(), "foo");
}

TEST(Base64_Decoder, lengths_beyond_31_bits_are_refused_before_the_text_is_read) {
  Base64_Decoder decoder;
  EXPECT_FALSE(decoder.set("Zm9v", std::size_t{1} << 31));
  EXPECT_FALSE(decoder.set("Zm9v", std::size_t{1} << 32));
}

TEST(Base64_Decoder, the_bytes_of_the_text_before_are_wiped) {
  const std::string secret(300, 's');
  const std::string text = base64_encode(secret);
  Base64_Decoder decoder;
  ASSERT_TRUE(decoder.set(text.data(), text.size()));
  const char* const bytes = decoder.get();
  ASSERT_TRUE(decoder.set("Zg==", 4));
  ASSERT_EQ(decoder.get(), bytes)
      << "the buffer is used again, so its old content can be looked at";
  for (std::size_t at = 1; at < 300; ++at)
    ASSERT_NE(bytes[at], 's') << at;
}

}  // namespace
