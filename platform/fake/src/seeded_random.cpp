#include "applogic/testing/seeded_random.h"

#include "applogic/testing/fault_plan.h"

namespace applogic::testing {

bool SeededRandom::fill(std::span<std::uint8_t> bytes) const {
  std::lock_guard lock(mutex_);
  if (failing_ || (faults_ && faults_->fails("random.fill"))) return false;
  for (auto& byte : bytes) {
    // splitmix64: every output depends on the whole state, so short fills still differ.
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    byte = static_cast<std::uint8_t>(z ^ (z >> 31));
  }
  return true;
}

void SeededRandom::setFaultPlan(std::shared_ptr<FaultPlan> plan) {
  std::lock_guard lock(mutex_);
  faults_ = std::move(plan);
}

void SeededRandom::setFailing(bool failing) {
  std::lock_guard lock(mutex_);
  failing_ = failing;
}

}  // namespace applogic::testing
