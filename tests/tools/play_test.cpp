#include <gtest/gtest.h>

#include <string>

#include "platform/wav_clip.h"
#include "tools/tunevo_process.h"

namespace tunevo::test {
namespace {

TEST(TunevoPlay, PlaysAClipToItsEndWithoutASoundDevice) {
  const std::string clip = applogic::test::writeClip("play clip.wav", 0.3);
  const Outcome run = runTunevo("play --sink 'fakesink sync=true' '" + clip + "'");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("0:00 / 0:00  "), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\nplayed to the end\n"), std::string::npos) << run.out;
}

TEST(TunevoPlay, UnplayableAddressesAndBadUsageAreErrors) {
  const Outcome run = runTunevo("play --sink 'fakesink sync=true' file:///nonexistent/clip.wav");
  EXPECT_EQ(run.status, 69);
  EXPECT_NE(run.err.find("AudioPreviewController Failed to play to the end\n"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("tunevo play: cannot play file:///nonexistent/clip.wav\n"), std::string::npos) << run.err;
  // Usage errors, and a sink that does not exist.
  EXPECT_EQ(runTunevo("play").status, 64);
  EXPECT_EQ(runTunevo("play a b").status, 64);
  EXPECT_EQ(runTunevo("play 'http://bad host/x'").status, 64);
  EXPECT_EQ(runTunevo("play --sink no-such-element x.wav").status, 69);
}

}  // namespace
}  // namespace tunevo::test
