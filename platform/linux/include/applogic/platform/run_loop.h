#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>

#include "applogic/export.h"
#include "applogic/platform/main_thread.h"

namespace applogic::platform {

/// The Linux `MainThread`: a queue of tasks that the host drains on its main thread, the thread
/// that made the loop. The library starts no loop of its own; the host decides when to run it.
///
/// Besides tasks, the loop waits on file descriptors and timers, so that a component can do its
/// input and output on the main thread without a thread of its own (the libcurl HTTP client
/// does). Their callbacks run on the main thread between tasks, while `run` or `runUntilIdle` runs.
///
/// Thread contract: `post` and `quit` from any thread; everything else on the main thread only,
/// and `run` and `runUntilIdle` not from inside a task or callback.
class APPLOGIC_EXPORT RunLoop final : public MainThread {
 public:
  using Clock = std::chrono::steady_clock;
  using TimerId = std::uint64_t;

  RunLoop();
  /// Only after every thread that may post has let go of the loop.
  ~RunLoop() override;
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  void post(std::function<void()> task) override;
  bool isMainThread() const override;

  /// Runs queued tasks, including those they post, and the callbacks of ready file descriptors and
  /// due timers, without waiting, until none is left. Returns how many tasks and callbacks ran.
  std::size_t runUntilIdle();

  /// Runs tasks as they arrive and callbacks as their descriptors and timers become due, sleeping
  /// while there is nothing to do, until `quit` is called. A `quit` that came before `run` makes
  /// it return at once; either way the request is used up.
  void run();

  /// Makes `run` return once the task or callback it is running (if any) has finished.
  void quit();

  /// Calls `ready` with the poll(2) events that occurred (`POLLIN`, `POLLOUT`, `POLLERR`,
  /// `POLLHUP`) each time `fd` is ready for `events`, until `unwatch(fd)`. Watching a descriptor
  /// again replaces its events and callback. The caller keeps the descriptor open while watched.
  void watch(int fd, short events, std::function<void(short)> ready);
  /// Stops watching `fd`; no callback of the watch runs afterwards, even one already due.
  void unwatch(int fd);

  /// Calls `fire` once, when `deadline` has passed. Returns an id for `cancelTimer`.
  TimerId startTimer(Clock::time_point deadline, std::function<void()> fire);
  /// Stops a timer that has not fired; a fired or unknown id is no error.
  void cancelTimer(TimerId timer);

 private:
  struct Watch {
    short events = 0;
    std::uint64_t serial = 0;
    // Shared, so that a dispatch can hold it while the callback ends or replaces its own watch.
    std::shared_ptr<const std::function<void(short)>> ready;
  };

  std::size_t runQueuedTasks();
  bool quitRequested();
  // Polls the descriptors (if `block`, sleeping until a post, a quit or the next timer) and runs the
  // callbacks of the ready ones and of due timers, stopping at a `quit`.
  std::size_t waitAndDispatch(bool block);
  int sleepLimit() const;
  std::size_t fireDueTimers();
  void wakeLocked();

  const std::thread::id mainThread_;
  // Written by `post` and `quit` while the loop sleeps in poll(2); -1 if the system had none to
  // give, in which case the loop sleeps in short slices instead.
  const int wakeFd_;

  std::mutex mutex_;
  std::deque<std::function<void()>> tasks_;
  bool quit_ = false;

  // Main thread only.
  std::unordered_map<int, Watch> watches_;
  std::uint64_t nextSerial_ = 0;
  struct Timer {
    Clock::time_point deadline;
    std::function<void()> fire;
  };
  std::unordered_map<TimerId, Timer> timers_;
  TimerId nextTimer_ = 0;
};

}  // namespace applogic::platform
