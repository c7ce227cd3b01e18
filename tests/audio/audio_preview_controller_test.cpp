#include "applogic/audio/audio_preview_controller.h"

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
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

  // A failure is handled once until the app plays again, however often the player reports it.
  for (int play = 0; play < 2; ++play) {
    player->clearCalls();
    player->postFailedToPlayToEnd();
    player->postFailedToPlayToEnd();
    EXPECT_EQ(sink->lines.size(), static_cast<std::size_t>(play + 1));
    EXPECT_EQ(sink->lines.back(), "AudioPreviewController Failed to play to the end");
    EXPECT_EQ(player->calls(), (std::vector<std::string>{"seek 0", "pause"}));
    EXPECT_EQ(playing.back(), false);
    EXPECT_EQ(tracks.back(), a);
    controller->resume();
  }
}

// An item that fails (or ends) before `resume` never changed the rate: `isPlaying`, forced true
// by `changeTrack`, must still come back to false.
TEST_F(AudioPreviewControllerTest, AFailureBeforeResumeStillEndsNotPlaying) {
  controller->changeTrack(a);
  EXPECT_EQ(playing.back(), true);
  player->postFailedToPlayToEnd();
  EXPECT_EQ(playing, (std::vector<bool>{false, true, false}));
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

// Each flow runs once without faults to count its failable calls (player and session), then once
// per call with that call failing. A player failure is logged and notified once, leaves the track
// loaded but not playing, and nothing opens it again until the app resumes; a session failure is
// ignored: the flow ends as it does without faults.
TEST(AudioPreviewControllerFaultTest, EveryFaultPointOfEveryFlowEndsInOneHandledFailure) {
  using Step = void (*)(AudioPreviewController&, testing::ScriptedMediaPlayer&, const Track&);
  const std::pair<std::string, Step> flows[] = {
      {"change the track", [](auto& c, auto&, const Track& t) { c.changeTrack(t); }},
      {"resume", [](auto& c, auto&, const Track& t) { c.changeTrack(t); c.resume(); }},
      {"pause", [](auto& c, auto&, const Track& t) { c.changeTrack(t); c.resume(); c.pause(); }},
      {"play to the end", [](auto& c, auto& player, const Track& t) { c.changeTrack(t); c.resume(); player.playToEnd(); }},
  };
  const Track track = previewTrack("tra.a", "https://previews.example/a.m4a");
  for (const auto& [name, flow] : flows) {
    std::size_t points = 0;
    bool playingWithoutFaults = false;
    for (std::size_t n = 0; n <= points; ++n) {
      SCOPED_TRACE(name + ", fault point " + std::to_string(n));
      testing::AudioFakes fakes;
      auto plan = std::make_shared<testing::FaultPlan>();
      fakes.setFaultPlan(plan);
      auto session = std::make_shared<VXAudioSession>(fakes.audioSession, fakes.notificationCenter);
      session->setIsApplicationInBackground([] { return false; });
      AudioPreviewController controller(session, fakes.platform());
      auto player = fakes.media->lastPlayer();
      bool playing = false;
      controller.isPlaying().subscribe([&](bool value) { playing = value; });
      std::size_t failures = 0;
      fakes.notificationCenter->addObserver(
          std::string(platform::kMediaPlayerItemFailedToPlayToEndTimeNotification), nullptr,
          [&](const platform::Notification&) { ++failures; });
      auto sink = std::make_shared<CapturingSink>();
      ScopedLogSink scope(sink);
      // Bounded: a player and a controller that kept retrying would leave work queued.
      const auto pump = [&] {
        for (int i = 0; i < 100; ++i) fakes.mainThread->runOne();
        EXPECT_EQ(fakes.mainThread->pendingCount(), 0u);
      };

      plan->failAt(n);
      flow(controller, *player, track);
      pump();
      if (n == 0) {
        points = plan->count();
        playingWithoutFaults = playing;
        ::testing::Test::RecordProperty(name, static_cast<int>(points));
        std::cout << "[ fault points ] " << name << ": " << points << " " << ::testing::PrintToString(plan->sites()) << "\n";
      }
      const bool playerFailed = plan->failedSite().starts_with("player.");
      EXPECT_EQ(failures, playerFailed ? 1u : 0u);
      EXPECT_EQ(sink->lines.size(), playerFailed ? 1u : 0u);
      EXPECT_TRUE(controller.isCurrent(track));
      if (!playerFailed) {
        EXPECT_EQ(playing, playingWithoutFaults);
        continue;
      }
      EXPECT_FALSE(playing);
      EXPECT_EQ(player->rate(), 0.0f);
      const std::size_t loads = player->loadCount();
      controller.pause();
      pump();
      EXPECT_EQ(player->loadCount(), loads);
      controller.resume();
      EXPECT_EQ(player->loadCount(), loads + 1);
      EXPECT_TRUE(playing);
    }
  }
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
