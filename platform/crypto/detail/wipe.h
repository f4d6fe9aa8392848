#pragma once

#include <openssl/crypto.h>

#include <string>

namespace zqpool::detail {

/// Empties a text that may hold a secret and overwrites its whole capacity.
inline void wipe(std::string& text) noexcept {
  text.resize(text.capacity());
  OPENSSL_cleanse(text.data(), text.size());
  text.clear();
}

}  // namespace zqpool::detail
