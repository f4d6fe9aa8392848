#pragma once

#include <cstddef>
#include <string>

#include <rapidjson/document.h>

namespace zqpool::bench {

/// Parses a response as the peers do and moves its only row out. Returns whether that row is the
/// device `uuid`.
bool take_only_row(const char* text, std::size_t size, const std::string& uuid,
                   rapidjson::Document& row);

}  // namespace zqpool::bench
