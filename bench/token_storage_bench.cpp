// Reading a valid access token through AITokenManager from the SQLite store: median and 99th
// percentile of single reads, against a raw read of the same item from the store in the same run.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "applogic/platform/clock.h"
#include "applogic/platform/sqlite_secure_store.h"
#include "applogic/signin/client/ai_token_manager.h"

namespace applogic::signin {
namespace {

class FixedClock final : public platform::Clock {
 public:
  TimePoint now() const override { return TimePoint(std::chrono::seconds(1'700'000'000)); }
};

struct Percentiles {
  double median = 0;
  double p99 = 0;
};

Percentiles percentiles(std::vector<double> samples) {
  if (samples.empty()) return {};
  std::sort(samples.begin(), samples.end());
  const auto at = [&](double q) { return samples[std::min(samples.size() - 1, static_cast<std::size_t>(q * samples.size()))]; };
  return {at(0.5), at(0.99)};
}

std::filesystem::path makeScratchDirectory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "applogic-bench-XXXXXX").string();
  return ::mkdtemp(pattern.data());
}

class Fixture {
 public:
  Fixture() {
    AIError error;
    manager_.saveTokenToStorage(
        AIAccessToken("Atza|" + std::string(380, 'x'), {"profile"}, clock_.now() + std::chrono::hours(1), clock_),
        kTokenTypeAccessToken, error);
    if (error.hasErrorOccured()) std::abort();
  }
  ~Fixture() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }

  std::filesystem::path directory_ = makeScratchDirectory();
  std::shared_ptr<platform::SecureStore> store_ = platform::makeSqliteSecureStore(directory_ / "store.sqlite3");
  AITokenManager manager_{AIDataStorageFactory(store_)};
  FixedClock clock_;
};

template <class Read>
void timeReads(benchmark::State& state, Read read) {
  std::vector<double> samples;
  samples.reserve(1 << 16);
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    read();
    samples.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
  }
  const auto p = percentiles(std::move(samples));
  state.counters["median_us"] = p.median;
  state.counters["p99_us"] = p.p99;
}

void BM_Baseline_RawStoreRead(benchmark::State& state) {
  Fixture fixture;
  const auto query = AIKeyChainDataStorage::getKeyChainItemQuery(kTokenTypeAccessToken);
  timeReads(state, [&] {
    platform::SecureItem found;
    benchmark::DoNotOptimize(fixture.store_->copyMatching(query, platform::SecureItemReturn::data, &found));
  });
}
BENCHMARK(BM_Baseline_RawStoreRead)->Unit(benchmark::kMicrosecond);

void BM_ValidAccessTokenThroughManager(benchmark::State& state) {
  Fixture fixture;
  timeReads(state, [&] {
    AIError error;
    const auto token = fixture.manager_.getTokenFromStorage(kTokenTypeAccessToken, error);
    const auto* access = dynamic_cast<const AIAccessToken*>(token.get());
    if (access == nullptr || !access->isValidForScopes({"profile"}, fixture.clock_)) std::abort();
  });
}
BENCHMARK(BM_ValidAccessTokenThroughManager)->Unit(benchmark::kMicrosecond);

class Summary : public benchmark::ConsoleReporter {
 public:
  Summary() : ConsoleReporter(OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      results_[run.benchmark_name()] = {run.counters.at("median_us").value, run.counters.at("p99_us").value};
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void print() const {
    const auto base = results_.find("BM_Baseline_RawStoreRead");
    const auto read = results_.find("BM_ValidAccessTokenThroughManager");
    if (read == results_.end()) return;
    std::printf("\nvalid access token from the SQLite store through AITokenManager\n");
    std::printf("  median %.1f us, p99 %.1f us  target median <= 50 us: %s\n", read->second.median,
                read->second.p99, read->second.median <= 50 ? "met" : "MISSED");
    if (base != results_.end() && base->second.median > 0) {
      std::printf("  raw store read median %.1f us; the manager read is %.2fx of it\n", base->second.median,
                  read->second.median / base->second.median);
    }
  }

 private:
  std::map<std::string, Percentiles> results_;
};

}  // namespace
}  // namespace applogic::signin

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  applogic::signin::Summary summary;
  benchmark::RunSpecifiedBenchmarks(&summary);
  summary.print();
  benchmark::Shutdown();
  return 0;
}
