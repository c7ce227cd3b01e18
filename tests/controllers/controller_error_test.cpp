#include "applogic/controllers/controller_error.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "applogic/records/track.h"
#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

TEST(ErrorCode, OnlyRawValueOneIsACode) {
  struct Row {
    std::int64_t raw;
    std::optional<ErrorCode> expected;
  };
  const std::vector<Row> rows{
      {1, ErrorCode::unparsable},
      {0, std::nullopt},
      {2, std::nullopt},
      {-1, std::nullopt},
      {std::numeric_limits<std::int64_t>::max(), std::nullopt},
      {std::numeric_limits<std::int64_t>::min() + 1, std::nullopt},
  };
  for (const Row& row : rows) EXPECT_EQ(errorCodeFromRaw(row.raw), row.expected) << "raw " << row.raw;
}

// Neither form carries user information; the generic one as an observable emits no element.
TEST(ParsingErrors, TypedAndGenericForms) {
  EXPECT_EQ(typedParsingError("TracksDataController"), (Error{"TracksDataController", 1, {}}));
  EXPECT_EQ(genericParsingError(), (Error{"Unknown parsing error", 0, {}}));
  EXPECT_EQ(collect(ParsingErrorObservable::unknownParsingError<std::vector<Track>>()),
            Log{"error:Unknown parsing error/0"});
  EXPECT_EQ(collect(ParsingErrorObservable::unknownParsingError<Track>()), Log{"error:Unknown parsing error/0"});
}

}  // namespace
}  // namespace applogic::controllers_test
