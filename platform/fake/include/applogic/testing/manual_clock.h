#pragma once

#include <chrono>
#include <mutex>

#include "applogic/platform/clock.h"

namespace applogic::testing {

/// A clock that moves only when the test says so. Thread-safe.
class ManualClock final : public platform::Clock {
 public:
  explicit ManualClock(TimePoint start = TimePoint(std::chrono::seconds(1'700'000'000))) : now_(start) {}

  TimePoint now() const override {
    std::lock_guard lock(mutex_);
    return now_;
  }
  void set(TimePoint time) {
    std::lock_guard lock(mutex_);
    now_ = time;
  }
  void advance(std::chrono::system_clock::duration by) {
    std::lock_guard lock(mutex_);
    now_ += by;
  }

 private:
  mutable std::mutex mutex_;
  TimePoint now_;
};

}  // namespace applogic::testing
