#include "applogic/foundation/serial_queue.h"

#include <gtest/gtest.h>

namespace applogic {
namespace {

TEST(SerialQueue, CopiesAreTheSameQueueAndALabelIsNotAnIdentity) {
  const SerialQueue queue("AppLogic.Test");
  const SerialQueue copy = queue;
  const SerialQueue sameLabel("AppLogic.Test");
  EXPECT_EQ(queue.label(), "AppLogic.Test");
  EXPECT_EQ(copy, queue);
  EXPECT_EQ(&copy.label(), &queue.label());
  EXPECT_EQ(sameLabel.label(), queue.label());
  EXPECT_NE(sameLabel, queue);
  EXPECT_EQ(SerialQueue("").label(), "");
}

}  // namespace
}  // namespace applogic
