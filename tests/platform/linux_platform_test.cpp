#include "applogic/platform/platform.h"

#include <gtest/gtest.h>

#include "applogic/testing/manual_clock.h"

namespace applogic {
namespace {

TEST(LinuxPlatform, ProvidesEveryService) {
  const platform::Platform system = platform::makeLinuxPlatform();
  ASSERT_NE(system.clock, nullptr);
  ASSERT_NE(system.locale, nullptr);
  EXPECT_NE(system.httpClient, nullptr);
  EXPECT_NE(system.deviceInfo, nullptr);
  ASSERT_NE(system.signInPresenter, nullptr);
  const auto before = std::chrono::system_clock::now();
  EXPECT_GE(system.clock->now(), before);
}

TEST(ManualClock, MovesOnlyWhenTold) {
  testing::ManualClock clock;
  const auto start = clock.now();
  EXPECT_EQ(clock.now(), start);
  clock.advance(std::chrono::seconds(3600));
  EXPECT_EQ(clock.now() - start, std::chrono::seconds(3600));
}

}  // namespace
}  // namespace applogic
