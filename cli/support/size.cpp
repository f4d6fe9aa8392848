#include "cli/support/size.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <string_view>

#include "cli/support/exit_code.h"

namespace zqpool::cli {

namespace {

constexpr std::array<std::string_view, 7> units = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};

}  // namespace

std::uint64_t parse_size(const std::string& text) {
  const auto refuse = [&text](const char* why) {
    return Usage_Error("'" + text + "' is not a size: " + why);
  };
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error == std::errc::result_out_of_range) throw refuse("more than 64 bits hold");
  if (error != std::errc()) throw refuse("write it as 4096 or 10GiB");
  if (stop == end) return number;
  const auto unit = std::find(units.begin(), units.end(), std::string_view(stop));
  if (unit == units.end()) throw refuse("units are B, KiB, MiB, GiB, TiB, PiB, EiB");
  const auto shift = 10 * (unit - units.begin());
  if (number > std::numeric_limits<std::uint64_t>::max() >> shift) {
    throw refuse("more than 64 bits hold");
  }
  return number << shift;
}

std::string readable_size(std::uint64_t bytes) {
  std::size_t unit = 0;
  while (unit + 1 < units.size() && (bytes >> (10 * (unit + 1))) != 0)
    ++unit;
  const std::uint64_t rest = bytes & ((std::uint64_t{1} << (10 * unit)) - 1);
  std::string text = std::to_string(bytes >> (10 * unit));
  if (rest != 0) {
    // From the ten bits below the unit, so that nothing overflows.
    const std::uint64_t hundredths = (rest >> (10 * (unit - 1))) * 100 / 1024;
    text += hundredths < 10 ? ".0" : ".";
    text += std::to_string(hundredths);
  }
  text += ' ';
  text += units[unit];
  return text;
}

}  // namespace zqpool::cli
