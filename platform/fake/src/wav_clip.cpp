#include "applogic/testing/wav_clip.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <numbers>

namespace applogic::testing {
namespace {

constexpr std::uint32_t kSampleRate = 8000;
constexpr double kToneHz = 440;
constexpr double kLongestSeconds = 3600;

// WAV is little-endian whatever the host.
void put(std::string& out, std::uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xff));
}

}  // namespace

std::string toneWavClip(double seconds) {
  const double clamped = seconds > 0 ? std::min(seconds, kLongestSeconds) : 0;  // false for NaN too
  const auto samples = static_cast<std::uint32_t>(clamped * kSampleRate);
  std::string out;
  out.reserve(44 + std::size_t{samples} * 2);
  out += "RIFF";
  put(out, 36 + samples * 2, 4);
  out += "WAVEfmt ";
  put(out, 16, 4);               // size of the format chunk
  put(out, 1, 2);                // PCM
  put(out, 1, 2);                // one channel
  put(out, kSampleRate, 4);
  put(out, kSampleRate * 2, 4);  // bytes a second
  put(out, 2, 2);                // bytes a frame
  put(out, 16, 2);               // bits a sample
  out += "data";
  put(out, samples * 2, 4);
  for (std::uint32_t i = 0; i < samples; ++i) {
    const double value = 8000 * std::sin(2 * std::numbers::pi * kToneHz * i / kSampleRate);
    put(out, static_cast<std::uint16_t>(static_cast<std::int16_t>(value)), 2);
  }
  return out;
}

bool writeToneWavClip(const std::filesystem::path& path, double seconds) {
  const std::string clip = toneWavClip(seconds);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(clip.data(), static_cast<std::streamsize>(clip.size()));
  out.close();
  return static_cast<bool>(out);
}

}  // namespace applogic::testing
