#include "applogic/testing/fault_plan.h"

namespace applogic::testing {

bool FaultPlan::fails(std::string_view site) {
  std::lock_guard lock(mutex_);
  sites_.emplace_back(site);
  return sites_.size() == failAt_;
}

void FaultPlan::failAt(std::size_t n) {
  std::lock_guard lock(mutex_);
  failAt_ = n;
  sites_.clear();
}

std::size_t FaultPlan::count() const {
  std::lock_guard lock(mutex_);
  return sites_.size();
}

std::vector<std::string> FaultPlan::sites() const {
  std::lock_guard lock(mutex_);
  return sites_;
}

std::string FaultPlan::failedSite() const {
  std::lock_guard lock(mutex_);
  return failAt_ != 0 && sites_.size() >= failAt_ ? sites_[failAt_ - 1] : std::string();
}

}  // namespace applogic::testing
