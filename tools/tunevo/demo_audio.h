#pragma once

#include <iosfwd>

#include "applogic/platform/linux_platform.h"
#include "applogic/records/track.h"

#include <iosfwd>

// The audio part of `tunevo demo`.
namespace tunevo {

/// Plays `track`'s preview through `AudioPreviewController` on `host` and writes to `out` what
/// the app sees: playing, then ended, rewound and paused. `device`: `host` plays on the system's
/// output (else on the null sink "fakesink sync=true", which plays in real time). A guard ends the
/// wait after 10 s. Returns false, after writing the reason to `err`, when the preview could not
/// be played or did not end in time; true otherwise, also when GStreamer is missing (the section
/// then says so and plays nothing).
bool showAudio(std::ostream& out, std::ostream& err, applogic::platform::LinuxPlatform& host,
               const applogic::Track& track, bool device);

}  // namespace tunevo
