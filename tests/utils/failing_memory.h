#pragma once

namespace zqpool::test {

// Programs that link this have an operator new that can fail, on the calling thread alone.

/// How the allocations of the thread that made it go, for as long as it lives. One at a time.
class Failing_Memory {
 public:
  enum class Fail { never, once, from_then_on };

  /// With a limit, allocation number `number` (from 1) fails: that one, or all from there on.
  explicit Failing_Memory(Fail fail = Fail::never, long number = 0) noexcept;
  ~Failing_Memory();
  Failing_Memory(const Failing_Memory&) = delete;
  Failing_Memory& operator=(const Failing_Memory&) = delete;

  /// Allocations that were asked for so far.
  long count() const noexcept;
  /// Whether one was refused.
  bool failed() const noexcept;
};

/// Blocks that the calling thread has taken and not given back, since it began.
long blocks_held() noexcept;

}  // namespace zqpool::test
