#pragma once

#include <filesystem>
#include <string>

namespace zqpool::test {

/// A new directory, removed with its contents at the end of its scope.
class Temp_Directory {
 public:
  Temp_Directory();
  ~Temp_Directory();
  Temp_Directory(const Temp_Directory&) = delete;
  Temp_Directory& operator=(const Temp_Directory&) = delete;

  std::string path() const { return path_.string(); }
  std::string path(const std::string& name) const { return (path_ / name).string(); }
  /// Writes a file readable by its owner alone and returns its path.
  std::string write(const std::string& name, const std::string& content) const;

 private:
  std::filesystem::path path_;
};

}  // namespace zqpool::test
