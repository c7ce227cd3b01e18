// One catalog track over loopback HTTPS from the local catalog service: through
// TracksDataController.getTrack, the HTTP service client and the Linux HTTP client (libcurl's
// multi interface driven by the run loop), against a bare libcurl easy
// request of the same answer with the same token, in the same run. Median and 99th percentile of
// single calls; each connects once before it is timed and keeps its connection alive between
// calls. Target: the controller within 1.3x of bare libcurl.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "applogic/controllers/tracks_data_controller.h"
#include "applogic/platform/curl_http_client.h"
#include "applogic/platform/run_loop.h"
#include "applogic/services/http_services.h"
#include "emulator/catalog_server.h"
#include "latency.h"

namespace applogic::bench {
namespace {

constexpr const char* kToken = "bench-access-token";

// Always the one token the catalog below accepts.
class FixedToken final : public services::AccessTokenSource {
 public:
  void accessToken(bool /*forceRefresh*/, Completion completion) override {
    completion(Result<std::string>::success(kToken));
  }
};

// The catalog service, trusting only `kToken`, and the id of a track it serves.
class Catalog {
 public:
  Catalog() {
    emulator::CatalogServerOptions options;
    options.accountUserId = "bench-listener";
    options.verifyToken = [](std::string_view token) -> std::optional<std::string> {
      if (token != kToken) return std::nullopt;
      return std::string("bench-listener");
    };
    auto started = emulator::CatalogServer::start(std::move(options));
    if (!started) std::abort();
    server = std::move(started).value();
  }

  std::string trackUrl() const { return server->apiBaseUrl() + "/tracks/" + kTrackId; }

  static constexpr const char* kTrackId = "tra.1001";
  std::unique_ptr<emulator::CatalogServer> server;
};

void BM_Baseline_BareCurl(benchmark::State& state) {
  const Catalog catalog;
  CURL* curl = curl_easy_init();
  std::string body;
  const std::string url = catalog.trackUrl();
  const std::string ca = catalog.server->caPath().string();
  curl_slist* headers = curl_slist_append(nullptr, (std::string("Authorization: Bearer ") + kToken).c_str());
  headers = curl_slist_append(headers, "Accept: application/json");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_CAINFO, ca.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, +[](char* data, size_t size, size_t count, void* out) {
    static_cast<std::string*>(out)->append(data, size * count);
    return size * count;
  });
  const auto call = [&] {
    body.clear();
    long status = 0;
    if (curl_easy_perform(curl) != CURLE_OK) std::abort();
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (status != 200 || body.empty()) std::abort();
  };
  call();  // connected, as in every timed call
  timeEachCall(state, call);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
}
BENCHMARK(BM_Baseline_BareCurl)->Unit(benchmark::kMicrosecond);

// The HTTP client alone, with the same request: what the run loop and the client add to bare
// libcurl, before the service client and the controller add theirs.
void BM_HttpClientOnly(benchmark::State& state) {
  const Catalog catalog;
  const auto loop = std::make_shared<platform::RunLoop>();
  const auto http = platform::makeCurlHttpClient(loop, platform::CurlHttpOptions{catalog.server->caPath()});
  platform::HttpRequest request{catalog.trackUrl()};
  request.headers = {{"Authorization", std::string("Bearer ") + kToken}, {"Accept", "application/json"}};
  const auto call = [&] {
    std::size_t received = 0;
    platform::HttpHandlers handlers;
    handlers.onData = [&](std::string_view data) { received += data.size(); };
    handlers.onFinish = [&] { loop->quit(); };
    handlers.onFailure = [&](const Error&) { loop->quit(); };
    const auto connection = http->start(request, std::move(handlers));
    loop->run();
    if (received == 0) std::abort();
  };
  call();  // connected (TLS handshake, CAs loaded), as in every timed call
  timeEachCall(state, call);
}
BENCHMARK(BM_HttpClientOnly)->Unit(benchmark::kMicrosecond);

void BM_ControllerGetTrack(benchmark::State& state) {
  const Catalog catalog;
  const auto loop = std::make_shared<platform::RunLoop>();
  const auto http = platform::makeCurlHttpClient(loop, platform::CurlHttpOptions{catalog.server->caPath()});
  auto clients = services::makeHttpServices(
      services::ServiceConfiguration{catalog.server->apiBaseUrl(), http, loop, std::make_shared<FixedToken>()});
  if (!clients) std::abort();
  const TracksDataController controller(clients.value().tracks);
  const auto call = [&] {
    bool received = false;
    controller.getTrack(Catalog::kTrackId)
        .subscribe([&](const Track& track) { received = !track.id.empty(); }, [&](const Error&) { loop->quit(); },
                   [&] { loop->quit(); });
    loop->run();
    if (!received) std::abort();
  };
  call();  // connected (TLS handshake, CAs loaded), as in every timed call
  timeEachCall(state, call);
}
BENCHMARK(BM_ControllerGetTrack)->Unit(benchmark::kMicrosecond);

void printSummary(const CounterReporter& report) {
  const auto median = report.counter("BM_ControllerGetTrack", "median_us");
  const auto base = report.counter("BM_Baseline_BareCurl", "median_us");
  if (!median || !base || *base <= 0) return;
  const double ratio = *median / *base;
  std::printf("\ngetTrack over loopback HTTPS: controller + service client + HttpClient\n");
  std::printf("  median %.1f us, bare libcurl %.1f us: %.2fx  target <= 1.3x: %s\n", *median, *base, ratio,
              ratio <= 1.3 ? "met" : "MISSED");
  if (const auto client = report.counter("BM_HttpClientOnly", "median_us")) {
    std::printf("  of which the HTTP client alone (run loop and libcurl multi): %.1f us, %.2fx\n", *client, *client / *base);
  }
}

}  // namespace
}  // namespace applogic::bench

int main(int argc, char** argv) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  benchmark::Initialize(&argc, argv);
  applogic::bench::CounterReporter report;
  benchmark::RunSpecifiedBenchmarks(&report);
  applogic::bench::printSummary(report);
  benchmark::Shutdown();
  curl_global_cleanup();
  return 0;
}
