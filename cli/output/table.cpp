#include "cli/output/table.h"

#include <algorithm>

#include "cli/support/printable.h"

namespace zqpool::cli {

std::string Table::text(std::size_t indent) const {
  std::vector<std::size_t> widths(rows_.front().size(), 0);
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], display_width(row[i]));
    }
  }
  std::string out;
  for (const auto& row : rows_) {
    out.append(indent, ' ');
    for (std::size_t i = 0; i < row.size(); ++i) {
      out += row[i];
      // No blanks at the end of a line.
      if (i + 1 < row.size()) out.append(widths[i] - display_width(row[i]) + 2, ' ');
    }
    out += '\n';
  }
  return out;
}

}  // namespace zqpool::cli
