#include <httplib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "applogic/audio/audio_preview_controller.h"
#include "applogic/platform/desktop_audio_session.h"
#include "applogic/platform/gstreamer_media_player.h"
#include "applogic/platform/run_loop.h"
#include "applogic/support/log.h"
#include "platform/raw_clip_server.h"
#include "platform/wav_clip.h"
#include "run_until_quit.h"

namespace applogic {
namespace {

// Serves one clip on loopback; cpp-httplib answers Range requests with 206 and the asked bytes.
class ClipServer {
 public:
  explicit ClipServer(std::string clip) {
    server_.Get("/clip.wav", [this, clip = std::move(clip)](const httplib::Request& request, httplib::Response& response) {
      {
        std::lock_guard lock(mutex_);
        ranges_.push_back(request.has_header("Range") ? request.get_header_value("Range") : "");
      }
      response.set_content(clip, "audio/x-wav");
    });
    // Stopping waits for idle connections to time out; the default is five seconds.
    server_.set_keep_alive_timeout(1);
    // Otherwise each response's second write waits for a delayed acknowledgement (40 ms).
    server_.set_tcp_nodelay(true);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // `stop` only ends a server that is already accepting.
    while (!server_.is_running()) std::this_thread::yield();
  }
  ~ClipServer() {
    server_.stop();
    thread_.join();
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/clip.wav"; }
  // The Range header of every request so far, in order ("" for none).
  std::vector<std::string> ranges() {
    std::lock_guard lock(mutex_);
    return ranges_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> ranges_;
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct CapturingSink : LogSink {
  std::vector<std::string> lines;
  void write(std::string_view line) override { lines.emplace_back(line); }
};

using ::applogic::test::runUntilQuit;

class GStreamerHttpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    platform.mediaPlayers = platform::makeGStreamerMediaPlayers(loop, center, {"fakesink sync=true"});
    if (!platform.mediaPlayers) GTEST_SKIP() << "GStreamer with playbin is not installed";
    platform.mainThread = loop;
    platform.notificationCenter = center;
    session->setIsApplicationInBackground([] { return false; });
    controller = std::make_unique<AudioPreviewController>(session, platform);
    controller->isPlaying().subscribe([this](bool value) { playing.push_back(value); });
    controller->currentTrack().subscribe([this](const std::optional<Track>& track) { current = track; });
    quitAtEnd = center->addObserver(std::nullopt, nullptr, [this](const platform::Notification& notification) {
      reports.push_back(notification.name);
      if (quitOnReport) loop->quit();
    });
  }
  void TearDown() override { center->removeObserver(quitAtEnd); }

  static Track trackAt(std::string url) { return Track("tra.http", "Clip", 1, false, "", "", "", "", true, std::move(url)); }

  // Runs the loop for a while without quitting at reports: long enough for a player or a
  // controller that retries after a failure to show it many times over. Nothing is asserted
  // about time.
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

  std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
  std::shared_ptr<platform::NotificationCenter> center = platform::makeNotificationCenter();
  platform::Platform platform;
  std::shared_ptr<VXAudioSession> session =
      std::make_shared<VXAudioSession>(std::make_shared<platform::DesktopAudioSession>(center), center);
  std::unique_ptr<AudioPreviewController> controller;
  std::vector<bool> playing;
  std::optional<Track> current;
  std::vector<std::string> reports;
  bool quitOnReport = true;
  platform::NotificationObserverToken quitAtEnd;
};

// After the end the player loads the address again rather than seeking back, so a server that
// does not take Range requests (as `python3 -m http.server`) plays the clip again as well.
TEST_F(GStreamerHttpTest, AClipServedOverHttpPlaysEndsRewoundAndPlaysAgain) {
  const std::string clip = readFile(test::writeClip("http_clip.wav", 0.3));
  ClipServer withRanges(clip);
  test::RawClipServer withoutRanges(clip, false);
  const std::pair<std::string, std::function<std::size_t()>> servers[] = {
      {withRanges.url(), [&] { return withRanges.ranges().size(); }},
      {withoutRanges.url(), [&] { return withoutRanges.requests(); }},
  };
  for (const auto& [url, requests] : servers) {
    SCOPED_TRACE(url);
    const Track track = trackAt(url);
    reports.clear();
    playing.clear();
    controller->changeTrack(track);
    controller->resume();
    ASSERT_TRUE(runUntilQuit(*loop));
    EXPECT_EQ(playing, (std::vector<bool>{true, true, false}));
    EXPECT_EQ(current, track);
    const std::size_t requestsOfTheFirstPlay = requests();
    controller->resume();
    ASSERT_TRUE(runUntilQuit(*loop));
    const std::string end(platform::kMediaPlayerItemDidPlayToEndTimeNotification);
    EXPECT_EQ(reports, (std::vector<std::string>{end, end}));
    EXPECT_EQ(playing, (std::vector<bool>{true, true, false, true, false}));
    EXPECT_EQ(current, track);
    EXPECT_GT(requests(), requestsOfTheFirstPlay);
    controller->releaseResources();
  }
}

// Whatever breaks, the failure is reported once and logged once, the preview is left loaded
// and paused, and nothing opens the address again until the app plays it.
TEST_F(GStreamerHttpTest, WhatCannotBePlayedFailsOnceAndIsNotOpenedAgain) {
  const std::string notAudio = ::testing::TempDir() + "gst_not_audio.txt";
  std::ofstream(notAudio) << "this is text, not sound\n";
  const std::string clip = readFile(test::writeClip("http_vanishing.wav", 0.4));
  struct Source {
    std::string url;
    std::function<std::size_t()> requests = [] { return std::size_t{0}; };
    std::shared_ptr<void> server{};
  };
  const std::pair<std::string, std::function<Source()>> rows[] = {
      {"a missing file", [] { return Source{"file://" + ::testing::TempDir() + "gst_missing.wav"}; }},
      {"a text file", [&] { return Source{"file://" + notAudio}; }},
      // Port 1 of the loopback interface: nothing listens there, so the connection is refused.
      {"a refused connection", [] { return Source{"http://127.0.0.1:1/clip.wav"}; }},
      {"text served as audio",
       [&] {
         auto server = std::make_shared<ClipServer>(readFile(notAudio));
         return Source{server->url(), [server] { return server->ranges().size(); }, server};
       }},
      {"a server that vanishes mid-clip",
       [&] {
         auto server = std::make_shared<test::RawClipServer>(clip, true);
         return Source{server->url(), [server] { return server->requests(); }, server};
       }},
  };
  for (const auto& [name, makeSource] : rows) {
    SCOPED_TRACE(name);
    auto sink = std::make_shared<CapturingSink>();
    ScopedLogSink scope(sink);
    const Source source = makeSource();
    const Track track = trackAt(source.url);
    reports.clear();
    controller->changeTrack(track);
    controller->resume();
    ASSERT_TRUE(runUntilQuit(*loop));
    const std::size_t requests = source.requests();
    keepRunning();
    EXPECT_EQ(reports, std::vector<std::string>{std::string(platform::kMediaPlayerItemFailedToPlayToEndTimeNotification)});
    EXPECT_EQ(sink->lines, std::vector<std::string>{"AudioPreviewController Failed to play to the end"});
    EXPECT_EQ(source.requests(), requests);
    EXPECT_EQ(playing.back(), false);
    EXPECT_EQ(current, track);
    controller->releaseResources();
  }
}

}  // namespace
}  // namespace applogic
