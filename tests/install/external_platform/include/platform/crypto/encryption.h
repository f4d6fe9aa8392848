#pragma once

#include <cstddef>

/// The ciphers that this product has, and both ends of what may be stored.
enum Encryption_Algorithm {
  ENCRYPT_UNKNOWN = -1,
  ENCRYPT_NONE,
  ENCRYPT_AES_256_GCM = 26,
  ENCRYPT_EC = 41
};

Encryption_Algorithm encryption_name_to_value(const char* from, std::size_t size);
