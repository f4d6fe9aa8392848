#include "platform/text/uuid.h"

#include "platform/text/hex.h"

namespace zqpool::text {

bool is_uuid(std::string_view text) noexcept {
  if (text.size() != 36) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool hyphen = i == 8 || i == 13 || i == 18 || i == 23;
    if (hyphen ? text[i] != '-' : hex_value(text[i]) < 0) return false;
  }
  return true;
}

}  // namespace zqpool::text
