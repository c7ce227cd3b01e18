#pragma once

#include <filesystem>
#include <string>

#include "applogic/export.h"
#include "applogic/platform/device_info.h"

namespace applogic::platform {

/// The Linux `DeviceInfo`, read once when the object is made:
/// - `deviceModel`: the firmware's product name (`/sys/class/dmi/id/product_name`), else the
///   device tree's model (`/sys/firmware/devicetree/base/model`, ARM boards), else the machine
///   field of uname ("x86_64"). Surrounding blanks are trimmed, and the placeholders that
///   firmware leaves unfilled ("To be filled by O.E.M.", "Default string", "System Product Name",
///   "Not Specified", "Not Applicable", "None", in any case) count as no name;
/// - `systemName` and `systemVersion`: the sysname and release fields of uname ("Linux",
///   "6.1.0-18-amd64").
///
/// Thread contract: immutable after construction; any thread.
class APPLOGIC_EXPORT LinuxDeviceInfo final : public DeviceInfo {
 public:
  /// Reads the running system.
  LinuxDeviceInfo();
  /// Reads the two model files under `root` instead of "/" (tests pass a directory of their own);
  /// `machine`, `systemName` and `systemVersion` stand for the uname fields.
  LinuxDeviceInfo(const std::filesystem::path& root, std::string machine, std::string systemName,
                  std::string systemVersion);

  std::string deviceModel() const override { return deviceModel_; }
  std::string systemName() const override { return systemName_; }
  std::string systemVersion() const override { return systemVersion_; }

 private:
  std::string deviceModel_;
  std::string systemName_;
  std::string systemVersion_;
};

}  // namespace applogic::platform
