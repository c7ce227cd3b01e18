#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "applogic/platform/main_thread.h"

namespace applogic::testing {

/// A `MainThread` that runs nothing until the test pumps it. The main thread is the thread that
/// made it. `post` is thread-safe; pump on the main thread.
class ManualMainThread final : public platform::MainThread {
 public:
  ManualMainThread() : mainThread_(std::this_thread::get_id()) {}

  void post(std::function<void()> task) override {
    if (!task) return;
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  bool isMainThread() const override { return std::this_thread::get_id() == mainThread_; }

  /// Runs the queued tasks and those they post, until none is left; returns how many ran.
  std::size_t runPending() {
    std::size_t ran = 0;
    while (runOne()) ++ran;
    return ran;
  }

  /// Runs the oldest queued task, if any; returns whether one ran.
  bool runOne() {
    std::function<void()> task;
    {
      std::lock_guard lock(mutex_);
      if (tasks_.empty()) return false;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
    return true;
  }

  std::size_t pendingCount() const {
    std::lock_guard lock(mutex_);
    return tasks_.size();
  }

 private:
  const std::thread::id mainThread_;
  mutable std::mutex mutex_;
  std::deque<std::function<void()>> tasks_;
};

}  // namespace applogic::testing
