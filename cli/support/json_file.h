#pragma once

#include <string>

#include "platform/json/json_spirit.h"

namespace zqpool::cli {

/// The JSON document in a file ("-": on standard input). Throws Usage_Error when it cannot be read
/// or is none.
json_spirit::Value read_document(const std::string& file);

}  // namespace zqpool::cli
