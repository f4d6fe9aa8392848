#pragma once

#include <cstdint>
#include <string>

namespace zqpool::cli {

/// Reads a number of bytes: "4096", "512B", "10GiB", up to 2^64 - 1. Units are powers of 1024 (KiB
/// to EiB). Throws Usage_Error for anything else.
std::uint64_t parse_size(const std::string& text);

/// A number of bytes for people: "512 B", "10 GiB", "1.50 GiB". Rounded down.
std::string readable_size(std::uint64_t bytes);

}  // namespace zqpool::cli
