#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zqpool::bench {

/// The median, or another quantile; 0 of nothing.
double median(std::vector<double> values, double quantile = 0.5);

/// Keeps this thread, and those that it starts, to one processor, ahead of all other programs.
/// Throws std::system_error where that is not allowed.
void take_processor(std::size_t number);

/// The bars, each with one line.
class Verdict {
 public:
  void at_most(const std::string& what, double figure, double bar);
  /// `figure` is the part of somebody's time that is ours.
  void ahead(const std::string& what, const char* nearest, double figure);
  void holds(const std::string& what, bool good);

  bool all_met() const { return all_met_; }

 private:
  void print(bool good, const std::string& what);

  bool all_met_ = true;
};

}  // namespace zqpool::bench
