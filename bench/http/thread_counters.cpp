#include "bench/http/thread_counters.h"

#include <errno.h>
#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstddef>

namespace {
thread_local std::uint64_t allocation_count = 0;
}

// The program's malloc replaces the C library's in all libraries of the process.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

#define ZQ_VISIBLE __attribute__((visibility("default")))

ZQ_VISIBLE void* malloc(std::size_t size) noexcept {
  ++allocation_count;
  return __libc_malloc(size);
}

ZQ_VISIBLE void* calloc(std::size_t count, std::size_t size) noexcept {
  ++allocation_count;
  return __libc_calloc(count, size);
}

ZQ_VISIBLE void* realloc(void* memory, std::size_t size) noexcept {
  ++allocation_count;
  return __libc_realloc(memory, size);
}

ZQ_VISIBLE void* memalign(std::size_t alignment, std::size_t size) noexcept {
  ++allocation_count;
  return __libc_memalign(alignment, size);
}

ZQ_VISIBLE void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return memalign(alignment, size);
}

ZQ_VISIBLE int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
  *memory = memalign(alignment, size);
  return *memory != nullptr ? 0 : ENOMEM;
}
}

namespace zqpool::bench {

Usage usage() noexcept {
  timespec cpu{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu);
  return {allocation_count, static_cast<std::uint64_t>(cpu.tv_sec) * 1000000000U +
                                static_cast<std::uint64_t>(cpu.tv_nsec)};
}

Instruction_Counter::Instruction_Counter() noexcept {
  perf_event_attr wish{};
  wish.size = sizeof wish;
  wish.type = PERF_TYPE_HARDWARE;
  wish.config = PERF_COUNT_HW_INSTRUCTIONS;
  wish.exclude_kernel = 1;
  wish.exclude_hv = 1;
  fd_ = static_cast<int>(syscall(SYS_perf_event_open, &wish, 0, -1, -1, PERF_FLAG_FD_CLOEXEC));
}

Instruction_Counter::~Instruction_Counter() {
  if (fd_ >= 0) close(fd_);
}

std::optional<std::uint64_t> Instruction_Counter::read() const noexcept {
  std::uint64_t count = 0;
  if (fd_ < 0 || ::read(fd_, &count, sizeof count) != sizeof count) return std::nullopt;
  return count;
}

}  // namespace zqpool::bench
