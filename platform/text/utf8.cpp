#include "platform/text/utf8.h"

#include <simdjson.h>

namespace zqpool::text {

bool is_utf8(std::string_view text) noexcept {
  return simdjson::validate_utf8(text.data(), text.size());
}

}  // namespace zqpool::text
