#pragma once

#include "platform/json/json_spirit.h"

namespace zqpool::cli {

/// Puts "(hidden)" in the place of each text in `object` and below it whose name ends in "key".
void hide_keys(Object& object);

}  // namespace zqpool::cli
