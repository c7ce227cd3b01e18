#include <httplib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
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
    quitAtEnd = center->addObserver(std::nullopt, nullptr, [this](const platform::Notification&) { loop->quit(); });
  }
  void TearDown() override { center->removeObserver(quitAtEnd); }

  static Track trackAt(std::string url) { return Track("tra.http", "Clip", 1, false, "", "", "", "", true, std::move(url)); }

  std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
  std::shared_ptr<platform::NotificationCenter> center = platform::makeNotificationCenter();
  platform::Platform platform;
  std::shared_ptr<VXAudioSession> session =
      std::make_shared<VXAudioSession>(std::make_shared<platform::DesktopAudioSession>(center), center);
  std::unique_ptr<AudioPreviewController> controller;
  std::vector<bool> playing;
  std::optional<Track> current;
  platform::NotificationObserverToken quitAtEnd;
};

TEST_F(GStreamerHttpTest, AClipServedOverHttpPlaysEndsRewoundAndPlaysAgain) {
  ClipServer server(readFile(test::writeClip("http_clip.wav", 0.3)));
  const Track track = trackAt(server.url());
  // Registered before the controller's own observer, so it counts the requests of the first play
  // before the controller rewinds.
  std::optional<std::size_t> requestsBeforeTheEnd;
  auto countAtTheEnd = center->addObserver(std::string(platform::kMediaPlayerItemDidPlayToEndTimeNotification), nullptr,
                                           [&](const platform::Notification&) {
                                             if (!requestsBeforeTheEnd) requestsBeforeTheEnd = server.ranges().size();
                                           });
  controller->changeTrack(track);
  controller->resume();
  ASSERT_TRUE(runUntilQuit(*loop));
  EXPECT_EQ(playing, (std::vector<bool>{false, true, true, false}));
  EXPECT_EQ(current, track);

  controller->resume();
  ASSERT_TRUE(runUntilQuit(*loop));
  EXPECT_EQ(playing, (std::vector<bool>{false, true, true, false, true, false}));
  EXPECT_EQ(current, track);
  // The source cannot seek without asking again: the rewind asked for the bytes after the clip's
  // 44-byte header, its first sample, and the replay played from there.
  const std::vector<std::string> ranges = server.ranges();
  ASSERT_TRUE(requestsBeforeTheEnd.has_value());
  ASSERT_GT(ranges.size(), *requestsBeforeTheEnd);
  EXPECT_THAT(std::vector<std::string>(ranges.begin() + static_cast<std::ptrdiff_t>(*requestsBeforeTheEnd), ranges.end()),
              ::testing::Each(std::string("bytes=44-")));
  center->removeObserver(countAtTheEnd);
}

TEST_F(GStreamerHttpTest, AnUnreachableAddressIsLoggedAndLeavesThePreviewPaused) {
  auto sink = std::make_shared<CapturingSink>();
  ScopedLogSink scope(sink);
  // Port 1 of the loopback interface: nothing listens there, so the connection is refused.
  controller->changeTrack(trackAt("http://127.0.0.1:1/clip.wav"));
  controller->resume();
  ASSERT_TRUE(runUntilQuit(*loop));
  EXPECT_EQ(sink->lines, std::vector<std::string>{"AudioPreviewController Failed to play to the end"});
  EXPECT_EQ(playing.back(), false);
}

}  // namespace
}  // namespace applogic
