#pragma once

#include <string>

namespace zqpool::cli {

/// The access key from a file ("" asks on the terminal, without echo). Ends of line after the key
/// are cut. Throws Usage_Error when there is no usable key or no terminal to ask on. A file that
/// everybody may read gets a note.
std::string obtain_access_key(const std::string& file, const std::string& endpoint);

/// What a file keeps secret, one line; `kind` ("access key") names it in messages. The rest as
/// above.
std::string read_secret_file(const std::string& file, const std::string& kind);

}  // namespace zqpool::cli
