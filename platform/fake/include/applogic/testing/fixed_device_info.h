#pragma once

#include <string>
#include <utility>

#include "applogic/platform/device_info.h"

namespace applogic::testing {

/// A `DeviceInfo` with values fixed at construction. Immutable; any thread.
class FixedDeviceInfo final : public platform::DeviceInfo {
 public:
  FixedDeviceInfo(std::string deviceModel, std::string systemName, std::string systemVersion)
      : deviceModel_(std::move(deviceModel)), systemName_(std::move(systemName)), systemVersion_(std::move(systemVersion)) {}

  std::string deviceModel() const override { return deviceModel_; }
  std::string systemName() const override { return systemName_; }
  std::string systemVersion() const override { return systemVersion_; }

 private:
  std::string deviceModel_;
  std::string systemName_;
  std::string systemVersion_;
};

}  // namespace applogic::testing
