#pragma once

#include <filesystem>
#include <string>

namespace applogic::testing {

/// A WAV file, as bytes, holding `seconds` of a 440 Hz tone: mono, 16-bit, 8000 samples a
/// second (16 000 bytes a second after a 44-byte header). Any decoder plays it; tests, benchmarks
/// and `tunevo demo` write it at run time instead of shipping audio files. `seconds` is clamped
/// to [0, 3600]; NaN gives an empty clip (a header with no samples). Pure; any thread.
std::string toneWavClip(double seconds);

/// Writes `toneWavClip(seconds)` to `path`, replacing any file there. False when the file cannot
/// be written completely.
bool writeToneWavClip(const std::filesystem::path& path, double seconds);

}  // namespace applogic::testing
