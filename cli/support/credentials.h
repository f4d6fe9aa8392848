#pragma once

#include <string>

namespace zqpool::cli {

/// Reads the access key from a file, or asks on the terminal when `file` is "". Throws Usage_Error
/// when there is no usable key or no terminal.
std::string obtain_access_key(const std::string& file, const std::string& endpoint);

/// Reads the secret in a file, and warns when other users can reach it. `kind` ("access key") names
/// it in messages. Throws Usage_Error when the file holds no usable secret.
std::string read_secret(const std::string& file, const std::string& kind);

}  // namespace zqpool::cli
