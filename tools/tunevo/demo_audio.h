#pragma once

#include <iosfwd>

// The audio part of `tunevo demo`.
namespace tunevo {

/// Plays a tone of 1.5 s, generated into a temporary WAV file, through `AudioPreviewController`
/// on the Linux ports, and writes to `out` what the app sees: playing, then ended, rewound and
/// paused. Without a sound device (no GStreamer device provider lists an audio sink) the sound
/// goes to the null sink "fakesink sync=true", which plays in real time. A guard ends the wait
/// after 10 s. Returns false, after writing the reason to `err`, when the clip could not be
/// written or played or did not end in time; true otherwise, also when GStreamer is missing
/// (the section then says so and plays nothing).
bool showAudio(std::ostream& out, std::ostream& err);

}  // namespace tunevo
