#pragma once

#include <array>
#include <string>
#include <string_view>

namespace zqpool::service {

/// The key that requests must carry. Only its digest is kept.
class Access_Key {
 public:
  explicit Access_Key(std::string_view key);
  /// Takes the same time whatever the given key is.
  bool matches(std::string_view given) const;

  /// The first line of a file, as read_secret_file() reads it.
  static Access_Key from_file(const std::string& file);

 private:
  using Digest = std::array<unsigned char, 32>;
  static Digest digest(std::string_view text);

  Digest digest_;
};

}  // namespace zqpool::service
