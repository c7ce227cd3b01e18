#include "applogic/audio/audio_preview_controller.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "applogic/support/log.h"
#include "applogic/testing/audio_fakes.h"

namespace applogic {
namespace {

Track previewTrack(std::string id, std::string previewURL, std::string name = "Song") {
  return Track(std::move(id), std::move(name), 30, false, "art.1", "Artist", "alb.1", "Album", true,
               std::move(previewURL));
}

struct CapturingSink : LogSink {
  std::vector<std::string> lines;
  void write(std::string_view line) override { lines.emplace_back(line); }
};

class AudioPreviewControllerTest : public ::testing::Test {
 protected:
  testing::AudioFakes fakes;
  std::shared_ptr<VXAudioSession> session = std::make_shared<VXAudioSession>(fakes.audioSession, fakes.notificationCenter);
  std::unique_ptr<AudioPreviewController> controller;
  std::shared_ptr<testing::ScriptedMediaPlayer> player;
  std::vector<bool> playing;
  std::vector<std::optional<Track>> tracks;
  const Track a = previewTrack("tra.a", "https://previews.example/a.m4a");
  const Track b = previewTrack("tra.b", "https://previews.example/b.m4a");

  void SetUp() override {
    session->setIsApplicationInBackground([] { return false; });
    controller = std::make_unique<AudioPreviewController>(session, fakes.platform());
    player = fakes.media->lastPlayer();
    controller->isPlaying().subscribe([this](bool value) { playing.push_back(value); });
    controller->currentTrack().subscribe([this](const std::optional<Track>& value) { tracks.push_back(value); });
    player->clearCalls();
  }

  void loadAndPlay(const Track& track) {
    controller->changeTrack(track);
    controller->resume();
    player->clearCalls();
    playing.clear();
  }
};

TEST_F(AudioPreviewControllerTest, StartsEmptyWithAPlayerThatDoesNotWaitAndARateObserver) {
  auto fresh = std::make_unique<AudioPreviewController>(session, fakes.platform());
  EXPECT_EQ(fakes.media->lastPlayer()->calls(), std::vector<std::string>{"waitsToMinimizeStalling false"});
  EXPECT_EQ(fakes.media->lastPlayer()->rateObserverCount(), 1u);
  EXPECT_EQ(playing, std::vector<bool>{false});
  EXPECT_EQ(tracks, std::vector<std::optional<Track>>{std::nullopt});
}

TEST_F(AudioPreviewControllerTest, ResumeWithNothingLoadedNeitherPlaysNorPausesTheFullTrackPlayer) {
  int pausedFullTrack = 0;
  controller->setPauseFullTrackPlayer([&] { ++pausedFullTrack; });
  controller->resume();
  controller->pause();
  EXPECT_EQ(pausedFullTrack, 0);
  EXPECT_TRUE(player->calls().empty());
  EXPECT_EQ(player->rate(), 0.0f);
}

TEST_F(AudioPreviewControllerTest, ChangeTrackLoadsWithoutPlayingAndReportsPlayingAtOnce) {
  controller->changeTrack(a);
  EXPECT_EQ(player->calls(), (std::vector<std::string>{"replace none", "replace https://previews.example/a.m4a"}));
  EXPECT_EQ(player->rate(), 0.0f);
  EXPECT_EQ(playing, (std::vector<bool>{false, true}));
  EXPECT_EQ(tracks.back(), a);
  EXPECT_EQ(session->category(), platform::kAudioSessionCategoryPlayback);
  EXPECT_EQ(session->activeCount(), 1);
  EXPECT_TRUE(fakes.audioSession->isActive());

  player->setRate(0.0f);
  EXPECT_EQ(playing.back(), true);
  player->setRate(1.0f);
  player->setRate(0.0f);
  EXPECT_EQ(playing, (std::vector<bool>{false, true, true, false}));
}

TEST_F(AudioPreviewControllerTest, ResumePausesTheFullTrackPlayerFirstThenPlays) {
  controller->changeTrack(a);
  player->clearCalls();
  std::vector<std::string> callsWhenAsked;
  controller->setPauseFullTrackPlayer([&] { callsWhenAsked = player->calls(); callsWhenAsked.push_back("asked"); });
  controller->resume();
  EXPECT_EQ(callsWhenAsked, std::vector<std::string>{"asked"});
  EXPECT_EQ(player->calls(), std::vector<std::string>{"play"});
  EXPECT_EQ(playing.back(), true);
}

// The same whether the clip reached its end or failed to (which is also logged).
TEST_F(AudioPreviewControllerTest, AtTheEndTheClipRewindsAndPausesAndResumeStartsOver) {
  auto sink = std::make_shared<CapturingSink>();
  ScopedLogSink scope(sink);
  loadAndPlay(a);
  player->postDidPlayToEnd();
  EXPECT_EQ(player->calls(), (std::vector<std::string>{"seek 0", "pause"}));
  EXPECT_EQ(playing, std::vector<bool>{false});
  EXPECT_EQ(tracks.back(), a);
  EXPECT_TRUE(controller->isCurrent(a));
  EXPECT_TRUE(sink->lines.empty());

  controller->resume();
  EXPECT_EQ(player->calls(), (std::vector<std::string>{"seek 0", "pause", "play"}));
  EXPECT_EQ(playing, (std::vector<bool>{false, true}));

  player->clearCalls();
  player->postFailedToPlayToEnd();
  EXPECT_EQ(sink->lines, std::vector<std::string>{"AudioPreviewController Failed to play to the end"});
  EXPECT_EQ(player->calls(), (std::vector<std::string>{"seek 0", "pause"}));
  EXPECT_EQ(playing, (std::vector<bool>{false, true, false}));
  EXPECT_EQ(tracks.back(), a);
}

TEST_F(AudioPreviewControllerTest, ChangingTrackWhilePlayingPausesFirstAndForgetsTheOldItem) {
  auto sink = std::make_shared<CapturingSink>();
  ScopedLogSink scope(sink);
  loadAndPlay(a);
  const auto oldItem = player->currentItem();
  controller->changeTrack(b);
  EXPECT_EQ(player->calls(), (std::vector<std::string>{"pause", "replace none", "replace https://previews.example/b.m4a"}));
  EXPECT_EQ(tracks.back(), b);

  player->clearCalls();
  player->postDidPlayToEnd(oldItem);
  player->postFailedToPlayToEnd(oldItem);
  EXPECT_TRUE(player->calls().empty());
  EXPECT_TRUE(sink->lines.empty());

  player->postDidPlayToEnd();
  EXPECT_EQ(player->calls(), (std::vector<std::string>{"seek 0", "pause"}));
}

TEST_F(AudioPreviewControllerTest, AnAddressThatDoesNotParseLeavesTheControllerStoppedAndEmpty) {
  for (const std::string bad : {"", "https://previews.example/a clip.m4a", "http://[broken/x"}) {
    SCOPED_TRACE(bad);
    loadAndPlay(a);
    controller->changeTrack(previewTrack("tra.c", bad));
    EXPECT_EQ(player->calls(), (std::vector<std::string>{"pause", "replace none"}));
    EXPECT_EQ(player->currentItem(), nullptr);
    EXPECT_EQ(tracks.back(), std::nullopt);
    EXPECT_EQ(playing, std::vector<bool>{false});
    EXPECT_FALSE(controller->isCurrent(previewTrack("tra.c", bad)));
  }
}

TEST_F(AudioPreviewControllerTest, IsCurrentComparesOnlyTheCanonicalId) {
  EXPECT_FALSE(controller->isCurrent(a));
  const Track composed = previewTrack("tra.caf\u00e9", "https://previews.example/c.m4a");
  controller->changeTrack(composed);
  EXPECT_TRUE(controller->isCurrent(previewTrack("tra.cafe\u0301", "", "Another name")));
  EXPECT_FALSE(controller->isCurrent(previewTrack("tra.cafe", "https://previews.example/c.m4a")));
}

TEST_F(AudioPreviewControllerTest, ReleasingEmptiesThePlayerButKeepsTheSessionActive) {
  loadAndPlay(a);
  controller->changeTrack(b);
  EXPECT_EQ(session->activeCount(), 2);
  player->clearCalls();
  controller->releaseResources();
  EXPECT_EQ(player->calls(), (std::vector<std::string>{"pause", "replace none"}));
  EXPECT_EQ(tracks.back(), std::nullopt);
  EXPECT_EQ(session->activeCount(), 2);
  EXPECT_EQ(fakes.audioSession->setActiveCalls(), std::vector<bool>{true});
}

TEST_F(AudioPreviewControllerTest, SessionFailuresDoNotStopLoading) {
  fakes.audioSession->failSetCategory(Error{"PlatformDomain", 1, {}});
  fakes.audioSession->failSetActive(Error{"PlatformDomain", 2, {}});
  controller->changeTrack(a);
  EXPECT_TRUE(controller->isCurrent(a));
  EXPECT_EQ(session->activeCount(), 0);
  controller->resume();
  EXPECT_EQ(player->rate(), 1.0f);
}

TEST_F(AudioPreviewControllerTest, DestructionStopsListeningAndCompletesTheStreams) {
  loadAndPlay(a);
  const auto item = player->currentItem();
  bool completed = false;
  controller->isPlaying().subscribe(nullptr, nullptr, [&] { completed = true; });
  controller.reset();
  EXPECT_TRUE(completed);
  EXPECT_EQ(player->rateObserverCount(), 0u);
  player->clearCalls();
  player->postDidPlayToEnd(item);
  player->setRate(0.0f);
  EXPECT_TRUE(player->calls().empty());
}

TEST(AudioPreviewControllerDeathTest, StopsWithoutAMediaPlayerPort) {
  testing::AudioFakes fakes;
  auto session = std::make_shared<VXAudioSession>(fakes.audioSession, fakes.notificationCenter);
  platform::Platform withoutPlayers = fakes.platform();
  withoutPlayers.mediaPlayers = nullptr;
  EXPECT_DEATH(AudioPreviewController(session, withoutPlayers), "needs a platform with media players");
}

}  // namespace
}  // namespace applogic
