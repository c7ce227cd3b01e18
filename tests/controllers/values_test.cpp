// The plain values of the controllers: the error code's raw values, who a user hint and the
// signed-in check name, and the Giphy aspect filter at its exact float bounds.

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "applogic/controllers/controller_error.h"
#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

TEST(ErrorCode, OnlyRawValueOneIsACode) {
  EXPECT_EQ(errorCodeFromRaw(1), ErrorCode::unparsable);
  for (const std::int64_t raw : {std::int64_t{0}, std::int64_t{2}, std::int64_t{-1}}) {
    EXPECT_EQ(errorCodeFromRaw(raw), std::nullopt) << raw;
  }
}

TEST(UserHint, SameCaseAndCanonicallyEqualIds) {
  const UserHint a = UserHint::user("a"), me = UserHint::currentUser(), empty = UserHint::user("");
  EXPECT_TRUE(a == UserHint::user("a") && me == UserHint::currentUser());
  EXPECT_TRUE(UserHint::user("caf\xC3\xA9") == UserHint::user("cafe\xCC\x81"));
  EXPECT_FALSE(a == UserHint::user("b") || empty == me || me == empty);
}

TEST(IsCurrentUser, ComparesTheSignedInIdAsText) {
  const struct {
    std::optional<std::string> signedIn;
    const char* userID;
    bool expected;
  } rows[] = {{std::nullopt, "", false}, {"u-1", "u-1", true}, {"", "", true},  {"u-1", "U-1", false},
              {"u-1", "", false},        {"caf\xC3\xA9", "cafe\xCC\x81", true}};
  for (const auto& row : rows) {
    EXPECT_EQ(testing::ScriptedCurrentUserProvider(row.signedIn).isCurrentUser(row.userID), row.expected)
        << row.signedIn.value_or("nobody") << " vs \"" << row.userID << '"';
  }
}

TEST(GiphyAspectFilter, SquareUpTo7To3LandscapeWithBothBoundsIncluded) {
  const struct {
    const char* width;
    const char* height;
    const char* url;
    bool kept;
  } rows[] = {
      {"480", "480", "u", true}, {"480", "481", "u", false},  // 1:1, the lower bound, and just below
      {"700", "300", "u", true}, {"701", "300", "u", false},  // 7:3 in float, the upper bound, and above
      {"2333334", "1000000", "u", false},                     // above the float nearest 7/3
      {"1", "1", "u", true}, {"0", "300", "u", false}, {"480", "0", "u", false}, {"0", "0", "u", false},
      {"-480", "-300", "u", false}, {"480", "300", "", false}, {"nan", "300", "u", false}};
  for (const auto& row : rows) {
    const auto info = GiphyImageInfo::fromRaw(boost::json::object{{"width", row.width}, {"height", row.height}, {"url", row.url}});
    EXPECT_EQ(GiphyDataController::filterImageByAspectRatio("original", info), row.kept)
        << row.width << "x" << row.height << " " << row.url;
  }
}

}  // namespace
}  // namespace applogic::controllers_test
