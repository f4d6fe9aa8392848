#pragma once

#include <string>

namespace zqpool::service {

/// The first line of a file that holds a secret: 1 to 1,024 printable ASCII characters without
/// blanks. Warns on standard error when others can read the file. Throws std::runtime_error when
/// the file cannot be read or its first line is nothing of the kind; `what` ("access key") then
/// names what was wanted.
std::string read_secret_file(const std::string& file, const std::string& what);

}  // namespace zqpool::service
