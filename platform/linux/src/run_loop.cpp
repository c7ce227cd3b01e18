#include "applogic/platform/run_loop.h"

#include <utility>

namespace applogic::platform {

RunLoop::RunLoop() : mainThread_(std::this_thread::get_id()) {}

// A poster keeps the loop alive while it posts, but what orders its return before the owner's
// release may be a library's own bookkeeping that ThreadSanitizer cannot see (GStreamer drops its
// bus handler, and with it our reference, through GLib atomics). So a poster touches the loop only
// under the lock, signal included, and the destructor takes the lock once: every post is then
// visibly ordered before the loop goes.
RunLoop::~RunLoop() { std::lock_guard lock(mutex_); }

void RunLoop::post(std::function<void()> task) {
  if (!task) return;
  std::lock_guard lock(mutex_);
  tasks_.push_back(std::move(task));
  wake_.notify_one();
}

bool RunLoop::isMainThread() const { return std::this_thread::get_id() == mainThread_; }

std::size_t RunLoop::runUntilIdle() {
  std::size_t ran = 0;
  for (;;) {
    std::function<void()> task;
    {
      std::lock_guard lock(mutex_);
      if (tasks_.empty()) return ran;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
    ++ran;
  }
}

void RunLoop::run() {
  for (;;) {
    std::function<void()> task;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return quit_ || !tasks_.empty(); });
      if (quit_) {
        quit_ = false;
        return;
      }
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
  }
}

void RunLoop::quit() {
  std::lock_guard lock(mutex_);
  quit_ = true;
  wake_.notify_one();
}

}  // namespace applogic::platform
