#pragma once

#include <cstdint>

#include "platform/export.h"

/// A forward iterator over the delays between retries, in seconds.
///
/// The slot starts at `slot_time` and doubles with each step, up to `capped`. The delay is the slot
/// or, with `jitter`, a uniform random number of whole seconds from 1 to the slot. After
/// `max_retries` steps the iterator equals a default-constructed one. Not thread-safe.
class ZQ_EXPORT Exponential_Backoff_Iterator {
 public:
  Exponential_Backoff_Iterator() noexcept = default;  ///< the end iterator
  Exponential_Backoff_Iterator(unsigned slot_time, unsigned max_retries, unsigned capped,
                               bool jitter) noexcept;

  void init(unsigned slot_time, unsigned max_retries, unsigned capped, bool jitter) noexcept;
  void reset() noexcept;  ///< goes back to the first delay

  unsigned operator*() const noexcept { return value_; }
  Exponential_Backoff_Iterator& operator++() noexcept;
  bool done() const noexcept { return i_ >= max_retries_; }
  /// Advances and returns the new delay, 0 at the end.
  unsigned next() noexcept;
  /// Sum of the delays before the current one.
  unsigned cumulation() const noexcept { return cumulation_; }

  bool operator==(const Exponential_Backoff_Iterator& other) const noexcept;
  bool operator!=(const Exponential_Backoff_Iterator& other) const noexcept {
    return !(*this == other);
  }

  /// Seeds the jitter of this thread's iterators, for tests.
  static void seed_jitter(std::uint64_t seed) noexcept;

 private:
  void draw() noexcept;

  unsigned slot_time_ = 0;
  unsigned max_retries_ = 0;
  unsigned capped_ = 0;
  bool jitter_ = false;
  unsigned value_ = 0;
  unsigned cumulation_ = 0;
  unsigned slot_time_exp_ = 0;
  unsigned i_ = 0;
};
