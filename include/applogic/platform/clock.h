#pragma once

#include <chrono>

#include "applogic/export.h"

namespace applogic::platform {

/// The time source of the library: every "now" it needs reads this clock, never the system
/// clock directly, so that tests can stand exactly on a boundary.
///
/// Thread contract: implementations are safe to call from any thread, concurrently.
class APPLOGIC_EXPORT Clock {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  virtual ~Clock() = default;
  /// The current wall-clock time.
  virtual TimePoint now() const = 0;
};

}  // namespace applogic::platform
