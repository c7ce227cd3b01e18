#include "applogic/support/log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "applogic/support/fatal.h"

namespace applogic {
namespace {

struct CapturingSink : LogSink {
  std::vector<std::string> lines;
  void write(std::string_view line) override { lines.emplace_back(line); }
};

TEST(Log, GoesToTheInstalledSinkAndTheScopeRestoresThePreviousOne) {
  auto outer = std::make_shared<CapturingSink>();
  auto inner = std::make_shared<CapturingSink>();
  ScopedLogSink outerScope(outer);
  {
    ScopedLogSink innerScope(inner);
    log("inner line");
  }
  log("outer line");
  EXPECT_EQ(inner->lines, std::vector<std::string>{"inner line"});
  EXPECT_EQ(outer->lines, std::vector<std::string>{"outer line"});
}

TEST(FatalErrorDeathTest, AbortsAfterWritingTheMessage) {
  EXPECT_DEATH(fatalError("display image without an id"), "Fatal error: display image without an id");
}

}  // namespace
}  // namespace applogic
