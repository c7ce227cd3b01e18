// Reading a valid access token through AITokenManager from the SQLite store: median and 99th
// percentile of single reads, against a raw read of the same item from the store in the same run.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "latency.h"
#include "token_store_fixture.h"

namespace applogic::bench {
namespace {

void BM_Baseline_RawStoreRead(benchmark::State& state) {
  const TokenStoreFixture fixture;
  const auto query = signin::AIKeyChainDataStorage::getKeyChainItemQuery(signin::kTokenTypeAccessToken);
  timeEachCall(state, [&] {
    platform::SecureItem found;
    benchmark::DoNotOptimize(fixture.store->copyMatching(query, platform::SecureItemReturn::data, &found));
  });
}
BENCHMARK(BM_Baseline_RawStoreRead)->Unit(benchmark::kMicrosecond);

void BM_ValidAccessTokenThroughManager(benchmark::State& state) {
  const TokenStoreFixture fixture;
  timeEachCall(state, [&] { fixture.readValidAccessToken(); });
}
BENCHMARK(BM_ValidAccessTokenThroughManager)->Unit(benchmark::kMicrosecond);

void printSummary(const CounterReporter& report) {
  const auto median = report.counter("BM_ValidAccessTokenThroughManager", "median_us");
  const auto p99 = report.counter("BM_ValidAccessTokenThroughManager", "p99_us");
  if (!median || !p99) return;
  std::printf("\nvalid access token from the SQLite store through AITokenManager\n");
  std::printf("  median %.1f us, p99 %.1f us  target median <= 50 us: %s\n", *median, *p99,
              *median <= 50 ? "met" : "MISSED");
  const auto base = report.counter("BM_Baseline_RawStoreRead", "median_us");
  if (base && *base > 0) {
    std::printf("  raw store read median %.1f us; the manager read is %.2fx of it\n", *base, *median / *base);
  }
}

}  // namespace
}  // namespace applogic::bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  applogic::bench::CounterReporter report;
  benchmark::RunSpecifiedBenchmarks(&report);
  applogic::bench::printSummary(report);
  benchmark::Shutdown();
  return 0;
}
