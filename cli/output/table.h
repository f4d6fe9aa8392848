#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zqpool::cli {

/// A table with aligned columns. Cells must be printable.
class Table {
 public:
  explicit Table(std::vector<std::string> header) { rows_.push_back(std::move(header)); }
  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

  /// With `indent` blanks before each line.
  std::string text(std::size_t indent) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace zqpool::cli
