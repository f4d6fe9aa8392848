#pragma once

#include <cstddef>
#include <string>

#include <rapidjson/document.h>

namespace zqpool::bench {

/// What the other clients do with an answer: parse it and move its only row out. True when that row
/// is the device `uuid`.
bool take_only_row(const char* text, std::size_t size, const std::string& uuid,
                   rapidjson::Document& row);

}  // namespace zqpool::bench
