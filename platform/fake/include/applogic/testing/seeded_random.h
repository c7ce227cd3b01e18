#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "applogic/platform/crypto.h"

namespace applogic::testing {

class FaultPlan;

/// A repeatable `SecureRandom`: the same seed gives the same bytes. Not secure; for tests only.
/// `setFailing(true)` makes every `fill` report failure. Thread-safe.
class SeededRandom final : public platform::SecureRandom {
 public:
  explicit SeededRandom(std::uint64_t seed = 0x5eed) : state_(seed) {}

  bool fill(std::span<std::uint8_t> bytes) const override;
  void setFailing(bool failing);
  /// Makes every `fill` ask `plan` ("random.fill") first; one the plan fails reports failure.
  void setFaultPlan(std::shared_ptr<FaultPlan> plan);

 private:
  mutable std::mutex mutex_;
  mutable std::uint64_t state_;
  bool failing_ = false;
  std::shared_ptr<FaultPlan> faults_;
};

}  // namespace applogic::testing
