#include "cli/table.h"

#include <algorithm>
#include <numeric>

#include "cli/text.h"

namespace zqpool::cli {

namespace {

constexpr std::size_t gap = 2;
constexpr std::size_t narrowest = 8;

/// Takes columns' width away, always from the widest, until `excess` is gone.
void shrink(std::vector<std::size_t>& widths, std::size_t excess) {
  for (; excess > 0; --excess) {
    const auto widest = std::max_element(widths.begin(), widths.end());
    if (*widest <= narrowest) return;
    --*widest;
  }
}

}  // namespace

std::string Table::text(std::size_t indent, std::size_t width) const {
  std::vector<std::size_t> widths(rows_.front().size(), 0);
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], display_width(row[i]));
    }
  }
  const std::size_t total =
      std::accumulate(widths.begin(), widths.end(), indent + gap * (widths.size() - 1));
  if (width != 0 && total > width) shrink(widths, total - width);

  std::string out;
  for (const auto& row : rows_) {
    out.append(indent, ' ');
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string cell = shorten(row[i], widths[i]);
      out += cell;
      // No blanks at the end of a line.
      if (i + 1 < row.size()) out.append(widths[i] - display_width(cell) + gap, ' ');
    }
    out += '\n';
  }
  return out;
}

}  // namespace zqpool::cli
