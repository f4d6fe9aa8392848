#pragma once

/// Aborts unless the condition holds.
inline void check(bool condition) {
  if (!condition) __builtin_trap();
}
