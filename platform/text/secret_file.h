#pragma once

#include <cstddef>
#include <string>

namespace zqpool::text {

constexpr std::size_t max_secret_size = 4096;

/// Returns `text` without its line end, if it is a secret that fits into an HTTP header: 1 to
/// max_secret_size printable ASCII characters, no blank at either end. Otherwise throws
/// std::runtime_error with the reason, never with the secret.
std::string checked_secret(std::string text);

struct Secret_File {
  std::string secret;
  bool open_to_others;  ///< every user of this machine may read or write the file
};

/// Reads a file, or a pipe, that holds one secret and nothing else. Throws std::runtime_error with
/// the reason, without the file's name.
Secret_File read_secret_file(const std::string& file);

}  // namespace zqpool::text
