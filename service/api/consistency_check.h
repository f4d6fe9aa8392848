#pragma once

#include <cstdint>
#include <string>

#include "platform/json/json_spirit.h"
#include "service/store/database.h"

namespace zqpool::service {

/// Looks for what contradicts itself in one family's part of the state.
struct Check {
  std::string name;  ///< of what it looks at: "volumes"
  /// Adds a text for each contradiction to the array; returns how many things it looked at.
  std::int64_t (*run)(Connection&, Array&);
};

}  // namespace zqpool::service
