#pragma once

#include <algorithm>
#include <atomic>
#include <list>
#include <mutex>
#include <utility>

namespace zqpool::detail {

/// A value that some threads read through a pointer while others replace it. Thread-safe.
///
/// All distinct values are kept as long as this object, so pointers stay valid and what they point
/// to never changes.
template <typename T>
class Published {
 public:
  /// The current value; null if there is none.
  const T* get() const noexcept { return current_.load(std::memory_order_acquire); }

  void publish(T value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    make_current(std::move(value));
  }

  /// Publishes `value` if there is no current value. Returns the current value.
  const T* publish_if_none(T value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (get() == nullptr) make_current(std::move(value));
    return get();
  }

  /// Makes get() return null.
  void clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    current_.store(nullptr, std::memory_order_release);
  }

 private:
  void make_current(T&& value) {
    auto kept = std::find(values_.begin(), values_.end(), value);
    if (kept == values_.end()) kept = values_.insert(kept, std::move(value));
    current_.store(&*kept, std::memory_order_release);
  }

  std::atomic<const T*> current_{nullptr};
  std::mutex mutex_;
  std::list<T> values_;
};

}  // namespace zqpool::detail
