#include "applogic/platform/platform.h"

namespace applogic::platform {
namespace {

class SystemClock final : public Clock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }
};

}  // namespace

Platform makeLinuxPlatform(const LinuxPlatformOptions& /*options*/) {
  Platform platform;
  platform.clock = std::make_shared<SystemClock>();
  platform.locale = systemLocale();
  return platform;
}

}  // namespace applogic::platform
