#include "applogic/foundation/serial_queue.h"

#include <gtest/gtest.h>

namespace applogic {
namespace {

TEST(SerialQueue, CopiesAreTheSameQueueAndALabelIsNotAnIdentity) {
  const SerialQueue queue("AppLogic.Test");
  const SerialQueue copy = queue;
  EXPECT_EQ(copy, queue);
  EXPECT_NE(SerialQueue("AppLogic.Test"), queue);
}

}  // namespace
}  // namespace applogic
