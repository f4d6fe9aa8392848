#include "platform/crypto/detail/aead.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <algorithm>
#include <string>

namespace zqpool::detail {
namespace {

std::string from_hex(const std::string& digits) {
  std::string bytes;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
  }
  return bytes;
}

std::string hkdf(const std::string& secret, const std::string& salt, const std::string& info,
                 std::size_t size) {
  std::string out(size, '\0');
  EXPECT_TRUE(hkdf_sha256(secret, salt, info, reinterpret_cast<unsigned char*>(out.data()), size));
  return out;
}

std::string range(int first, int last) {
  std::string bytes;
  for (int byte = first; byte <= last; ++byte)
    bytes += static_cast<char>(byte);
  return bytes;
}

TEST(hkdf_sha256, test_case_1_of_rfc_5869) {
  EXPECT_EQ(hkdf(std::string(22, '\x0b'), range(0x00, 0x0c), range(0xf0, 0xf9), 42),
            from_hex("3cb25f25faacd57a90434f64d0362f2a2d2d0a90cf1a5a4c5db02d56ecc4c5bf"
                     "34007208d5b887185865"));
}

TEST(hkdf_sha256, test_case_2_of_rfc_5869) {
  EXPECT_EQ(hkdf(range(0x00, 0x4f), range(0x60, 0xaf), range(0xb0, 0xff), 82),
            from_hex("b11e398dc80327a1c8e7f78c596a49344f012eda2d4efad8a050cc4c19afa97c"
                     "59045a99cac7827271cb41c65e590e09da3275600c2f09b8367793a9aca3db71"
                     "cc30c58179ec3e87c14c01d5c1f3434f1d87"));
}

TEST(hkdf_sha256, test_case_3_of_rfc_5869_without_salt_and_info) {
  EXPECT_EQ(hkdf(std::string(22, '\x0b'), "", "", 42),
            from_hex("8da4e775a563c18f715f802a063c5a31b8a11f5c5ee1879ec3454e5f3c738d2d"
                     "9d201395faa4b61a96c8"));
}

TEST(hkdf_sha256, more_than_255_blocks_are_refused_and_no_error_is_left_behind) {
  std::string out(255 * 32 + 1, '\0');
  ERR_clear_error();
  EXPECT_FALSE(
      hkdf_sha256("secret", "", "", reinterpret_cast<unsigned char*>(out.data()), out.size()));
  EXPECT_EQ(ERR_peek_error(), 0U);
}

// Test cases 13 to 16 of "The Galois/Counter Mode of Operation" (McGrew, Viega).
struct GCM_Vector {
  const char* key;
  const char* nonce;
  const char* context;
  const char* text;
  const char* sealed;
};

constexpr GCM_Vector vectors[] = {
    {"0000000000000000000000000000000000000000000000000000000000000000", "000000000000000000000000",
     "", "", "530f8afbc74536b9a963b4f1c4cb738b"},
    {"0000000000000000000000000000000000000000000000000000000000000000", "000000000000000000000000",
     "", "00000000000000000000000000000000",
     "cea7403d4d606b6e074ec5d3baf39d18"
     "d0d1c8a799996bf0265b98b5d48ab919"},
    {"feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308", "cafebabefacedbaddecaf888",
     "",
     "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a72"
     "1c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657ba637b391aafd255",
     "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa"
     "8cb08e48590dbb3da7b08b1056828838c5f61e6393ba7a0abcc9f662898015ad"
     "b094dac5d93471bdec1a502270e3cc6c"},
    {"feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308", "cafebabefacedbaddecaf888",
     "feedfacedeadbeeffeedfacedeadbeefabaddad2",
     "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a72"
     "1c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657ba637b39",
     "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa"
     "8cb08e48590dbb3da7b08b1056828838c5f61e6393ba7a0abcc9f662"
     "76fc6ece0f4e1768cddf8853bb2d551b"},
};

class AES_256_GCM : public testing::TestWithParam<GCM_Vector> {
 protected:
  AES_256_GCM() {
    const std::string bytes = from_hex(GetParam().key);
    std::copy(bytes.begin(), bytes.end(), key_.bytes.begin());
  }

  Key_256 key_;
  std::string nonce_ = from_hex(GetParam().nonce);
  std::string context_ = from_hex(GetParam().context);
  std::string text_ = from_hex(GetParam().text);
  std::string sealed_ = from_hex(GetParam().sealed);
};

TEST_P(AES_256_GCM, seals_to_the_published_bytes) {
  std::string out = "before";
  EXPECT_TRUE(seal_aes_256_gcm(key_, nonce_, context_, text_, out));
  EXPECT_EQ(out, "before" + sealed_);
}

TEST_P(AES_256_GCM, opens_the_published_bytes) {
  std::string out = "before";
  EXPECT_TRUE(open_aes_256_gcm(key_, nonce_, context_, sealed_, out));
  EXPECT_EQ(out, text_);
}

TEST_P(AES_256_GCM, anything_changed_opens_nothing_and_leaves_no_error_behind) {
  ERR_clear_error();
  const auto refuses = [&](const Key_256& key, const std::string& nonce, const std::string& context,
                           const std::string& sealed) {
    std::string out = "before";
    EXPECT_FALSE(open_aes_256_gcm(key, nonce, context, sealed, out));
    EXPECT_EQ(out, "");
    EXPECT_EQ(ERR_peek_error(), 0U);
  };
  for (std::size_t at = 0; at < sealed_.size(); ++at) {
    std::string changed = sealed_;
    changed[at] = static_cast<char>(changed[at] ^ 0x20);
    refuses(key_, nonce_, context_, changed);
  }
  refuses(key_, nonce_, context_ + "x", sealed_);
  refuses(key_, nonce_, context_, sealed_ + '\0');
  refuses(key_, nonce_, context_, sealed_.substr(0, sealed_.size() - 1));
  refuses(key_, nonce_, context_, "");
  refuses(key_, nonce_.substr(1), context_, sealed_);
  refuses(key_, nonce_ + '\0', context_, sealed_);
  Key_256 other = key_;
  other.bytes[31] = static_cast<unsigned char>(other.bytes[31] ^ 1);
  refuses(other, nonce_, context_, sealed_);
}

INSTANTIATE_TEST_SUITE_P(Published, AES_256_GCM, testing::ValuesIn(vectors));

TEST(seal_aes_256_gcm, a_nonce_of_another_size_is_refused) {
  std::string out = "before";
  EXPECT_FALSE(seal_aes_256_gcm(Key_256(), std::string(11, 'n'), "", "text", out));
  EXPECT_FALSE(seal_aes_256_gcm(Key_256(), "", "", "text", out));
  EXPECT_EQ(out, "before");
}

}  // namespace
}  // namespace zqpool::detail
