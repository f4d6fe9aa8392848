#pragma once

#include <string>

namespace zqpool::detail {

/// `path`, which begins with "/", behind the prefix of set_host_root(). Thread-safe.
std::string host_path(const char* path);

}  // namespace zqpool::detail
