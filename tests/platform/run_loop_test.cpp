#include "applogic/platform/run_loop.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "applogic/testing/manual_main_thread.h"

namespace applogic {
namespace {

TEST(RunLoop, RunsTasksInOrderAndTasksPostedByTasksAfterThem) {
  platform::RunLoop loop;
  std::vector<std::string> ran;
  loop.post([&] {
    ran.push_back("a");
    loop.post([&] { ran.push_back("c"); });
  });
  loop.post([&] { ran.push_back("b"); });
  loop.post(nullptr);
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(loop.runUntilIdle(), 3u);
  EXPECT_EQ(ran, (std::vector<std::string>{"a", "b", "c"}));
}

TEST(RunLoop, RunDeliversWorkFromAnotherThreadOnTheMainThreadUntilQuit) {
  platform::RunLoop loop;
  bool onMain = false;
  std::thread worker([&] {
    EXPECT_FALSE(loop.isMainThread());
    loop.post([&] {
      onMain = loop.isMainThread();
      loop.quit();
    });
  });
  loop.run();
  worker.join();
  EXPECT_TRUE(onMain);

  loop.quit();
  loop.run();
  EXPECT_EQ(loop.runUntilIdle(), 0u);
}

TEST(ManualMainThread, RunsNothingUntilPumped) {
  testing::ManualMainThread mainThread;
  int ran = 0;
  mainThread.post([&] { ++ran; });
  mainThread.post([&] { ++ran; });
  EXPECT_EQ(ran, 0);
  EXPECT_EQ(mainThread.pendingCount(), 2u);
  EXPECT_TRUE(mainThread.runOne());
  EXPECT_EQ(mainThread.runPending(), 1u);
  EXPECT_EQ(ran, 2);
}

}  // namespace
}  // namespace applogic
