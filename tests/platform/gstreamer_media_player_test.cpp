#include "applogic/platform/gstreamer_media_player.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "applogic/audio/audio_preview_controller.h"
#include "applogic/platform/desktop_audio_session.h"
#include "applogic/platform/run_loop.h"
#include "applogic/support/log.h"
#include "platform/wav_clip.h"

namespace applogic {
namespace {

using test::writeClip;

Url fileUrl(const std::string& path) { return *Url::parse("file://" + path); }

// Runs the loop until a handler quits it. A guard thread quits it too after a generous while, so
// that a port that never reports fails the test instead of hanging it; no assertion is timed.
class LoopGuard {
 public:
  explicit LoopGuard(platform::RunLoop& loop) : loop_(loop) {}
  // True when the loop was quit by the test, false when the guard had to.
  bool run() {
    bool expired = false;
    std::thread guard([&] {
      std::unique_lock lock(mutex_);
      if (!wake_.wait_for(lock, std::chrono::seconds(30), [&] { return done_; })) {
        expired = true;
        loop_.quit();
      }
    });
    loop_.run();
    {
      std::lock_guard lock(mutex_);
      done_ = true;
    }
    wake_.notify_one();
    guard.join();
    done_ = false;
    return !expired;
  }

 private:
  platform::RunLoop& loop_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool done_ = false;
};

class GStreamerMediaPlayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    factory = platform::makeGStreamerMediaPlayers(loop, center, {"fakesink sync=true"});
    if (!factory) GTEST_SKIP() << "GStreamer with playbin is not installed";
  }

  std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
  std::shared_ptr<platform::NotificationCenter> center = platform::makeNotificationCenter();
  std::shared_ptr<platform::MediaPlayerFactory> factory;
  LoopGuard guard{*loop};
};

TEST_F(GStreamerMediaPlayerTest, AClipPlaysToItsEndAndAgainAfterARewind) {
  auto player = factory->makePlayer();
  auto item = factory->makeItem(fileUrl(writeClip("gst_clip.wav", 0.2)));
  std::vector<float> rates;
  auto observation = player->observeRate([&](float rate) { rates.push_back(rate); });
  std::vector<std::string> seen;
  auto token = center->addObserver(std::nullopt, item.get(), [&](const platform::Notification& n) {
    seen.push_back(n.name + (loop->isMainThread() ? " on main" : " elsewhere"));
    loop->quit();
  });
  EXPECT_EQ(player->duration(), std::nullopt);
  player->replaceCurrentItem(item);
  player->play();
  ASSERT_TRUE(guard.run());
  // 1600 samples at 8 kHz: the length of the clip as written, not a measured time.
  EXPECT_EQ(player->duration(), std::chrono::milliseconds(200));
  EXPECT_GT(player->currentTime(), std::chrono::milliseconds(100));
  player->seek(std::chrono::seconds(0));
  player->play();
  ASSERT_TRUE(guard.run());
  const std::string end = std::string(platform::kMediaPlayerItemDidPlayToEndTimeNotification) + " on main";
  EXPECT_EQ(seen, (std::vector<std::string>{end, end}));
  EXPECT_EQ(rates, (std::vector<float>{0.0f, 1.0f, 0.0f, 1.0f, 0.0f}));
  center->removeObserver(token);
}

TEST_F(GStreamerMediaPlayerTest, WhatCannotBePlayedPostsTheFailure) {
  const std::string notAudio = ::testing::TempDir() + "gst_not_audio.txt";
  std::ofstream(notAudio) << "this is text, not sound\n";
  for (const std::string& path : {::testing::TempDir() + "gst_missing.wav", notAudio}) {
    SCOPED_TRACE(path);
    auto player = factory->makePlayer();
    auto item = factory->makeItem(fileUrl(path));
    std::vector<std::string> seen;
    auto token = center->addObserver(std::nullopt, item.get(), [&](const platform::Notification& n) {
      seen.push_back(n.name);
      loop->quit();
    });
    player->replaceCurrentItem(item);
    player->play();
    ASSERT_TRUE(guard.run());
    EXPECT_EQ(seen, std::vector<std::string>{std::string(platform::kMediaPlayerItemFailedToPlayToEndTimeNotification)});
    EXPECT_EQ(player->rate(), 0.0f);
    center->removeObserver(token);
  }
}

TEST_F(GStreamerMediaPlayerTest, TheFirstBufferHookRunsOncePerLoadedItem) {
  auto firstBuffers = std::make_shared<std::atomic<int>>(0);
  auto hooked = platform::makeGStreamerMediaPlayers(
      loop, center, {"fakesink sync=true", [firstBuffers] { firstBuffers->fetch_add(1); }});
  ASSERT_NE(hooked, nullptr);
  auto player = hooked->makePlayer();
  const Url clip = fileUrl(writeClip("gst_hooked.wav", 0.1));
  auto quitAtEnd = center->addObserver(std::nullopt, nullptr, [&](const platform::Notification&) { loop->quit(); });
  // The sink sees every buffer before the end it reports, so the count is final at each end.
  player->replaceCurrentItem(hooked->makeItem(clip));
  player->play();
  ASSERT_TRUE(guard.run());
  EXPECT_EQ(firstBuffers->load(), 1);
  player->seek(std::chrono::seconds(0));
  player->play();
  ASSERT_TRUE(guard.run());
  EXPECT_EQ(firstBuffers->load(), 1);
  player->replaceCurrentItem(hooked->makeItem(clip));
  player->play();
  ASSERT_TRUE(guard.run());
  EXPECT_EQ(firstBuffers->load(), 2);
  center->removeObserver(quitAtEnd);
}

struct CapturingSink : LogSink {
  std::vector<std::string> lines;
  void write(std::string_view line) override { lines.emplace_back(line); }
};

TEST_F(GStreamerMediaPlayerTest, ThePreviewControllerPlaysAClipToItsEndKeepsItAndLogsAFailure) {
  platform::Platform platform;
  platform.mainThread = loop;
  platform.notificationCenter = center;
  platform.mediaPlayers = factory;
  auto session = std::make_shared<VXAudioSession>(std::make_shared<platform::DesktopAudioSession>(center), center);
  session->setIsApplicationInBackground([] { return false; });
  AudioPreviewController controller(session, platform);
  std::vector<bool> playing;
  std::optional<Track> current;
  controller.isPlaying().subscribe([&](bool value) { playing.push_back(value); });
  controller.currentTrack().subscribe([&](const std::optional<Track>& track) { current = track; });
  auto quitAtEnd = center->addObserver(std::nullopt, nullptr, [&](const platform::Notification&) { loop->quit(); });

  const Track track("tra.clip", "Clip", 1, false, "", "", "", "", true, fileUrl(writeClip("gst_preview.wav", 0.2)).string());
  controller.changeTrack(track);
  controller.resume();
  ASSERT_TRUE(guard.run());
  EXPECT_EQ(playing, (std::vector<bool>{false, true, true, false}));
  EXPECT_EQ(current, track);
  controller.resume();
  ASSERT_TRUE(guard.run());
  EXPECT_EQ(playing, (std::vector<bool>{false, true, true, false, true, false}));

  auto sink = std::make_shared<CapturingSink>();
  ScopedLogSink scope(sink);
  controller.changeTrack(Track("tra.gone", "Gone", 1, false, "", "", "", "", true,
                               fileUrl(::testing::TempDir() + "gst_gone.wav").string()));
  controller.resume();
  ASSERT_TRUE(guard.run());
  EXPECT_EQ(sink->lines, std::vector<std::string>{"AudioPreviewController Failed to play to the end"});
  EXPECT_EQ(playing.back(), false);
  center->removeObserver(quitAtEnd);
}

}  // namespace
}  // namespace applogic
