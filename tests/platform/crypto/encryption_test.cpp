#include "platform/crypto/encryption.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>

namespace {

Encryption_Algorithm value_of(const std::string& name) {
  return encryption_name_to_value(name.data(), name.size());
}

struct Cipher {
  const char* name;
  int value;
};

constexpr Cipher ciphers[] = {
    {"none", 0},          {"aes-128-cbc", 1},   {"aes-128-cbc-hmac-sha1", 2},
    {"aes-128-cfb", 3},   {"aes-128-cfb1", 4},  {"aes-128-cfb8", 5},
    {"aes-128-ctr", 6},   {"aes-128-ecb", 7},   {"aes-128-gcm", 8},
    {"aes-128-ofb", 9},   {"aes-128-xts", 10},  {"aes-192-cbc", 11},
    {"aes-192-cfb", 12},  {"aes-192-cfb1", 13}, {"aes-192-cfb8", 14},
    {"aes-192-ctr", 15},  {"aes-192-ecb", 16},  {"aes-192-gcm", 17},
    {"aes-192-ofb", 18},  {"aes-256-cbc", 19},  {"aes-256-cbc-hmac-sha1", 20},
    {"aes-256-cfb", 21},  {"aes-256-cfb1", 22}, {"aes-256-cfb8", 23},
    {"aes-256-ctr", 24},  {"aes-256-ecb", 25},  {"aes-256-gcm", 26},
    {"aes-256-ofb", 27},  {"aes-256-xts", 28},  {"blowfish-cbc", 29},
    {"blowfish-cfb", 30}, {"blowfish-ecb", 31}, {"blowfish-ofb", 32},
    {"rsa", 33},          {"sm2", 34},          {"sm3", 35},
    {"sm4-cbc", 36},      {"sm4-cfb", 37},      {"sm4-ctr", 38},
    {"sm4-ecb", 39},      {"sm4-ofb", 40},      {"ec", 41},
};

TEST(encryption_name_to_value, every_name_in_either_case_with_hyphens_or_underscores) {
  for (const Cipher& cipher : ciphers) {
    std::string name = cipher.name;
    EXPECT_EQ(value_of(name), cipher.value) << name;
    std::replace(name.begin(), name.end(), '-', '_');
    EXPECT_EQ(value_of(name), cipher.value) << name;
    for (char& c : name)
      c = static_cast<char>(std::toupper(c));
    EXPECT_EQ(value_of(name), cipher.value) << name;
    std::replace(name.begin(), name.end(), '_', '-');
    EXPECT_EQ(value_of(name), cipher.value) << name;
  }
}

TEST(encryption_name_to_value, every_other_name_is_unknown) {
  for (const std::string name :
       {"", "unknown", "UNKNOWN", "aes", "aes-256", "aes-256-gc", "aes-256-gcm ", " none", "none-",
        "encrypt-aes-256-gcm", "ENCRYPT_NONE", "aes 256 gcm", "aes256gcm", "sm4", "-", "_",
        "aes-512-cbc"}) {
    EXPECT_EQ(value_of(name), ENCRYPT_UNKNOWN) << name;
  }
  EXPECT_EQ(value_of(std::string("none\0", 5)), ENCRYPT_UNKNOWN);
  EXPECT_EQ(encryption_name_to_value(nullptr, 4), ENCRYPT_UNKNOWN);
}

TEST(encryption_name_to_value, only_the_given_length_is_read) {
  EXPECT_EQ(encryption_name_to_value("aes-256-gcm-and-more", 11), ENCRYPT_AES_256_GCM);
  EXPECT_EQ(encryption_name_to_value("none", 0), ENCRYPT_UNKNOWN);
}

}  // namespace
