#include "applogic/foundation/dispatch_group.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "applogic/testing/manual_main_thread.h"

namespace applogic {
namespace {

TEST(DispatchGroup, NotifiesOnceTheLastPieceLeavesAlwaysByPosting) {
  const auto main = std::make_shared<testing::ManualMainThread>();
  std::vector<int> ran;
  DispatchGroup group;

  group.notify(main, [&] { ran.push_back(0); });  // empty group: posted at once
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(main->runPending(), 1u);

  group.enter();
  group.enter();
  const DispatchGroup copy = group;  // the same group
  group.notify(main, [&] { ran.push_back(1); });
  group.notify(main, [&] { ran.push_back(2); });
  group.notify(nullptr, [&] { ran.push_back(-1); });
  group.leave();
  EXPECT_EQ(main->runPending(), 0u);
  DispatchGroup(copy).leave();
  EXPECT_TRUE(ran == std::vector<int>{0}) << "posted, not run inside leave";
  EXPECT_EQ(main->runPending(), 2u);
  EXPECT_EQ(ran, (std::vector<int>{0, 1, 2}));

  // Notified tasks are forgotten: a second round does not run them again.
  group.enter();
  group.leave();
  EXPECT_EQ(main->runPending(), 0u);

  // A piece that never leaves keeps the task waiting.
  group.enter();
  group.notify(main, [&] { ran.push_back(3); });
  EXPECT_EQ(main->runPending(), 0u);
}

TEST(DispatchGroup, PiecesLeavingFromManyThreadsNotifyOnce) {
  const auto main = std::make_shared<testing::ManualMainThread>();
  DispatchGroup group;
  constexpr int kPieces = 64;
  for (int i = 0; i < kPieces; ++i) group.enter();
  std::atomic<int> notified{0};
  group.notify(main, [&] { ++notified; });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([group]() mutable {
      for (int i = 0; i < kPieces / 4; ++i) {
        group.enter();
        group.leave();
        group.leave();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  main->runPending();
  EXPECT_EQ(notified.load(), 1);
}

TEST(DispatchGroupDeathTest, LeavingMoreThanEnteredStops) {
  DispatchGroup group;
  EXPECT_DEATH(group.leave(), "without a matching enter");
}

}  // namespace
}  // namespace applogic
