#include "applogic/platform/gstreamer_media_player.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "applogic/platform/run_loop.h"
#include "http/loopback.h"
#include "platform/raw_clip_server.h"
#include "platform/wav_clip.h"
#include "run_until_quit.h"

namespace applogic {
namespace {

using test::RawClipServer;

const std::string kEnd(platform::kMediaPlayerItemDidPlayToEndTimeNotification);
const std::string kFailed(platform::kMediaPlayerItemFailedToPlayToEndTimeNotification);

// The run loop, counting the reports that GStreamer's threads hand it, so that a test can leave
// one queued while it acts.
struct CountingMainThread final : platform::MainThread {
  void post(std::function<void()> task) override {
    loop->post(std::move(task));
    ++posted;
  }
  bool isMainThread() const override { return loop->isMainThread(); }
  std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
  std::atomic<int> posted{0};
};

// Whether GStreamer, as installed, has playbin: then the players must exist.
bool playbinInstalled() {
  if (!gst_init_check(nullptr, nullptr, nullptr)) return false;
  GstElementFactory* playbin = gst_element_factory_find("playbin");
  if (playbin != nullptr) gst_object_unref(playbin);
  return playbin != nullptr;
}

// Waits (at most 30 s, on this thread) until `condition` holds; nothing is asserted about time.
template <class Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 3000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return condition();
}

// GStreamer's leaks tracer, set up with GStreamer itself (by GStreamerMediaPlayerTest), or null.
GstTracer* leaksTracer() {
  GList* tracers = gst_tracing_get_active_tracers();
  GList* leaks = g_list_find_custom(tracers, "GstLeaksTracer", [](gconstpointer tracer, gconstpointer name) {
    return g_strcmp0(G_OBJECT_TYPE_NAME(tracer), static_cast<const char*>(name));
  });
  GstTracer* found = leaks != nullptr ? GST_TRACER(leaks->data) : nullptr;
  g_list_free_full(tracers, gst_object_unref);  // the tracing system keeps them
  return found;
}

// How many elements, pads, buses, device monitors and devices were made since the tracer started
// tracking and are still alive.
std::ptrdiff_t keptGStreamerObjects(GstTracer* leaks) {
  GstStructure* checkpoint = nullptr;
  g_signal_emit_by_name(leaks, "activity-get-checkpoint", &checkpoint);
  const auto size = [&](const char* list) { return gst_value_list_get_size(gst_structure_get_value(checkpoint, list)); };
  const auto kept = static_cast<std::ptrdiff_t>(size("objects-created-list")) - size("objects-removed-list");
  gst_structure_free(checkpoint);
  return kept;
}

class GStreamerMediaPlayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("GST_TRACERS", "leaks(filters=\"GstElement,GstPad,GstBus,GstDeviceMonitor,GstDevice\")", 0);
    // The first call sets GStreamer up, which must not complain (a GLib critical is a misuse), nor
    // must asking for an audio output (whatever it says: its device providers stay, with a bus each).
    ::testing::internal::CaptureStderr();
    factory = platform::makeGStreamerMediaPlayers(mainThread, center, options);
    static_cast<void>(platform::audioOutputDevicePresent());
    EXPECT_EQ(::testing::internal::GetCapturedStderr().find("CRITICAL"), std::string::npos);
    if (!playbinInstalled()) GTEST_SKIP() << "GStreamer with playbin is not installed";
    leaks = leaksTracer();
    if (leaks != nullptr) g_signal_emit_by_name(leaks, "activity-start-tracking");
    ASSERT_TRUE(factory);
    player = factory->makePlayer();
    observation = player->observeRate([this](float rate) { rates.push_back(rate); });
    token = center->addObserver(std::nullopt, nullptr, [this](const platform::Notification& n) {
      const auto* reason = platform::userInfoValue<std::string>(n, platform::kGStreamerErrorReasonKey);
      const bool unexplained = n.name != kEnd && (!reason || reason->empty());
      reports.push_back(n.name + (loop->isMainThread() ? "" : " elsewhere") + (unexplained ? " without a reason" : ""));
      if (quitOnReport) loop->quit();
    });
  }
  // The players leave nothing of GStreamer's behind them.
  void TearDown() override {
    if (!factory) return;
    center->removeObserver(token);
    observation.reset();
    player.reset();
    factory.reset();
    // Nor does making players, or asking for an output.
    static_cast<void>(platform::makeGStreamerMediaPlayers(mainThread, center, options));
    static_cast<void>(platform::audioOutputDevicePresent());
    EXPECT_EQ(leaks ? keptGStreamerObjects(leaks) : 0, 0);
  }

  // Plays the player's item until it reports its end or a failure.
  void playToAReport() {
    player->play();
    ASSERT_TRUE(test::runUntilQuit(*loop));
  }

  // Runs the loop for a while without quitting at reports: long enough for a player that retries
  // after a failure to show it many times over. Nothing is asserted about time.
  void keepRunning() {
    quitOnReport = false;
    std::thread timer([this] {
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
      loop->quit();
    });
    loop->run();
    timer.join();
    quitOnReport = true;
  }

  std::shared_ptr<CountingMainThread> mainThread = std::make_shared<CountingMainThread>();
  std::shared_ptr<platform::RunLoop> loop = mainThread->loop;
  std::shared_ptr<platform::NotificationCenter> center = platform::makeNotificationCenter();
  std::atomic<int> firstBuffers{0};
  test::TestCertificate certificate;  // an https item's server's, and the players' one authority
  const platform::GStreamerMediaOptions options{"fakesink sync=true", [this] { ++firstBuffers; }, certificate.caFile()};
  std::shared_ptr<platform::MediaPlayerFactory> factory;
  std::shared_ptr<platform::MediaPlayer> player;
  std::unique_ptr<platform::MediaPlayerRateObservation> observation;
  std::vector<float> rates;
  std::vector<std::string> reports;
  bool quitOnReport = true;
  platform::NotificationObserverToken token;
  GstTracer* leaks = nullptr;
};

// A clip plays to its end, reported on the main thread, and again after a rewind; the first-buffer
// hook runs once per loaded item, not once per play. After the end the player loads the address
// again rather than seeking back, so a server that does not take Range requests (as
// `python3 -m http.server`) plays the clip again as well.
TEST_F(GStreamerMediaPlayerTest, AClipPlaysToItsEndAndAgainAfterARewindFromAFileOrOverHttp) {
  RawClipServer server(testing::toneWavClip(0.2), RawClipServer::whole);
  test::LoopbackServer https{std::make_unique<httplib::SSLServer>(certificate.certificate(), certificate.key()), "https"};
  https.server->Get("/clip.wav", [](const httplib::Request&, httplib::Response& response) {
    response.set_content(testing::toneWavClip(0.2), "audio/x-wav");
  });
  https.start();
  for (const std::string& url : {"file://" + test::writeClip("gst_clip.wav", 0.2), server.url(), https.url("/clip.wav")}) {
    SCOPED_TRACE(url);
    const Url clip = *Url::parse(url);
    rates.clear();
    reports.clear();
    firstBuffers = 0;
    EXPECT_EQ(player->duration(), std::nullopt);
    player->replaceCurrentItem(factory->makeItem(clip));
    playToAReport();
    // 1600 samples at 8 kHz: the length of the clip as written, not a measured time.
    EXPECT_EQ(player->duration(), std::chrono::milliseconds(200));
    EXPECT_GT(player->currentTime(), std::chrono::milliseconds(100));
    // The sink sees every buffer before the end it reports, so the count is final at each end.
    EXPECT_EQ(firstBuffers.load(), 1);
    if (url != server.url()) {
      // At its end the item is paused: a seek elsewhere than its start plays nothing by itself.
      player->seek(std::chrono::milliseconds(100));
      keepRunning();
      EXPECT_EQ(reports, std::vector<std::string>{kEnd});
    }
    const std::size_t requestsOfTheFirstPlay = server.requests();
    player->seek(std::chrono::seconds(0));
    playToAReport();
    EXPECT_EQ(reports, (std::vector<std::string>{kEnd, kEnd}));
    EXPECT_EQ(rates, (std::vector<float>{1.0f, 0.0f, 1.0f, 0.0f}));
    EXPECT_EQ(firstBuffers.load(), 1);
    EXPECT_EQ(server.requests() > requestsOfTheFirstPlay, url == server.url());
    player->replaceCurrentItem(factory->makeItem(clip));
    playToAReport();
    EXPECT_EQ(firstBuffers.load(), 2);
    player->replaceCurrentItem(nullptr);
  }
}

// Whatever breaks, the failure is reported once, with a reason, and nothing opens the address
// again until the app plays it (not a pause, not a seek); then the player tries it afresh.
TEST_F(GStreamerMediaPlayerTest, WhatCannotBePlayedFailsOnceAndIsOpenedAgainOnlyWhenPlayed) {
  const std::string text = "this is text, not sound\n";
  const std::string notAudio = ::testing::TempDir() + "gst_not_audio.txt";
  std::ofstream(notAudio) << text;
  struct Row {
    const char* name;
    std::string url;
    std::shared_ptr<RawClipServer> server;
  };
  const Row rows[] = {
      {"a missing file", "file://" + ::testing::TempDir() + "gst_missing.wav", nullptr},
      {"a text file", "file://" + notAudio, nullptr},
      // Port 1 of the loopback interface: nothing listens there, so the connection is refused.
      {"a refused connection", "http://127.0.0.1:1/clip.wav", nullptr},
      {"text served as audio", "", std::make_shared<RawClipServer>(text, RawClipServer::whole)},
      {"a server that vanishes mid-clip", "", std::make_shared<RawClipServer>(testing::toneWavClip(0.4), RawClipServer::vanishes)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    reports.clear();
    player->replaceCurrentItem(factory->makeItem(*Url::parse(row.server ? row.server->url() : row.url)));
    playToAReport();
    const std::size_t requests = row.server ? row.server->requests() : 0;
    player->pause();
    player->seek(std::chrono::milliseconds(100));
    keepRunning();
    EXPECT_EQ(reports, std::vector<std::string>{kFailed});
    EXPECT_EQ(player->rate(), 0.0f);
    EXPECT_EQ(player->duration(), std::nullopt);
    EXPECT_EQ(row.server ? row.server->requests() : 0, requests);
    if (row.name == std::string("text served as audio")) {
      playToAReport();
      EXPECT_EQ(reports, (std::vector<std::string>{kFailed, kFailed}));
      EXPECT_GT(row.server->requests(), requests);
    }
  }
}

// A new item, still paused, loads at once: it prerolls and knows its length before any play. The
// end that the previous item reported just before it was replaced is not the new item's, nor is
// its length; a pause holds the new one.
TEST_F(GStreamerMediaPlayerTest, ANewItemLoadsPausedAndHearsNothingOfThePreviousOne) {
  const Url clip = *Url::parse("file://" + test::writeClip("gst_short.wav", 0.2));
  player->replaceCurrentItem(factory->makeItem(clip));
  ASSERT_TRUE(eventually([&] { return player->duration().has_value(); }));
  EXPECT_EQ(player->duration(), std::chrono::milliseconds(200));
  EXPECT_EQ(player->rate(), 0.0f);

  player->play();
  ASSERT_TRUE(eventually([&] { return mainThread->posted.load() > 0; }));  // its end, still queued
  player->replaceCurrentItem(factory->makeItem(*Url::parse("file://" + test::writeClip("gst_next.wav", 0.1))));
  EXPECT_NE(player->duration(), std::chrono::milliseconds(200));
  player->pause();
  keepRunning();
  EXPECT_EQ(reports, std::vector<std::string>{});
  EXPECT_EQ(rates, (std::vector<float>{0.0f, 1.0f, 0.0f}));
  player->replaceCurrentItem(nullptr);
}

// A rewind before the end seeks within the playing item, which plays on to its end (only a rewind
// after the end loads the item again).
TEST_F(GStreamerMediaPlayerTest, ARewindBeforeTheEndKeepsPlaying) {
  player->replaceCurrentItem(factory->makeItem(*Url::parse("file://" + test::writeClip("gst_rewound.wav", 0.6))));
  player->play();
  ASSERT_TRUE(eventually([&] { return player->currentTime() > std::chrono::nanoseconds(0); }));
  player->seek(std::chrono::seconds(0));
  ASSERT_TRUE(test::runUntilQuit(*loop));
  EXPECT_EQ(reports, std::vector<std::string>{kEnd});
}

// While a stream's data stalls, the player holds it (the app's play included) and plays when the
// data comes, unless the app paused meanwhile. A player that does not wait plays what came.
TEST_F(GStreamerMediaPlayerTest, AStalledStreamIsHeldUntilItsDataComes) {
  for (const bool waits : {true, false}) {
    SCOPED_TRACE(waits);
    reports.clear();
    RawClipServer server(testing::toneWavClip(0.3), RawClipServer::holds);
    if (!waits) player->setAutomaticallyWaitsToMinimizeStalling(false);  // a player waits unless told not to
    player->replaceCurrentItem(factory->makeItem(*Url::parse(server.url())));
    const int before = mainThread->posted.load();
    ASSERT_TRUE(eventually([&] { return mainThread->posted.load() > before; }));  // buffering, from the start
    loop->runUntilIdle();
    player->play();
    if (waits) keepRunning();
    EXPECT_TRUE(waits ? player->currentTime() == std::chrono::nanoseconds(0)
                      : eventually([&] { return player->currentTime() > std::chrono::nanoseconds(0); }));
    player->pause();
    server.release();
    keepRunning();
    EXPECT_EQ(reports, std::vector<std::string>{});
    playToAReport();
    EXPECT_EQ(reports, std::vector<std::string>{kEnd});
  }
}

// A sink description that names no element makes no players.
TEST(GStreamerMediaPlayers, AnUnknownSinkMakesNoPlayers) {
  EXPECT_EQ(platform::makeGStreamerMediaPlayers(std::make_shared<platform::RunLoop>(), platform::makeNotificationCenter(),
                                                {"applogic-no-such-sink"}),
            nullptr);
}

}  // namespace
}  // namespace applogic
