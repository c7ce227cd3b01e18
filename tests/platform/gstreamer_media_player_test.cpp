#include "applogic/platform/gstreamer_media_player.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "applogic/platform/run_loop.h"
#include "platform/wav_clip.h"
#include "run_until_quit.h"

namespace applogic {
namespace {

using test::writeClip;

Url fileUrl(const std::string& path) { return *Url::parse("file://" + path); }

class GStreamerMediaPlayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    factory = platform::makeGStreamerMediaPlayers(loop, center, {"fakesink sync=true"});
    if (!factory) GTEST_SKIP() << "GStreamer with playbin is not installed";
  }

  std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
  std::shared_ptr<platform::NotificationCenter> center = platform::makeNotificationCenter();
  std::shared_ptr<platform::MediaPlayerFactory> factory;
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
  ASSERT_TRUE(test::runUntilQuit(*loop));
  // 1600 samples at 8 kHz: the length of the clip as written, not a measured time.
  EXPECT_EQ(player->duration(), std::chrono::milliseconds(200));
  EXPECT_GT(player->currentTime(), std::chrono::milliseconds(100));
  player->seek(std::chrono::seconds(0));
  player->play();
  ASSERT_TRUE(test::runUntilQuit(*loop));
  const std::string end = std::string(platform::kMediaPlayerItemDidPlayToEndTimeNotification) + " on main";
  EXPECT_EQ(seen, (std::vector<std::string>{end, end}));
  EXPECT_EQ(rates, (std::vector<float>{0.0f, 1.0f, 0.0f, 1.0f, 0.0f}));
  center->removeObserver(token);
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
  ASSERT_TRUE(test::runUntilQuit(*loop));
  EXPECT_EQ(firstBuffers->load(), 1);
  player->seek(std::chrono::seconds(0));
  player->play();
  ASSERT_TRUE(test::runUntilQuit(*loop));
  EXPECT_EQ(firstBuffers->load(), 1);
  player->replaceCurrentItem(hooked->makeItem(clip));
  player->play();
  ASSERT_TRUE(test::runUntilQuit(*loop));
  EXPECT_EQ(firstBuffers->load(), 2);
  center->removeObserver(quitAtEnd);
}

}  // namespace
}  // namespace applogic
