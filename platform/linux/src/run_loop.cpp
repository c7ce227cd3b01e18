#include "applogic/platform/run_loop.h"

#include <utility>

namespace applogic::platform {

RunLoop::RunLoop() : mainThread_(std::this_thread::get_id()) {}

void RunLoop::post(std::function<void()> task) {
  if (!task) return;
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
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
  {
    std::lock_guard lock(mutex_);
    quit_ = true;
  }
  wake_.notify_one();
}

}  // namespace applogic::platform
