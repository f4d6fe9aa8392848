#pragma once

#include <string>

namespace zqpool::detail {

/// The absolute path `path` under set_host_root()'s folder. Thread-safe.
std::string host_path(const char* path);

}  // namespace zqpool::detail
