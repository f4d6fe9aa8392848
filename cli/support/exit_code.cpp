#include "cli/support/exit_code.h"

#include <algorithm>
#include <array>

namespace zqpool::cli {

Exit_Code worse(Exit_Code a, Exit_Code b) noexcept {
  static constexpr std::array order = {
      Exit_Code::done,     Exit_Code::not_found,   Exit_Code::conflict,
      Exit_Code::no_space, Exit_Code::not_allowed, Exit_Code::unreachable,
      Exit_Code::usage,    Exit_Code::failed,      Exit_Code::outcome_unknown};
  const auto rank = [](Exit_Code code) { return std::find(order.begin(), order.end(), code); };
  return rank(a) < rank(b) ? b : a;
}

}  // namespace zqpool::cli
