#pragma once

#include <string>

#include "platform/crypto/base64.h"
#include "platform/json/json_spirit.h"

namespace zqpool::detail {

/// Decodes the Base64 text of member `key`. `bytes` is unchanged if it is missing or cannot be
/// decoded.
inline void read_base64(const Object& object, const char* key, std::string& bytes) {
  const std::string* text = json_spirit::object_get_str(object, key);
  Base64_Decoder decoder;
  if (text != nullptr && decoder.set(text->data(), text->size())) {
    bytes.assign(decoder.get(), decoder.length());
  }
}

}  // namespace zqpool::detail
