#include "tests/utils/failing_memory.h"

#include <cstdlib>
#include <new>

namespace zqpool::test {
namespace {

using Fail = Failing_Memory::Fail;

thread_local Fail fail_mode = Fail::never;
thread_local long fail_number = 0;
thread_local long asked = 0;
thread_local bool refused = false;
thread_local long held = 0;

void* allocate(std::size_t size, std::size_t alignment) {
  ++asked;
  if ((fail_mode == Fail::once && asked == fail_number) ||
      (fail_mode == Fail::from_then_on && asked >= fail_number)) {
    refused = true;
    throw std::bad_alloc();
  }
  void* const block =
      alignment == 0
          ? std::malloc(size)
          : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (block == nullptr) throw std::bad_alloc();
  ++held;
  return block;
}

void release(void* block) noexcept {
  if (block != nullptr) --held;
  std::free(block);
}

}  // namespace

Failing_Memory::Failing_Memory(Fail fail, long number) noexcept {
  fail_mode = fail;
  fail_number = number;
  asked = 0;
  refused = false;
}
Failing_Memory::~Failing_Memory() {
  fail_mode = Fail::never;
}
long Failing_Memory::count() const noexcept {
  return asked;
}
bool Failing_Memory::failed() const noexcept {
  return refused;
}
long blocks_held() noexcept {
  return held;
}

}  // namespace zqpool::test

// Every form is replaced: the standard library's others would call these, but those of the
// sanitizers do not.
void* operator new(std::size_t size) {
  return zqpool::test::allocate(size == 0 ? 1 : size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return zqpool::test::allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return operator new(size, alignment);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return operator new(size, std::nothrow);
}
void operator delete(void* block) noexcept {
  zqpool::test::release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  zqpool::test::release(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
  zqpool::test::release(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  zqpool::test::release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  zqpool::test::release(block);
}
void operator delete[](void* block) noexcept {
  zqpool::test::release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  zqpool::test::release(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
  zqpool::test::release(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
  zqpool::test::release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  zqpool::test::release(block);
}
