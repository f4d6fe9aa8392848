#pragma once

#include <string>

#include "platform/json/json_spirit.h"

namespace zqpool::cli {

/// Reads a JSON document from a file, or from standard input for "-". Throws Usage_Error on
/// failure.
json_spirit::Value read_document(const std::string& file);

}  // namespace zqpool::cli
