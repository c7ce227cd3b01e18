// The audio session and the preview controller over it, with the audio doubles.

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "applogic/audio/audio_preview_controller.h"
#include "applogic/support/log.h"
#include "applogic/testing/audio_fakes.h"

namespace applogic {
namespace {

using Calls = std::vector<std::string>;
using State = VXAudioSessionInterruptState;

platform::AudioSessionRouteDescription routeTo(std::vector<std::string> outputs) {
  platform::AudioSessionRouteDescription route;
  for (auto& output : outputs) route.outputs.push_back(platform::AudioSessionPortDescription{std::move(output)});
  return route;
}

Track previewTrack(std::string id, std::string previewURL) {
  return Track(std::move(id), "Song", 30, false, "art.1", "Artist", "alb.1", "Album", true, std::move(previewURL));
}

struct CapturingSink : LogSink {
  void write(std::string_view line) override { lines.emplace_back(line); }
  Calls lines;
};

struct CountingCenter final : platform::NotificationCenter {
  platform::NotificationObserverToken addObserver(std::optional<std::string> name, const void* object, Handler handler) override {
    return ++observers, inner->addObserver(std::move(name), object, std::move(handler));
  }
  void removeObserver(const platform::NotificationObserverToken& token) override {
    observers -= token ? 1 : 0, inner->removeObserver(token);
  }
  void post(const platform::Notification& notification) override { inner->post(notification); }
  std::shared_ptr<platform::NotificationCenter> inner = platform::makeNotificationCenter();
  int observers = 0;
};

// A session and a preview controller over the doubles and a fault plan (nothing fails until
// `failAt`). The full-track player's pause clears the player's calls: they show it came first.
struct Audio {
  Audio() {
    fakes.setFaultPlan(plan);
    session->setIsApplicationInBackground([this] { return inBackground; });
    controller = std::make_unique<AudioPreviewController>(session, fakes.platform());
    player = fakes.media->lastPlayer();
    controller->isPlaying().subscribe([this](bool value) { playing.push_back(value); });
    controller->setPauseFullTrackPlayer([this] { player->clearCalls(); });
  }
  std::shared_ptr<CountingCenter> center = std::make_shared<CountingCenter>();
  testing::AudioFakes fakes{center};
  testing::ScriptedAudioSessionBackend& backend = *fakes.audioSession;
  std::shared_ptr<testing::FaultPlan> plan = std::make_shared<testing::FaultPlan>();
  std::shared_ptr<VXAudioSession> session = std::make_shared<VXAudioSession>(fakes.audioSession, center);
  std::unique_ptr<AudioPreviewController> controller;
  std::shared_ptr<testing::ScriptedMediaPlayer> player;
  std::shared_ptr<CapturingSink> sink = std::make_shared<CapturingSink>();
  ScopedLogSink scope{sink};
  bool inBackground = false;
  Error error;
  std::vector<bool> playing;
  const Track a = previewTrack("tra.caf\u00e9", "https://previews.example/a.m4a");
};

TEST(VXAudioSession, CountedActivationSwitchesThePlatformOnlyOnTheFirstAndLastStep) {
  const Error sessionError{"VXAudioSessionErrorDomain", 0, {{"VXAudioSessionOSStatusKey", std::int64_t{0}}}};
  // Each step: in the background?, activate?, refused?; then the result, count and platform calls.
  const std::tuple<bool, bool, bool, bool, int, std::vector<bool>> steps[] = {
      {false, false, false, true, -1, {}},  // unmatched: -1, which the next activation only balances
      {false, true, false, true, 0, {}}, {true, true, false, true, 0, {}}, {false, true, true, false, 0, {true}},
      {false, true, false, true, 1, {true, true}}, {false, true, false, true, 2, {true, true}},
      {true, false, false, true, 2, {true, true}}, {false, false, false, true, 1, {true, true}},
      {false, false, true, false, 1, {true, true, false}}, {false, false, false, true, 0, {true, true, false, false}}};
  Audio s;
  for (const auto& [background, active, refused, result, count, calls] : steps) {
    s.inBackground = background;
    s.backend.failSetActive(refused ? std::optional(Error{"PlatformDomain", 561017449, {}}) : std::nullopt);
    s.error = Error{};
    EXPECT_EQ(s.session->setActive(active, &s.error), result);
    EXPECT_EQ(s.error, refused ? sessionError : Error{});
    EXPECT_EQ(std::tuple(s.session->activeCount(), s.backend.setActiveCalls(), s.backend.isActive()),
              std::tuple(count, calls, count > 0));
  }
  s.backend.failSetActive(Error{"PlatformDomain", 1, {}});
  EXPECT_FALSE(s.session->setActive(true, nullptr));  // refused, with no error slot
  for (const int flags : {0, 1, 2, 3}) {  // mixing only when both flags are true
    EXPECT_TRUE(s.session->setMediaPlayback(flags & 1, flags & 2, &s.error));
    EXPECT_EQ(s.backend.categoryOptions(), flags == 3 ? 1u : 0u) << flags;
  }
  s.backend.setRecordPermission(true);
  s.session->requestRecordPermission([&](bool granted) { s.inBackground = granted; });
  EXPECT_TRUE(s.inBackground);
  s.session->setIsApplicationInBackground(nullptr);
  EXPECT_DEATH(s.session->setActive(true, &s.error), "isApplicationInBackground must be set");
}

TEST(VXAudioSession, NotificationsBecomeRouteChangesAndInterruptions) {
  Audio s;
  std::vector<std::tuple<int, std::optional<std::string>, std::optional<std::string>>> routes;
  std::vector<std::tuple<State, bool, State>> interruptions;
  s.session->doWhenRouteChanges([&](int reason, auto& from, auto& to) { routes.emplace_back(reason, from, to); }, &s.error);
  s.session->doWhenInterrupted(
      [&](State state, bool resume) { interruptions.emplace_back(state, resume, s.session->interruptState()); }, &s.error);
  s.backend.setCurrentRoute(routeTo({"Speaker", "HDMI"}));
  for (const auto& [platformReason, reason] : {std::pair(-1, 0), std::pair(0, 0), std::pair(1, 1), std::pair(4, 4),
                                               std::pair(5, 0), std::pair(6, 6), std::pair(8, 8), std::pair(9, 0)}) {
    s.backend.postRouteChange(platformReason, routeTo({"Headphones", "Speaker"}));
    EXPECT_EQ(routes.back(), std::tuple(reason, "Headphones", "Speaker")) << platformReason;
  }
  const State in = VXAudioSessionInterruptStateInterrupted, ended = VXAudioSessionInterruptStateEnded;
  const std::tuple<int, std::optional<int>, State, bool> rows[] = {
      {1, 1, in, false}, {0, 1, ended, true}, {0, std::nullopt, ended, false}, {0, 2, ended, false},
      {7, 1, VXAudioSessionInterruptStateNone, false}};
  for (const auto& [type, option, state, resume] : rows) {
    s.backend.postInterruption(type, option);
    EXPECT_EQ(interruptions.back(), std::tuple(state, resume, state)) << type;
  }
}

// Watchers run in registration order and go by identity; a kind's listener lives exactly while
// watchers of that kind do, so that a later first watcher hears each change once.
TEST(VXAudioSession, ListenersLiveExactlyWhileWatchersOfTheirKindDo) {
  Audio s;
  std::string heard;
  std::vector<bool> owning;
  const auto record = [&](bool value) { owning.push_back(value); };
  auto owningStream = s.session->owningAudioSession();
  auto first = owningStream.subscribe(record);
  auto a = s.session->doWhenRouteChanges([&](int, auto&, auto&) { heard += "a"; }, &s.error);
  auto b = s.session->doWhenRouteChanges([&](int, auto&, auto&) { heard += "b"; }, &s.error);
  s.backend.postRouteChange(1, routeTo({}));
  for (const auto& token : {a, a, VXAudioSession::RouteWatcherToken{}}) s.session->stopWhenRouteChanges(token);
  s.backend.postRouteChange(1, routeTo({}));
  s.session->stopWhenRouteChanges(b);
  EXPECT_EQ(s.center->observers, 1);  // the interruptions' listener
  s.session->doWhenRouteChanges([&](int, auto&, auto&) { heard += "c"; }, &s.error);
  auto second = owningStream.subscribe(record);
  first.dispose();
  s.backend.postRouteChange(1, routeTo({}));
  s.backend.postInterruption(1);
  s.backend.postInterruption(0);
  second.dispose();
  s.backend.postInterruption(1);
  EXPECT_EQ(owning, (std::vector<bool>{true, true, false, true}));
  EXPECT_TRUE(s.session->interruptWatchers().empty());
  s.session->doWhenInterrupted([](State, bool) {}, &s.error);
  s.controller.reset();
  s.session.reset();
  EXPECT_EQ(s.center->observers, 0);
  owningStream.subscribe(record, nullptr, [&] { heard += " completed"; });  // the session is gone
  EXPECT_EQ(heard, "abbc completed");
  EXPECT_DEATH(VXAudioSession(s.fakes.audioSession, s.center).owningAudioSession(), "owned by a std::shared_ptr");
}

TEST(SharedSession, IsMadeOnceFromTheInstalledPlatformWithAllItsPartsAndLetsGoOfIt) {
  std::weak_ptr<void> parts[2];
  {
    testing::AudioFakes fakes;
    parts[0] = fakes.audioSession, parts[1] = fakes.notificationCenter;
    platform::Platform partial = fakes.platform();
    VXAudioSession::installPlatform(partial);
    const auto shared = VXAudioSession::sharedSession();
    EXPECT_TRUE(shared && VXAudioSession::sharedSession() == shared);
    EXPECT_EQ(VXAudioSession::sharedGetAudioProperty(1), "Speaker");  // without outputs
    VXAudioSession::sharedDoInterrupt(VXAudioSessionInterruptStateInterrupted, false);
    EXPECT_EQ(shared->interruptState(), VXAudioSessionInterruptStateInterrupted);
    partial.mediaPlayers = nullptr;
    EXPECT_DEATH(AudioPreviewController(shared, partial), "needs a platform with media players");
    VXAudioSession::resetSharedSession();
    partial.notificationCenter = nullptr;
    VXAudioSession::installPlatform(partial);
    EXPECT_DEATH(VXAudioSession::sharedSession(), "installPlatform");
    VXAudioSession::installPlatform(fakes.platform());
  }
  VXAudioSession::resetSharedSession();
  EXPECT_TRUE(parts[0].expired() && parts[1].expired());
}

TEST(AudioPreviewController, ForgetsAClipWhenChangedReleasedOrDestroyedButKeepsTheSessionActive) {
  Audio p;
  p.controller->changeTrack(p.a);
  EXPECT_TRUE(p.controller->isCurrent(previewTrack("tra.cafe\u0301", "")) &&  // canonically equal ids
              !p.controller->isCurrent(previewTrack("tra.cafe", "")));
  EXPECT_TRUE(p.session->category() == platform::kAudioSessionCategoryPlayback && p.backend.isActive());
  p.player->clearCalls();
  p.controller->changeTrack(previewTrack("tra.b", "https://previews.example/b.m4a"));
  EXPECT_EQ(p.player->calls(), (Calls{"pause", "replace none", "replace https://previews.example/b.m4a"}));
  p.controller->releaseResources();
  EXPECT_TRUE(p.player->currentItem() == nullptr && !p.controller->isCurrent(p.a) && p.center->observers == 0);
  p.controller->changeTrack(previewTrack("tra.c", "http://[broken/x"));  // stopped and empty
  EXPECT_TRUE(p.player->currentItem() == nullptr && !p.controller->isCurrent(previewTrack("tra.c", "")));
  p.controller->changeTrack(p.a);
  EXPECT_EQ(p.session->activeCount(), 3);  // never deactivated: the full-track player shares the session
  p.controller.reset();
  EXPECT_TRUE(p.player->rateObserverCount() == 0 && p.center->observers == 0);
}

// Each flow runs once to count its failable calls, then once per call with it failing. A player
// failure is logged once however often reported, leaves the track loaded but not playing, and
// nothing opens it again until the app resumes; a session failure ends the flow as without faults.
TEST(AudioPreviewControllerFaultTest, EveryFaultPointOfEveryFlowEndsInOneHandledFailure) {
  using Flow = void (*)(AudioPreviewController&, testing::ScriptedMediaPlayer&, const Track&);
  const std::tuple<std::string, Flow, Calls, bool> flows[] = {
      {"change the track", [](auto& c, auto&, const Track& t) { c.changeTrack(t); },
       {"waitsToMinimizeStalling false", "replace none", "replace https://previews.example/a.m4a"}, true},
      {"resume", [](auto& c, auto&, const Track& t) { c.changeTrack(t), c.resume(); }, {"play"}, true},
      {"pause", [](auto& c, auto&, const Track& t) { c.changeTrack(t), c.resume(), c.pause(); }, {"play", "pause"}, false},
      {"play to the end", [](auto& c, auto& player, const Track& t) { c.changeTrack(t), c.resume(), player.playToEnd(); },
       {"play", "seek 0", "pause"}, false},
  };
  for (const auto& [name, flow, cleanCalls, cleanPlaying] : flows) {
    std::size_t points = 0;
    for (std::size_t n = 0; n <= points; ++n) {
      SCOPED_TRACE(name + ", fault point " + std::to_string(n));
      Audio p;
      const auto pump = [&] {  // bounded: a player and a controller that kept retrying would leave work queued
        for (int i = 0; i < 100; ++i) p.fakes.mainThread->runOne();
        EXPECT_EQ(p.fakes.mainThread->pendingCount(), 0u);
      };
      p.plan->failAt(n);
      flow(*p.controller, *p.player, p.a);
      pump();
      if (n == 0) {
        points = p.plan->count();
        EXPECT_EQ(std::pair(p.player->calls(), bool(p.playing.front())), std::pair(cleanCalls, false));
        std::cout << "[ fault points ] " << name << ": " << points << " " << ::testing::PrintToString(p.plan->sites()) << "\n";
      }
      const bool playerFailed = p.plan->failedSite().starts_with("player.");
      if (playerFailed) p.player->postFailedToPlayToEnd();  // reported again
      EXPECT_EQ(p.sink->lines, Calls(playerFailed ? 1 : 0, "AudioPreviewController Failed to play to the end"));
      EXPECT_TRUE(p.controller->isCurrent(p.a));
      EXPECT_EQ(p.playing.back(), cleanPlaying && !playerFailed);
      if (!playerFailed) continue;
      const std::size_t loads = p.player->loadCount();
      p.controller->pause();
      pump();
      EXPECT_EQ(std::pair(p.player->loadCount(), p.player->rate()), std::pair(loads, 0.0f));
      p.controller->resume();
      EXPECT_EQ(std::pair(p.player->loadCount(), bool(p.playing.back())), std::pair(loads + 1, true));
      p.player->postFailedToPlayToEnd();
      EXPECT_EQ(p.sink->lines.size(), 2u);
    }
  }
}

}  // namespace
}  // namespace applogic
