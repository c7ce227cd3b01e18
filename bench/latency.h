#pragma once

// Latency of single calls: each iteration is timed alone, and the program reports the median and
// the 99th percentile (as counters, read back through `CounterReporter`) instead of the mean,
// which a few slow calls would move.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace applogic::bench {

struct Percentiles {
  double median = 0;
  double p99 = 0;
};

inline Percentiles percentiles(std::vector<double> samples) {
  if (samples.empty()) return {};
  std::sort(samples.begin(), samples.end());
  const auto at = [&](double q) {
    return samples[std::min(samples.size() - 1, static_cast<std::size_t>(q * static_cast<double>(samples.size())))];
  };
  return {at(0.5), at(0.99)};
}

/// Times each call of `call` (one per iteration) in microseconds and sets the counters
/// "median_us" and "p99_us".
template <class Call>
void timeEachCall(benchmark::State& state, Call call) {
  std::vector<double> samples;
  samples.reserve(1 << 16);
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    call();
    samples.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
  }
  const Percentiles p = percentiles(std::move(samples));
  state.counters["median_us"] = p.median;
  state.counters["p99_us"] = p.p99;
}

/// The console reporter, keeping every counter of every benchmark so that a program can print
/// its targets and ratios after the run.
class CounterReporter : public benchmark::ConsoleReporter {
 public:
  CounterReporter() : ConsoleReporter(OO_Tabular) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      for (const auto& [key, counter] : run.counters) counters_[run.benchmark_name()][key] = counter.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }

  /// The counter `key` of the benchmark `name`; absent when either did not run.
  std::optional<double> counter(const std::string& name, const std::string& key) const {
    const auto run = counters_.find(name);
    if (run == counters_.end()) return std::nullopt;
    const auto value = run->second.find(key);
    if (value == run->second.end()) return std::nullopt;
    return value->second;
  }

 private:
  std::map<std::string, std::map<std::string, double>> counters_;
};

}  // namespace applogic::bench
