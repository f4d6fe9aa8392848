#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zqpool::bench {

/// The median or another quantile; 0 for an empty list.
double median(std::vector<double> values, double quantile = 0.5);

/// Pins this thread and those that it starts to one processor, with real-time priority. Throws
/// std::system_error if that is not allowed.
void take_processor(std::size_t number);

/// Prints one line for each bar.
class Verdict {
 public:
  void at_most(const std::string& what, double figure, double bar);
  /// `figure` is our time divided by the other's.
  void ahead(const std::string& what, const char* nearest, double figure);
  void holds(const std::string& what, bool good);

  bool all_met() const { return all_met_; }

 private:
  void print(bool good, const std::string& what);

  bool all_met_ = true;
};

}  // namespace zqpool::bench
