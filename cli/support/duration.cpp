#include "cli/support/duration.h"

#include <array>
#include <charconv>
#include <limits>
#include <string_view>
#include <utility>

#include "cli/support/exit_code.h"

namespace zqpool::cli {

namespace {

constexpr std::array<std::pair<std::string_view, std::int64_t>, 4> units = {
    {{"h", 3'600'000}, {"m", 60'000}, {"s", 1'000}, {"ms", 1}}};
constexpr std::int64_t max_milliseconds = std::numeric_limits<int>::max();

}  // namespace

std::chrono::milliseconds parse_duration(const std::string& text) {
  const auto refuse = [&text](const char* why) -> Usage_Error {
    return Usage_Error("'" + text + "' is not a duration: " + why);
  };
  std::string_view rest = text;
  std::int64_t total = 0;
  std::size_t next_unit = 0;
  do {
    std::int64_t number = 0;
    const char* const end = rest.data() + rest.size();
    const auto [stop, error] = std::from_chars(rest.data(), end, number);
    if (error == std::errc::result_out_of_range) throw refuse("too long");
    if (error != std::errc() || number < 0) throw refuse("write it as 90, 90s or 1m30s");
    rest.remove_prefix(static_cast<std::size_t>(stop - rest.data()));

    const std::string_view name = rest.substr(0, rest.find_first_of("0123456789"));
    std::int64_t unit = 1'000;
    if (!name.empty() || next_unit > 0) {
      while (next_unit < units.size() && units[next_unit].first != name)
        ++next_unit;
      if (next_unit == units.size()) throw refuse("units are h, m, s, ms, from large to small");
      unit = units[next_unit++].second;
    }
    rest.remove_prefix(name.size());
    if (number > (max_milliseconds - total) / unit) throw refuse("too long");
    total += number * unit;
  } while (!rest.empty());
  return std::chrono::milliseconds(total);
}

}  // namespace zqpool::cli
