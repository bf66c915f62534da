/// What the benchmark programs compare at their end. One thread.
#ifndef BENCHMARKS_MEDIANTIMES_H
#define BENCHMARKS_MEDIANTIMES_H

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace benchmarks {

/// Reports to the console as usual and keeps the median CPU time of each benchmark that is
/// repeated.
class MedianTimes : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.aggregate_name == "median")
        medians[run.run_name.function_name + "/" + run.run_name.args] =
            run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
    }
    ConsoleReporter::ReportRuns(runs);
  }

  /// The seconds that one pass of the benchmark "FUNCTION/ARGUMENTS" took; 0 when it did not run.
  [[nodiscard]] double Seconds(const std::string& name) const {
    const auto entry = medians.find(name);
    return entry == medians.end() ? 0.0 : entry->second;
  }

 private:
  std::map<std::string, double> medians;
};

}  // namespace benchmarks

#endif
