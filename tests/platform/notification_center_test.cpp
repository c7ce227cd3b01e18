#include "applogic/platform/notification_center.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace applogic {
namespace {

using platform::Notification;

TEST(NotificationCenter, DeliversByNameAndObjectInRegistrationOrder) {
  auto center = platform::makeNotificationCenter();
  const int first = 0;
  const int second = 0;
  std::vector<std::string> calls;
  center->addObserver("end", &first, [&](const Notification&) { calls.push_back("end of first"); });
  center->addObserver("end", nullptr, [&](const Notification&) { calls.push_back("end of any"); });
  center->addObserver(std::nullopt, &second, [&](const Notification& n) { calls.push_back(n.name + " of second"); });

  center->post(Notification{"end", &first, {}});
  center->post(Notification{"end", &second, {}});
  center->post(Notification{"start", &second, {}});
  center->post(Notification{"start", nullptr, {}});
  EXPECT_EQ(calls, (std::vector<std::string>{"end of first", "end of any", "end of any", "end of second",
                                             "start of second"}));
}

TEST(NotificationCenter, ARemovalDuringAPostTakesEffectAtOnce) {
  auto center = platform::makeNotificationCenter();
  std::vector<std::string> calls;
  platform::NotificationObserverToken second;
  auto first = center->addObserver("n", nullptr, [&](const Notification&) {
    calls.push_back("first");
    center->removeObserver(second);
    center->addObserver("n", nullptr, [&](const Notification&) { calls.push_back("added"); });
  });
  second = center->addObserver("n", nullptr, [&](const Notification&) { calls.push_back("second"); });
  center->post(Notification{"n", nullptr, {}});
  center->removeObserver(first);
  center->removeObserver(first);
  center->removeObserver(nullptr);
  center->post(Notification{"n", nullptr, {}});
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "added"}));
}

TEST(NotificationCenter, UserInfoValuesAreReadByKeyAndType) {
  const Notification notification{"n", nullptr, {{"reason", 5}}};
  EXPECT_EQ(*platform::userInfoValue<int>(notification, "reason"), 5);
  EXPECT_EQ(platform::userInfoValue<long>(notification, "reason"), nullptr);
  EXPECT_EQ(platform::userInfoValue<int>(notification, "missing"), nullptr);
}

}  // namespace
}  // namespace applogic
