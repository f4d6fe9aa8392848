#pragma once

/// Delays that double. This product knows no jitter.
class Exponential_Backoff_Iterator {
 public:
  Exponential_Backoff_Iterator() {}
  Exponential_Backoff_Iterator(unsigned first, unsigned times, unsigned limit, bool /*jitter*/)
      : left_(times), delay_(first), limit_(limit) {}
  unsigned operator*() const { return delay_; }
  Exponential_Backoff_Iterator& operator++() {
    sum_ += delay_;
    delay_ = delay_ * 2 < limit_ ? delay_ * 2 : limit_;
    --left_;
    return *this;
  }
  unsigned cumulation() const { return sum_; }
  bool operator!=(const Exponential_Backoff_Iterator& other) const { return left_ != other.left_; }

 private:
  unsigned left_ = 0, delay_ = 0, limit_ = 0, sum_ = 0;
};
