#pragma once

/// Ends the run here when what must always hold does not.
inline void check(bool condition) {
  if (!condition) __builtin_trap();
}
