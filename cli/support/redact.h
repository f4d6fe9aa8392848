#pragma once

#include "platform/json/json_spirit.h"

namespace zqpool::cli {

/// Replaces each text whose name ends in "key" by "(hidden)", in nested objects, too.
void hide_keys(Object& object);

}  // namespace zqpool::cli
