#include "platform/net/backoff.h"

#include <algorithm>
#include <random>

namespace {

std::mt19937_64& jitter_generator() {
  thread_local std::mt19937_64 generator{std::random_device{}()};
  return generator;
}

}  // namespace

Exponential_Backoff_Iterator::Exponential_Backoff_Iterator(unsigned slot_time, unsigned max_retries,
                                                           unsigned capped, bool jitter) noexcept {
  init(slot_time, max_retries, capped, jitter);
}

void Exponential_Backoff_Iterator::init(unsigned slot_time, unsigned max_retries, unsigned capped,
                                        bool jitter) noexcept {
  slot_time_ = slot_time;
  max_retries_ = max_retries;
  capped_ = capped;
  jitter_ = jitter;
  reset();
}

void Exponential_Backoff_Iterator::reset() noexcept {
  i_ = 0;
  cumulation_ = 0;
  slot_time_exp_ = std::min(slot_time_, capped_);
  draw();
}

void Exponential_Backoff_Iterator::draw() noexcept {
  if (done()) {
    value_ = 0;
  } else if (jitter_ && slot_time_exp_ > 1) {
    value_ = std::uniform_int_distribution<unsigned>(1, slot_time_exp_)(jitter_generator());
  } else {
    value_ = slot_time_exp_;
  }
}

Exponential_Backoff_Iterator& Exponential_Backoff_Iterator::operator++() noexcept {
  if (done()) return *this;
  ++i_;
  // Saturates, because a sum that wrapped round would restart the time limit.
  if (__builtin_add_overflow(cumulation_, value_, &cumulation_)) cumulation_ = ~0U;
  slot_time_exp_ = slot_time_exp_ > capped_ / 2 ? capped_ : slot_time_exp_ * 2;
  draw();
  return *this;
}

unsigned Exponential_Backoff_Iterator::next() noexcept {
  return *++*this;
}

bool Exponential_Backoff_Iterator::operator==(
    const Exponential_Backoff_Iterator& other) const noexcept {
  if (done() || other.done()) return done() == other.done();
  return i_ == other.i_ && slot_time_ == other.slot_time_ && max_retries_ == other.max_retries_ &&
         capped_ == other.capped_ && jitter_ == other.jitter_ && value_ == other.value_ &&
         cumulation_ == other.cumulation_;
}

void Exponential_Backoff_Iterator::seed_jitter(std::uint64_t seed) noexcept {
  jitter_generator().seed(seed);
}
