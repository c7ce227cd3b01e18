#pragma once

// A reporter that keeps each benchmark's per-item time so that a program can print its targets
// as ratios against a baseline measured in the same run.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace applogic::bench {

class RatioReporter : public ::benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(OO_Tabular) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      double items = 1;
      if (auto it = run.counters.find("items"); it != run.counters.end()) items = it->second.value;
      // Per-iteration time in ns divided by the work items of one iteration.
      const double ns = run.GetAdjustedRealTime() / ::benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e9;
      nsPerItem_[run.benchmark_name()] = ns / items;
      if (auto it = run.counters.find("allocs"); it != run.counters.end()) allocs_[run.benchmark_name()] = it->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }

  double nsPerItem(const std::string& name) const {
    auto it = nsPerItem_.find(name);
    return it == nsPerItem_.end() ? 0 : it->second;
  }
  double allocs(const std::string& name) const {
    auto it = allocs_.find(name);
    return it == allocs_.end() ? 0 : it->second;
  }
  bool has(const std::string& name) const { return nsPerItem_.count(name) != 0; }

 private:
  std::map<std::string, double> nsPerItem_;
  std::map<std::string, double> allocs_;
};

}  // namespace applogic::bench
