#pragma once

#include <string>
#include <string_view>

#include "applogic/platform/linux_platform.h"
#include "applogic/records/track.h"

namespace tunevo {

/// `tunevo play [--sink DESCRIPTION] URL|FILE`: plays one preview through AudioPreviewController
/// on the Linux ports, with a one-line progress display. Enter toggles pause, Ctrl-C stops
/// (releasing the player), the end of the clip ends the command. Exit statuses: 0 played or
/// stopped, 64 usage or an argument that is no address, 69 the address cannot be played or no
/// media player is installed. argv[0] is "play".
int runPlay(int argc, char** argv);

/// Plays `track`'s preview as `play` does, on `host` (its run loop runs until the clip ends, the
/// player fails or Ctrl-C); `command` names the command in messages, `sink` the sink `host` was
/// made with. The exit status as `play`'s.
int playPreview(applogic::platform::LinuxPlatform& host, const applogic::Track& track, std::string_view command,
                const std::string& sink);

}  // namespace tunevo
