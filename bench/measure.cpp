#include "bench/measure.h"

#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace zqpool::bench {

double median(std::vector<double> values, double quantile) {
  if (values.empty()) return 0;
  const auto place = values.begin() +
                     static_cast<std::ptrdiff_t>(quantile * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

void take_processor(std::size_t number) {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  CPU_SET(number, &processors);
  sched_param priority{};
  priority.sched_priority = 10;
  if (sched_setaffinity(0, sizeof processors, &processors) != 0 ||
      sched_setscheduler(0, SCHED_FIFO, &priority) != 0) {
    throw std::system_error(errno, std::generic_category(), "--alone");
  }
}

void Verdict::at_most(const std::string& what, double figure, double bar) {
  print(figure <= bar, what);
  std::printf(": %.4g, bar %g\n", figure, bar);
}

void Verdict::ahead(const std::string& what, const char* nearest, double figure) {
  print(figure < 1, what);
  std::printf(": %.3f of the time of %s, the nearest\n", figure, nearest);
}

void Verdict::holds(const std::string& what, bool good) {
  print(good, what);
  std::printf("\n");
}

void Verdict::print(bool good, const std::string& what) {
  std::printf("%s  %s", good ? "PASS" : "MISS", what.c_str());
  all_met_ = all_met_ && good;
}

}  // namespace zqpool::bench
