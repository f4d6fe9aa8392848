#pragma once

#include <algorithm>
#include <chrono>
#include <climits>

namespace zqpool::detail {

using Clock = std::chrono::steady_clock;

inline std::chrono::microseconds micros_since(Clock::time_point start) noexcept {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
}

/// The moment at which waiting ends.
class Deadline {
 public:
  explicit Deadline(Clock::time_point end) noexcept : end_(end) {}

  /// At most ten years from now, so that the sum never overflows.
  static Deadline in(std::chrono::milliseconds limit) noexcept {
    return after(Clock::now(), limit);
  }
  static Deadline after(Clock::time_point start, std::chrono::milliseconds limit) noexcept {
    constexpr std::chrono::milliseconds max_limit = std::chrono::hours(24 * 3650);
    return Deadline(start + std::clamp(limit, std::chrono::milliseconds(0), max_limit));
  }

  Clock::time_point end() const noexcept { return end_; }
  bool passed() const noexcept { return Clock::now() >= end_; }
  Deadline or_sooner(Deadline other) const noexcept { return other.end_ < end_ ? other : *this; }

  /// The time left, at least 0. Rounded up, so that waiting for it never ends before the deadline.
  std::chrono::milliseconds left() const noexcept {
    return std::max(std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()),
                    std::chrono::milliseconds(0));
  }
  /// The time left as poll() takes it; 0 only once the deadline has passed.
  int poll_timeout() const noexcept {
    return static_cast<int>(std::min<long long>(left().count(), INT_MAX));
  }

 private:
  Clock::time_point end_;
};

}  // namespace zqpool::detail
