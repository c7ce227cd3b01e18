// The run loop's descriptors and timers: what wakes it, what a callback may change while the loop
// dispatches, and that neither starves the tasks.
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "applogic/platform/run_loop.h"

namespace applogic {
namespace {

using platform::RunLoop;
using namespace std::chrono_literals;

// A pipe whose read end is ready once a byte was written and until it is read.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe(fds), 0); }
  ~Pipe() { close(fds[0]), close(fds[1]); }
  void fill() const { EXPECT_EQ(write(fds[1], "x", 1), 1); }
  void drain() const {
    char byte;
    EXPECT_EQ(read(fds[0], &byte, 1), 1);
  }
  int in() const { return fds[0]; }
  int fds[2] = {-1, -1};
};

TEST(RunLoopWatch, ReportsReadinessOnTheMainThreadUntilUnwatched) {
  RunLoop loop;
  Pipe pipe;
  std::vector<std::string> seen;
  loop.watch(pipe.in(), POLLIN, [&](short events) {
    seen.push_back(std::string(loop.isMainThread() ? "main " : "other ") + ((events & POLLIN) ? "in" : "?"));
    pipe.drain();
    loop.quit();
  });
  EXPECT_EQ(loop.runUntilIdle(), 0u) << "nothing is ready yet";
  std::thread writer([&] { pipe.fill(); });
  loop.run();  // asleep in poll until the byte arrives
  writer.join();
  EXPECT_EQ(seen, std::vector<std::string>{"main in"});

  // Watching again replaces the callback; after unwatch nothing is reported.
  loop.watch(pipe.in(), POLLIN, [&](short) { seen.push_back("replaced"), pipe.drain(); });
  pipe.fill();
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  loop.unwatch(pipe.in());
  pipe.fill();
  EXPECT_EQ(loop.runUntilIdle(), 0u);
  EXPECT_EQ(seen, (std::vector<std::string>{"main in", "replaced"}));
}

TEST(RunLoopWatch, ACallbackThatEndsAnotherReadyWatchKeepsItsCallbackFromRunning) {
  RunLoop loop;
  Pipe first, second;
  std::vector<int> ran;
  // Whichever the loop reports first ends the other's watch.
  loop.watch(first.in(), POLLIN, [&](short) { ran.push_back(1), first.drain(), loop.unwatch(second.in()); });
  loop.watch(second.in(), POLLIN, [&](short) { ran.push_back(2), second.drain(), loop.unwatch(first.in()); });
  first.fill();
  second.fill();
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(ran.size(), 1u);
}

TEST(RunLoopTimer, FiresOnceInDeadlineOrderAndNotWhenCancelled) {
  RunLoop loop;
  std::vector<std::string> fired;
  const auto now = RunLoop::Clock::now();
  loop.startTimer(now + 20ms, [&] { fired.push_back("later"); });
  loop.startTimer(now, [&] { fired.push_back("now"); });
  const auto cancelled = loop.startTimer(now, [&] { fired.push_back("cancelled"); });
  loop.startTimer(now + 100ms, [&] { fired.push_back("last"), loop.quit(); });
  loop.startTimer(now + 1h, [&] { fired.push_back("in an hour"); });
  loop.cancelTimer(cancelled);
  loop.cancelTimer(cancelled);  // no error
  const auto cpuTime = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  };
  const auto cpuBefore = cpuTime();
  loop.run();
  // It slept until each deadline: a loop that polled meanwhile would have used the CPU throughout.
  EXPECT_LT(cpuTime() - cpuBefore, 25ms);
  EXPECT_EQ(fired, (std::vector<std::string>{"now", "later", "last"}));
  EXPECT_EQ(loop.runUntilIdle(), 0u) << "runUntilIdle does not wait for a timer";
}

// A timer that starts another for now, or a descriptor that stays ready, is served once per turn:
// the posted quit still comes through.
TEST(RunLoopTimer, NeitherABusyTimerNorABusyDescriptorStarvesTheTasks) {
  RunLoop loop;
  Pipe pipe;
  pipe.fill();  // never drained
  int turns = 0;
  loop.watch(pipe.in(), POLLIN, [&](short) { ++turns; });
  std::function<void()> again = [&] { loop.startTimer(RunLoop::Clock::now(), again); };
  again();
  loop.post([&] { loop.post([&] { loop.quit(); }); });
  loop.run();
  EXPECT_GE(turns, 1);
}

TEST(RunLoopTimer, AQuitFromACallbackReturnsBeforeTheNextDueCallback) {
  RunLoop loop;
  std::vector<int> fired;
  const auto now = RunLoop::Clock::now();
  loop.startTimer(now, [&] { fired.push_back(1), loop.quit(); });
  loop.startTimer(now, [&] { fired.push_back(2); });
  loop.run();
  EXPECT_EQ(fired, std::vector<int>{1});
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(fired, (std::vector<int>{1, 2}));
}

// A loop holds one descriptor while it lives; with none left to wake it through, a loop still
// notices what other threads post.
TEST(RunLoopWake, OneDescriptorWhileItLivesAndWithoutOneStillNoticesPosts) {
  const auto open = [] {
    const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
  };
  const auto before = open();
  { RunLoop withOne; }
  EXPECT_EQ(open(), before) << "a loop closes its descriptor";

  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
  rlimit none = saved;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  RunLoop loop;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
  std::thread poster([&] { std::this_thread::sleep_for(50ms), loop.post([&] { loop.quit(); }); });
  loop.run();
  poster.join();
}

}  // namespace
}  // namespace applogic
