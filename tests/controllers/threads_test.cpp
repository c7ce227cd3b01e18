// Services that emit on threads of their own: the controllers add no scheduler and no lock of
// their own, so these tests are for ThreadSanitizer as much as for their assertions.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

TEST(Threads, AnswerDeliveredOnTheServicesThreadReachesTheSubscriber) {
  Fixture f;
  testing::Hold hold;
  f.tracksService->script("getTrackData", Answer::held(hold));
  EventLog log;
  std::thread::id deliveredOn;
  f.tracks->getTrack("Tra.1").subscribe([&](const Track& track) {
    deliveredOn = std::this_thread::get_id();
    log.subscribeTo(rx::just(track));
  });
  std::thread service([&] {
    hold.emit(tracksAnswer({"Tra.1"}));
    hold.complete();
  });
  const std::thread::id serviceThread = service.get_id();
  service.join();
  EXPECT_EQ(log.events(), (Log{"Tra.1", "completed"}));
  EXPECT_EQ(deliveredOn, serviceThread);
}

TEST(Threads, UpdatesPushedConcurrentlyOnBothStreamsAllArriveInTheirStreamsOrder) {
  constexpr int kUpdatesPerStream = 300;
  Fixture f;
  EventLog log;
  log.subscribeTo(f.users.getUserTopChartsTracksObservable());

  auto push = [&](const rx::PublishSubject<UserResultUpdate>& stream, const std::string& user) {
    for (int i = 0; i < kUpdatesPerStream; ++i) {
      stream.onNext(UserResultUpdate{UserHint::user(user),
                                     Result<Json>::success(chartsAnswer({"Tra." + std::to_string(i)}))});
    }
  };
  std::thread updated([&] { push(f.chartsService->topChartsUpdatedSubject(), "a"); });
  std::thread refreshed([&] { push(f.chartsService->topChartsRefreshedSubject(), "b"); });
  updated.join();
  refreshed.join();

  std::map<std::string, std::vector<std::string>> byUser;
  for (const std::string& event : log.events()) {
    const auto colon = event.find(':');
    byUser[event.substr(0, colon)].push_back(event.substr(colon + 1));
  }
  ASSERT_EQ(byUser.size(), 2u);
  for (const auto& [user, lists] : byUser) {
    ASSERT_EQ(lists.size(), static_cast<std::size_t>(kUpdatesPerStream)) << user;
    for (int i = 0; i < kUpdatesPerStream; ++i) EXPECT_EQ(lists[i], "[Tra." + std::to_string(i) + "]") << user;
  }
}

}  // namespace
}  // namespace applogic::controllers_test
