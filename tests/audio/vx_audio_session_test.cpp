#include "applogic/audio/vx_audio_session.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "applogic/testing/audio_fakes.h"
#include "audio/recording_notification_center.h"

namespace applogic {
namespace {

using platform::AudioSessionPortDescription;
using platform::AudioSessionRouteDescription;

AudioSessionRouteDescription routeTo(std::vector<std::string> outputs) {
  AudioSessionRouteDescription route;
  for (auto& output : outputs) route.outputs.push_back(AudioSessionPortDescription{std::move(output)});
  return route;
}

const Error kSessionError{"VXAudioSessionErrorDomain", 0, {{"VXAudioSessionOSStatusKey", std::int64_t{0}}}};

struct RouteCall {
  int reason;
  std::optional<std::string> fromRoute;
  std::optional<std::string> toRoute;
  friend bool operator==(const RouteCall&, const RouteCall&) = default;
};

class VXAudioSessionTest : public ::testing::Test {
 protected:
  std::shared_ptr<testing::RecordingNotificationCenter> center = std::make_shared<testing::RecordingNotificationCenter>();
  testing::AudioFakes fakes{center};
  testing::ScriptedAudioSessionBackend& backend = *fakes.audioSession;
  std::shared_ptr<VXAudioSession> session = std::make_shared<VXAudioSession>(fakes.audioSession, center);
  bool inBackground = false;

  void SetUp() override {
    session->setIsApplicationInBackground([this] { return inBackground; });
  }

  bool setActive(bool active) {
    Error error;
    return session->setActive(active, &error);
  }

  void recordRoutes() {
    auto calls = std::make_shared<std::vector<RouteCall>>();
    Error error;
    session->doWhenRouteChanges(
        [calls](int reason, const std::optional<std::string>& from, const std::optional<std::string>& to) {
          calls->push_back({reason, from, to});
        },
        &error);
    routeCalls_ = calls;
  }
  const std::vector<RouteCall>& routeCalls() const { return *routeCalls_; }

 private:
  std::shared_ptr<std::vector<RouteCall>> routeCalls_;
};

// --- activation ------------------------------------------------------------------------------

TEST_F(VXAudioSessionTest, ThePlatformIsSwitchedOnByTheFirstActivationAndOffByTheLastDeactivation) {
  EXPECT_TRUE(setActive(true));
  EXPECT_TRUE(setActive(true));
  EXPECT_EQ(session->activeCount(), 2);
  EXPECT_TRUE(setActive(false));
  EXPECT_TRUE(backend.isActive());
  EXPECT_EQ(backend.setActiveCalls(), std::vector<bool>{true});

  EXPECT_TRUE(setActive(false));
  EXPECT_FALSE(backend.isActive());
  EXPECT_EQ(session->activeCount(), 0);
  EXPECT_EQ(backend.setActiveCalls(), (std::vector<bool>{true, false}));
}

TEST_F(VXAudioSessionTest, AnUnmatchedDeactivationGoesToMinusOneAndTheNextActivationOnlyBalancesIt) {
  EXPECT_TRUE(setActive(false));
  EXPECT_EQ(session->activeCount(), -1);
  EXPECT_TRUE(setActive(true));
  EXPECT_EQ(session->activeCount(), 0);
  EXPECT_TRUE(backend.setActiveCalls().empty());
  EXPECT_FALSE(backend.isActive());
}

TEST_F(VXAudioSessionTest, InTheBackgroundActivationAndDeactivationSucceedWithoutEffect) {
  inBackground = true;
  EXPECT_TRUE(setActive(true));
  EXPECT_EQ(session->activeCount(), 0);

  inBackground = false;
  EXPECT_TRUE(setActive(true));
  inBackground = true;
  EXPECT_TRUE(setActive(false));
  EXPECT_EQ(session->activeCount(), 1);
  EXPECT_TRUE(backend.isActive());
  EXPECT_EQ(backend.setActiveCalls(), std::vector<bool>{true});
}

// A failed switch of the platform rolls the count back and reports the session's own error,
// also to a caller without an error slot.
TEST_F(VXAudioSessionTest, AFailedSwitchRollsTheCountBackWithTheSessionError) {
  EXPECT_EQ(VXAudioSessionErrorDomain, "VXAudioSessionErrorDomain");
  EXPECT_EQ(VXAudioSessionOSStatusKey, "VXAudioSessionOSStatusKey");
  backend.failSetActive(Error{"PlatformDomain", 561017449, {}});
  Error error;
  EXPECT_FALSE(session->setActive(true, &error));
  EXPECT_EQ(error, kSessionError);
  EXPECT_EQ(session->activeCount(), 0);
  EXPECT_FALSE(session->setActive(true, nullptr));
  EXPECT_EQ(session->activeCount(), 0);

  backend.failSetActive(std::nullopt);
  EXPECT_TRUE(setActive(true));
  EXPECT_EQ(session->activeCount(), 1);
  EXPECT_EQ(backend.setActiveCalls(), (std::vector<bool>{true, true, true}));

  backend.failSetActive(Error{"PlatformDomain", 1, {}});
  Error deactivationError;
  EXPECT_FALSE(session->setActive(false, &deactivationError));
  EXPECT_EQ(deactivationError, kSessionError);
  EXPECT_EQ(session->activeCount(), 1);
  EXPECT_TRUE(backend.isActive());
}

using VXAudioSessionDeathTest = VXAudioSessionTest;

TEST_F(VXAudioSessionDeathTest, ActivatingWithoutTheBackgroundBlockStops) {
  session->setIsApplicationInBackground(nullptr);
  EXPECT_DEATH(setActive(true), "isApplicationInBackground must be set");
}

// --- category --------------------------------------------------------------------------------

TEST_F(VXAudioSessionTest, MediaPlaybackAlwaysSetsPlaybackAndMixesOnlyWhenBothFlagsAreTrue) {
  const std::tuple<bool, bool, platform::AudioSessionCategoryOptions> rows[] = {
      {false, false, 0}, {true, false, 0}, {false, true, 0}, {true, true, 1}};
  for (const auto& [mediaPlayback, mix, options] : rows) {
    SCOPED_TRACE(::testing::Message() << mediaPlayback << mix);
    ASSERT_TRUE(backend.setCategory("Other", 7, nullptr));
    Error error;
    EXPECT_TRUE(session->setMediaPlayback(mediaPlayback, mix, &error));
    EXPECT_EQ(session->category(), platform::kAudioSessionCategoryPlayback);
    EXPECT_EQ(backend.categoryOptions(), options);
  }
}

TEST_F(VXAudioSessionTest, CategoryFailuresComeBackWithThePlatformError) {
  const Error platformError{"PlatformDomain", 3, {{"detail", std::string("busy")}}};
  backend.failSetCategory(platformError);
  Error error;
  EXPECT_FALSE(session->setCategory("AVAudioSessionCategoryRecord", &error));
  EXPECT_EQ(error, platformError);
  Error mediaError;
  EXPECT_FALSE(session->setMediaPlayback(true, true, &mediaError));
  EXPECT_EQ(mediaError, platformError);
}

// --- route changes ---------------------------------------------------------------------------

TEST_F(VXAudioSessionTest, RouteReasonsGoThroughTheTable) {
  const std::pair<int, int> rows[] = {{-1, 0}, {0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4},
                                      {5, 0},  {6, 6}, {7, 7}, {8, 8}, {9, 0}, {42, 0}};
  recordRoutes();
  backend.setCurrentRoute(routeTo({"Speaker"}));
  for (const auto& [platformReason, reason] : rows) {
    backend.postRouteChange(platformReason, routeTo({"Headphones"}));
  }
  ASSERT_EQ(routeCalls().size(), std::size(rows));
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    SCOPED_TRACE(rows[i].first);
    EXPECT_EQ(routeCalls()[i], (RouteCall{rows[i].second, "Headphones", "Speaker"}));
  }
}

TEST_F(VXAudioSessionTest, RouteNamesAreTheFirstOutputsAndAbsentWithoutOne) {
  recordRoutes();
  backend.setCurrentRoute(routeTo({}));
  backend.postRouteChange(2, routeTo({"Headphones", "Speaker"}));
  backend.setCurrentRoute(routeTo({"BluetoothA2DPOutput", "Speaker"}));
  backend.postRouteChange(1, routeTo({}));
  center->post(platform::Notification{std::string(platform::kAudioSessionRouteChangeNotification), nullptr, {}});
  EXPECT_EQ(routeCalls(), (std::vector<RouteCall>{{2, "Headphones", std::nullopt},
                                                  {1, std::nullopt, "BluetoothA2DPOutput"},
                                                  {0, std::nullopt, "BluetoothA2DPOutput"}}));
}

TEST_F(VXAudioSessionTest, WatchersRunInRegistrationOrderAndAreRemovedByIdentity) {
  std::vector<std::string> calls;
  Error error;
  auto first = session->doWhenRouteChanges([&](int, auto&, auto&) { calls.push_back("first"); }, &error);
  auto second = session->doWhenRouteChanges([&](int, auto&, auto&) { calls.push_back("second"); }, &error);
  auto third = session->doWhenRouteChanges([&](int, auto&, auto&) { calls.push_back("third"); }, &error);
  session->sendRouteChangeMessage(1, "a", "b");
  session->stopWhenRouteChanges(second);
  session->stopWhenRouteChanges(second);
  session->sendRouteChangeMessage(1, "a", "b");
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "second", "third", "first", "third"}));
  EXPECT_EQ(session->routeWatchers(), (std::vector<VXAudioSession::RouteWatcherToken>{first, third}));
}

TEST_F(VXAudioSessionTest, ListenersExistExactlyWhileWatchersOfTheirKindDo) {
  const std::string route(platform::kAudioSessionRouteChangeNotification);
  const std::string interruption(platform::kAudioSessionInterruptionNotification);
  Error error;
  auto a = session->doWhenRouteChanges([](int, auto&, auto&) {}, &error);
  auto b = session->doWhenRouteChanges([](int, auto&, auto&) {}, &error);
  session->stopWhenRouteChanges(a);
  EXPECT_EQ(center->log(), std::vector<std::string>{"add " + route});
  session->stopWhenRouteChanges(b);
  session->stopWhenRouteChanges(b);
  auto c = session->doWhenRouteChanges([](int, auto&, auto&) {}, &error);
  auto i = session->doWhenInterrupted([](VXAudioSessionInterruptState, bool) {}, &error);
  session->stopWhenInterrupted(i);
  EXPECT_EQ(center->log(), (std::vector<std::string>{"add " + route, "remove " + route, "add " + route,
                                                     "add " + interruption, "remove " + interruption}));
  session.reset();
  EXPECT_EQ(center->registered(), 0u);
}

// --- interruptions ---------------------------------------------------------------------------

TEST_F(VXAudioSessionTest, InterruptionTypesAndOptionsBecomeStatesAndResumeFlags) {
  struct Row {
    int type;
    std::optional<int> option;
    VXAudioSessionInterruptState state;
    bool shouldResume;
  };
  const Row rows[] = {
      {1, std::nullopt, VXAudioSessionInterruptStateInterrupted, false},
      {1, 1, VXAudioSessionInterruptStateInterrupted, false},
      {0, 1, VXAudioSessionInterruptStateEnded, true},
      {0, std::nullopt, VXAudioSessionInterruptStateEnded, false},
      {0, 0, VXAudioSessionInterruptStateEnded, false},
      {0, 2, VXAudioSessionInterruptStateEnded, false},
      {7, 1, VXAudioSessionInterruptStateNone, false},
  };
  std::vector<std::tuple<VXAudioSessionInterruptState, bool, VXAudioSessionInterruptState>> calls;
  Error error;
  session->doWhenInterrupted(
      [&](VXAudioSessionInterruptState state, bool resume) { calls.emplace_back(state, resume, session->interruptState()); },
      &error);
  for (const auto& row : rows) backend.postInterruption(row.type, row.option);
  ASSERT_EQ(calls.size(), std::size(rows));
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(calls[i], std::make_tuple(rows[i].state, rows[i].shouldResume, rows[i].state));
  }
}

TEST_F(VXAudioSessionTest, AnInjectedInterruptionIsStoredAndReachesWatchers) {
  std::vector<std::pair<VXAudioSessionInterruptState, bool>> calls;
  Error error;
  session->doWhenInterrupted([&](VXAudioSessionInterruptState state, bool resume) { calls.emplace_back(state, resume); },
                             &error);
  session->doInterrupt(VXAudioSessionInterruptStateEnded, true);
  EXPECT_EQ(session->interruptState(), VXAudioSessionInterruptStateEnded);
  EXPECT_EQ(calls, (std::vector<std::pair<VXAudioSessionInterruptState, bool>>{{VXAudioSessionInterruptStateEnded, true}}));
}

TEST_F(VXAudioSessionTest, OwningAudioSessionStartsFromTheCurrentStateAndFollowsItUntilDisposed) {
  std::vector<bool> owning;
  auto subscription = session->owningAudioSession().subscribe([&](bool value) { owning.push_back(value); });
  backend.postInterruption(1);
  backend.postInterruption(0);
  session->doInterrupt(VXAudioSessionInterruptStateInterrupted, false);
  subscription.dispose();
  backend.postInterruption(0);
  EXPECT_EQ(owning, (std::vector<bool>{true, false, true, false}));
  EXPECT_TRUE(session->interruptWatchers().empty());
  EXPECT_EQ(center->registered(), 0u);

  session->doInterrupt(VXAudioSessionInterruptStateInterrupted, false);
  owning.clear();
  session->owningAudioSession().subscribe([&](bool value) { owning.push_back(value); }).dispose();
  EXPECT_EQ(owning, std::vector<bool>{false});
}

// --- properties ------------------------------------------------------------------------------

TEST_F(VXAudioSessionTest, PropertyOneIsTheFirstOutputOrSpeakerAndOthersAreAbsent) {
  backend.setCurrentRoute(routeTo({}));
  EXPECT_EQ(session->getAudioProperty(1), "Speaker");
  backend.setCurrentRoute(routeTo({"Headphones", "HDMI"}));
  EXPECT_EQ(session->getAudioProperty(1), "Headphones");
  EXPECT_EQ(session->getAudioProperty(0), std::nullopt);
  EXPECT_EQ(session->getAudioProperty(2), std::nullopt);
}

TEST_F(VXAudioSessionTest, RecordPermissionIsThePlatformsAnswer) {
  backend.setRecordPermission(true);
  std::optional<bool> granted;
  session->requestRecordPermission([&](bool answer) { granted = answer; });
  EXPECT_EQ(granted, true);
}

// --- the shared session ----------------------------------------------------------------------

class SharedSessionTest : public ::testing::Test {
 protected:
  void SetUp() override { VXAudioSession::resetSharedSession(); }
  void TearDown() override { VXAudioSession::resetSharedSession(); }
  testing::AudioFakes fakes;
};

TEST_F(SharedSessionTest, IsMadeOnceFromTheInstalledPlatform) {
  VXAudioSession::installPlatform(fakes.platform());
  std::shared_ptr<VXAudioSession> seen[2];
  std::thread other([&] { seen[1] = VXAudioSession::sharedSession(); });
  seen[0] = VXAudioSession::sharedSession();
  other.join();
  ASSERT_NE(seen[0], nullptr);
  EXPECT_EQ(seen[0], seen[1]);

  fakes.audioSession->setCurrentRoute(routeTo({"Headphones"}));
  EXPECT_EQ(VXAudioSession::sharedGetAudioProperty(1), "Headphones");
  VXAudioSession::sharedDoInterrupt(VXAudioSessionInterruptStateInterrupted, false);
  EXPECT_EQ(seen[0]->interruptState(), VXAudioSessionInterruptStateInterrupted);
}

using SharedSessionDeathTest = SharedSessionTest;

TEST_F(SharedSessionDeathTest, StopsWhenNoPlatformWasInstalled) {
  EXPECT_DEATH(VXAudioSession::sharedSession(), "installPlatform");
}

}  // namespace
}  // namespace applogic
