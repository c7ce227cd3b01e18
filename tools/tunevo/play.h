#pragma once

namespace tunevo {

/// `tunevo play [--sink DESCRIPTION] URL|FILE`: plays one preview through AudioPreviewController
/// on the Linux ports, with a one-line progress display. Enter toggles pause, Ctrl-C stops
/// (releasing the player), the end of the clip ends the command. Exit statuses: 0 played or
/// stopped, 64 usage or an argument that is no address, 69 the address cannot be played or no
/// media player is installed. argv[0] is "play".
int runPlay(int argc, char** argv);

}  // namespace tunevo
