#pragma once

#include <cstddef>
#include <string>

class Base64_Decoder {
 public:
  bool set(const char* from, std::size_t size);
  const char* get() const { return decoded_.data(); }
  std::size_t length() const { return decoded_.length(); }

 private:
  std::string decoded_;
};
