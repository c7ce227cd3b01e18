#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <string>

namespace applogic::test {

// Writes a mono 16-bit, 8 kHz WAV clip of a 440 Hz tone into the test's temporary directory and
// returns its path.
inline std::string writeClip(const std::string& name, double seconds) {
  const std::uint32_t rate = 8000;
  const auto samples = static_cast<std::uint32_t>(seconds * rate);
  const std::string path = ::testing::TempDir() + name;
  std::ofstream out(path, std::ios::binary);
  const auto put32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
  const auto put16 = [&](std::uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
  out.write("RIFF", 4);
  put32(36 + samples * 2);
  out.write("WAVEfmt ", 8);
  put32(16);
  put16(1);
  put16(1);
  put32(rate);
  put32(rate * 2);
  put16(2);
  put16(16);
  out.write("data", 4);
  put32(samples * 2);
  for (std::uint32_t i = 0; i < samples; ++i) {
    put16(static_cast<std::uint16_t>(static_cast<std::int16_t>(8000 * std::sin(2 * 3.14159265 * 440 * i / rate))));
  }
  return path;
}

}  // namespace applogic::test
