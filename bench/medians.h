#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace zqpool::bench {

/// Sets Google Benchmark up for comparisons: runs are interleaved in random order, so that noise
/// hits all alike, and medians reported. The command line may override this.
inline void initialize_for_medians(int argc, char** argv) {
  std::vector<char*> arguments(argv, argv + 1);
  char repetitions[] = "--benchmark_repetitions=21";
  char min_time[] = "--benchmark_min_time=0.05";
  char interleaving[] = "--benchmark_enable_random_interleaving=true";
  char aggregates[] = "--benchmark_report_aggregates_only=true";
  for (char* preset : {repetitions, min_time, interleaving, aggregates}) {
    arguments.push_back(preset);
  }
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
}

/// Collects the medians of CPU time; the console shows everything.
class Median_Reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& reports) override {
    ConsoleReporter::ReportRuns(reports);
    for (const Run& run : reports) {
      if (run.aggregate_name == "median") {
        nanoseconds[run.run_name.function_name] =
            run.GetAdjustedCPUTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
      }
    }
  }

  std::map<std::string, double> nanoseconds;
};

}  // namespace zqpool::bench
