#pragma once

#include <cstdint>
#include <optional>

namespace zqpool::bench {

/// What the calling thread has used so far.
struct Usage {
  /// Calls that take heap memory: malloc, calloc, realloc and their sisters, whoever makes them;
  /// operator new is counted as the malloc that it makes.
  std::uint64_t allocations = 0;
  std::uint64_t cpu_ns = 0;  ///< processor time, the kernel's included
};

Usage usage() noexcept;

/// Counts the instructions of the thread that makes it, the kernel's not included, where the
/// machine's counters can be read; many virtual machines have none.
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
