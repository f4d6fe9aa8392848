#pragma once

#include <cstddef>

namespace zqpool::service {

/// The migrations from an empty database to the newest schema; step n upgrades version n to n + 1.
/// A released step never changes: add a new one at the end.
extern const char* const schema_steps[];
extern const std::size_t schema_version;  ///< number of steps

}  // namespace zqpool::service
