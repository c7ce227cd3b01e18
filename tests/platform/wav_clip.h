#pragma once

#include <gtest/gtest.h>

#include <string>

#include "applogic/testing/wav_clip.h"

namespace applogic::test {

// Writes a clip of `seconds` of a tone (`testing::toneWavClip`) into the test's temporary
// directory and returns its path.
inline std::string writeClip(const std::string& name, double seconds) {
  const std::string path = ::testing::TempDir() + name;
  EXPECT_TRUE(testing::writeToneWavClip(path, seconds)) << path;
  return path;
}

}  // namespace applogic::test
