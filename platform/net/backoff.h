#pragma once

#include <cstdint>

#include "platform/export.h"

/// A forward iterator over retry delays in whole seconds.
///
/// The slot doubles from `slot_time` up to `capped`; the delay is the slot or, with jitter, a
/// uniform whole number of seconds from 1 to the slot. After `max_retries` steps the iterator
/// equals a default-made one. An iterator belongs to one thread.
class ZQ_EXPORT Exponential_Backoff_Iterator {
 public:
  Exponential_Backoff_Iterator() noexcept = default;  ///< the end
  Exponential_Backoff_Iterator(unsigned slot_time, unsigned max_retries, unsigned capped,
                               bool jitter) noexcept;

  void init(unsigned slot_time, unsigned max_retries, unsigned capped, bool jitter) noexcept;
  void reset() noexcept;  ///< back to the first delay

  unsigned operator*() const noexcept { return value_; }
  Exponential_Backoff_Iterator& operator++() noexcept;
  bool done() const noexcept { return i_ >= max_retries_; }
  /// Steps on; the new delay, or 0 at the end.
  unsigned next() noexcept;
  /// Sum of the delays already stepped past, in seconds.
  unsigned cumulation() const noexcept { return cumulation_; }

  bool operator==(const Exponential_Backoff_Iterator& other) const noexcept;
  bool operator!=(const Exponential_Backoff_Iterator& other) const noexcept {
    return !(*this == other);
  }

  /// Makes the jitter of this thread's iterators repeatable (tests).
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
