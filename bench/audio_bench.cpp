// Starting a preview: the time from AudioPreviewController::changeTrack + resume to the first
// audio buffer at the sink, median over 20 plays of a clip served over loopback HTTP, against a
// bare playbin started directly on the same clip and sink in the same run.
#include <benchmark/benchmark.h>
#include <gst/gst.h>
#include <httplib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "applogic/audio/audio_preview_controller.h"
#include "applogic/audio/vx_audio_session.h"
#include "applogic/platform/desktop_audio_session.h"
#include "applogic/platform/gstreamer_media_player.h"
#include "applogic/platform/run_loop.h"
#include "applogic/testing/wav_clip.h"
#include "latency.h"

namespace applogic {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPlays = 20;
constexpr double kTargetMs = 20;
// Headless machines have no sound device; the null sink also keeps devices out of the figure.
constexpr const char* kSink = "fakesink sync=true";

// Serves one clip on loopback; cpp-httplib answers Range requests with 206.
class ClipServer {
 public:
  explicit ClipServer(std::string clip) {
    server_.Get("/clip.wav", [clip = std::move(clip)](const httplib::Request&, httplib::Response& response) {
      response.set_content(clip, "audio/x-wav");
    });
    // Without it the response's second write waits for the client's delayed acknowledgement
    // (40 ms on Linux loopback), a property of this server that would swamp the figure.
    server_.set_tcp_nodelay(true);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::yield();
  }
  ~ClipServer() {
    server_.stop();
    thread_.join();
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/clip.wav"; }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

// Long enough that no play reaches the end while it is measured.
const ClipServer& server() {
  static const ClipServer instance(testing::toneWavClip(2.0));
  return instance;
}

// Set on the streaming thread when a first buffer reaches the sink; waited for by the bench.
class FirstBuffer {
 public:
  void arrived() {
    const auto now = Clock::now();
    {
      std::lock_guard lock(mutex_);
      at_ = now;
      ++count_;
    }
    wake_.notify_all();
  }
  // When the next first buffer arrived, or nothing after five seconds.
  std::optional<Clock::time_point> waitForNext(int seen) {
    std::unique_lock lock(mutex_);
    if (!wake_.wait_for(lock, std::chrono::seconds(5), [&] { return count_ > seen; })) return std::nullopt;
    return at_;
  }
  int count() {
    std::lock_guard lock(mutex_);
    return count_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  Clock::time_point at_;
  int count_ = 0;
};

// Times `start` to the first buffer that `firstBuffer` sees after it, once per iteration; the
// clip is long enough that every play is still running when the next one starts.
template <class Start, class Between>
void timePlays(benchmark::State& state, FirstBuffer& firstBuffer, Start start, Between between) {
  std::vector<double> samples;
  for (auto _ : state) {
    const int seen = firstBuffer.count();
    const auto begin = Clock::now();
    start();
    const auto at = firstBuffer.waitForNext(seen);
    if (!at) {
      state.SkipWithError("no buffer reached the sink within 5 s");
      return;
    }
    samples.push_back(std::chrono::duration<double, std::milli>(*at - begin).count());
    between();
  }
  state.counters["median_ms"] = bench::percentiles(std::move(samples)).median;
}

void BM_Baseline_BarePlaybin(benchmark::State& state) {
  if (!gst_init_check(nullptr, nullptr, nullptr)) {
    state.SkipWithError("GStreamer is not available");
    return;
  }
  GstElement* playbin = gst_element_factory_make("playbin", nullptr);
  GstElement* sink = gst_parse_bin_from_description(kSink, TRUE, nullptr);
  if (playbin == nullptr || sink == nullptr) {
    state.SkipWithError("playbin or the null sink is missing");
    return;
  }
  g_object_set(playbin, "audio-sink", sink, "flags", 1 << 1, "uri", server().url().c_str(), nullptr);
  FirstBuffer firstBuffer;
  // Reports the first buffer after each start, as the player's hook does for each item.
  std::atomic<bool> waiting{false};
  GstPad* pad = gst_element_get_static_pad(sink, "sink");
  struct Probe {
    FirstBuffer* firstBuffer;
    std::atomic<bool>* waiting;
  } probe{&firstBuffer, &waiting};
  gst_pad_add_probe(
      pad, GST_PAD_PROBE_TYPE_BUFFER,
      [](GstPad*, GstPadProbeInfo*, gpointer data) {
        auto* self = static_cast<Probe*>(data);
        if (self->waiting->exchange(false)) self->firstBuffer->arrived();
        return GST_PAD_PROBE_OK;
      },
      &probe, nullptr);
  gst_object_unref(pad);
  // Like `changeTrack`, each start first stops what played before.
  timePlays(
      state, firstBuffer,
      [&] {
        gst_element_set_state(playbin, GST_STATE_NULL);
        waiting.store(true);
        gst_element_set_state(playbin, GST_STATE_PLAYING);
      },
      [] {});
  gst_element_set_state(playbin, GST_STATE_NULL);
  gst_object_unref(playbin);
}
BENCHMARK(BM_Baseline_BarePlaybin)->Iterations(kPlays)->Unit(benchmark::kMillisecond);

void BM_ChangeTrackResumeToFirstBuffer(benchmark::State& state) {
  FirstBuffer firstBuffer;
  auto loop = std::make_shared<platform::RunLoop>();
  auto center = platform::makeNotificationCenter();
  platform::Platform system;
  system.mainThread = loop;
  system.notificationCenter = center;
  system.mediaPlayers = platform::makeGStreamerMediaPlayers(loop, center, {kSink, [&] { firstBuffer.arrived(); }});
  if (!system.mediaPlayers) {
    state.SkipWithError("GStreamer with playbin is not available");
    return;
  }
  auto session = std::make_shared<VXAudioSession>(std::make_shared<platform::DesktopAudioSession>(center), center);
  session->setIsApplicationInBackground([] { return false; });
  AudioPreviewController controller(session, system);
  Track track;
  track.id = "tra.bench";
  track.previewURL = server().url();
  timePlays(
      state, firstBuffer,
      [&] {
        controller.changeTrack(track);
        controller.resume();
      },
      // What the player posted (buffering reports) is handled between plays, as a host would.
      [&] { loop->runUntilIdle(); });
  controller.releaseResources();
  loop->runUntilIdle();
}
BENCHMARK(BM_ChangeTrackResumeToFirstBuffer)->Iterations(kPlays)->Unit(benchmark::kMillisecond);

void printSummary(const bench::CounterReporter& report) {
  const auto start = report.counter("BM_ChangeTrackResumeToFirstBuffer/iterations:20", "median_ms");
  if (!start) return;
  std::printf("\npreview start: changeTrack + resume to the first buffer at the sink, %d plays over loopback HTTP\n",
              kPlays);
  std::printf("  median %.2f ms  target <= %.0f ms: %s\n", *start, kTargetMs, *start <= kTargetMs ? "met" : "MISSED");
  const auto base = report.counter("BM_Baseline_BarePlaybin/iterations:20", "median_ms");
  if (base && *base > 0) {
    std::printf("  bare playbin started directly: median %.2f ms; the preview start is %.2fx of it\n", *base,
                *start / *base);
  }
}

}  // namespace
}  // namespace applogic

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  applogic::bench::CounterReporter report;
  benchmark::RunSpecifiedBenchmarks(&report);
  applogic::printSummary(report);
  benchmark::Shutdown();
  return 0;
}
