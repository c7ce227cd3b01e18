#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "applogic/platform/run_loop.h"

namespace applogic::test {

// Runs `loop` until a handler quits it. A guard quits it after 30 s so that a port or a client
// that never reports fails the test instead of hanging it; nothing is asserted about time.
// Returns false when the guard had to step in.
inline bool runUntilQuit(platform::RunLoop& loop) {
  std::atomic<bool> finished{false};
  std::atomic<bool> expired{false};
  std::thread guard([&] {
    for (int i = 0; i < 300 && !finished.load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (!finished.load()) {
      expired.store(true);
      loop.quit();
    }
  });
  loop.run();
  finished.store(true);
  guard.join();
  return !expired.load();
}

}  // namespace applogic::test
