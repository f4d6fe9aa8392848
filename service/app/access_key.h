#pragma once

#include <array>
#include <string>
#include <string_view>

namespace zqpool::service {

/// Reads a file that holds a secret, such as an "access key", and warns on standard error if other
/// users can read it. Throws std::runtime_error, which names the file.
std::string read_secret(const std::string& file, const std::string& what);

/// The key that requests must carry. Only its digest is kept.
class Access_Key {
 public:
  explicit Access_Key(std::string_view key);
  /// Takes the same time for every key.
  bool matches(std::string_view given) const;

 private:
  using Digest = std::array<unsigned char, 32>;
  static Digest digest(std::string_view text);

  Digest digest_;
};

}  // namespace zqpool::service
