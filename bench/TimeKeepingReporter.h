// A console reporter that also remembers each benchmark's time, so that a
// benchmark program can print ratios against its peers after the run.
#ifndef VELMOR_BENCH_TIME_KEEPING_REPORTER_H_
#define VELMOR_BENCH_TIME_KEEPING_REPORTER_H_

#include <benchmark/benchmark.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace velmor {

// Keeps the real and CPU time per iteration of every run (the median when
// repetitions are asked for), in the run's time unit. CPU time is the
// steadier measure when other processes share the machine.
class TimeKeepingReporter final : public benchmark::ConsoleReporter {
 public:
  struct Times {
    double real = 0;
    double cpu = 0;
  };

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      bool isMedian = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.run_type == Run::RT_Iteration || isMedian) {
        times_[run.run_name.function_name] = {run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  std::optional<Times> time(const std::string& name) const {
    auto it = times_.find(name);
    return it == times_.end() ? std::nullopt : std::optional<Times>(it->second);
  }

 private:
  std::map<std::string, Times> times_;
};

}  // namespace velmor

#endif  // VELMOR_BENCH_TIME_KEEPING_REPORTER_H_
