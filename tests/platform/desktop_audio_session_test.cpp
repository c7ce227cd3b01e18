#include "applogic/platform/desktop_audio_session.h"

#include <gtest/gtest.h>

#include <optional>

namespace applogic {
namespace {

TEST(DesktopAudioSession, AlwaysSucceedsAndRoutesToTheSpeaker) {
  platform::DesktopAudioSession session(platform::makeNotificationCenter());
  EXPECT_EQ(session.category(), platform::kAudioSessionCategorySoloAmbient);
  EXPECT_TRUE(session.setActive(true, nullptr));
  EXPECT_TRUE(session.setCategory(platform::kAudioSessionCategoryPlayback, platform::kAudioSessionCategoryOptionMixWithOthers, nullptr));
  EXPECT_EQ(session.category(), platform::kAudioSessionCategoryPlayback);
  EXPECT_TRUE(session.setActive(false, nullptr));
  EXPECT_EQ(session.currentRoute().outputs, (std::vector<platform::AudioSessionPortDescription>{{"Speaker"}}));
  std::optional<bool> granted;
  session.requestRecordPermission([&](bool answer) { granted = answer; });
  EXPECT_EQ(granted, true);
}

}  // namespace
}  // namespace applogic
