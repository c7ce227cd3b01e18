#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "applogic/export.h"
#include "applogic/platform/main_thread.h"

namespace applogic::platform {

/// The Linux `MainThread`: a queue of tasks that the host drains on its main thread, the thread
/// that made the loop. The library starts no loop of its own; the host decides when to run it.
///
/// Thread contract: `post` and `quit` from any thread; `run` and `runUntilIdle` on the main
/// thread only, and not from inside a task.
class APPLOGIC_EXPORT RunLoop final : public MainThread {
 public:
  RunLoop();
  /// Only after every thread that may post has let go of the loop.
  ~RunLoop() override;
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  void post(std::function<void()> task) override;
  bool isMainThread() const override;

  /// Runs queued tasks, including those they post, until none is left. Returns how many ran.
  std::size_t runUntilIdle();

  /// Runs tasks as they arrive, sleeping while none is queued, until `quit` is called. A `quit`
  /// that came before `run` makes it return at once; either way the request is used up.
  void run();

  /// Makes `run` return once the task it is running (if any) has finished.
  void quit();

 private:
  const std::thread::id mainThread_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> tasks_;
  bool quit_ = false;
};

}  // namespace applogic::platform
