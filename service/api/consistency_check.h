#pragma once

#include <cstdint>
#include <string>

#include "platform/json/json_spirit.h"
#include "service/store/database.h"

namespace zqpool::service {

/// A consistency check of one part of the database.
struct Check {
  std::string name;  ///< what it checks: "volumes"
  /// Adds a message for each problem to the array; returns how many things it checked.
  std::int64_t (*run)(Connection&, Array&);
};

}  // namespace zqpool::service
