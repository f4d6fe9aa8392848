#pragma once

#include <cstdint>
#include <optional>

namespace zqpool::bench {

/// What the calling thread has used up to now.
struct Usage {
  /// Calls of malloc, calloc, realloc and the like, by whatever library. operator new counts once,
  /// as the malloc that it calls.
  std::uint64_t allocations = 0;
  std::uint64_t cpu_ns = 0;  ///< processor time, the kernel's included
};

Usage usage() noexcept;

/// Counts the user-space instructions of the thread that makes it. Many virtual machines have no
/// counter for that.
class Instruction_Counter {
 public:
  Instruction_Counter() noexcept;
  ~Instruction_Counter();
  Instruction_Counter(const Instruction_Counter&) = delete;
  Instruction_Counter& operator=(const Instruction_Counter&) = delete;

  bool works() const noexcept { return read().has_value(); }
  std::optional<std::uint64_t> read() const noexcept;

 private:
  int fd_;
};

}  // namespace zqpool::bench
