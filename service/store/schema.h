#pragma once

#include <cstddef>

namespace zqpool::service {

/// The steps that lead from an empty state file to the newest schema, in order. Step n makes
/// version n + 1 out of version n. A step that was ever released never changes; a new need is a new
/// step at the end.
extern const char* const schema_steps[];
extern const std::size_t schema_version;  ///< number of steps

}  // namespace zqpool::service
