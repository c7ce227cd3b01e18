#pragma once

#include <memory>

#include "applogic/export.h"
#include "applogic/platform/platform.h"
#include "applogic/platform/run_loop.h"

namespace applogic::platform {

/// What a Linux host gets: the platform services and, typed, the run loop behind
/// `platform.mainThread`, which the host runs on the thread that called the factory.
struct APPLOGIC_EXPORT LinuxPlatform {
  Platform platform;
  /// The same object as `platform.mainThread`.
  std::shared_ptr<RunLoop> runLoop;
};

/// `makeLinuxPlatform(options)`, with its run loop. Call it on the host's main thread.
APPLOGIC_EXPORT LinuxPlatform makeLinuxPlatformWithRunLoop(const LinuxPlatformOptions& options = {});

}  // namespace applogic::platform
