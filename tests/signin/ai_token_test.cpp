#include "applogic/signin/client/ai_token.h"

#include <gtest/gtest.h>

#include <boost/json.hpp>
#include <string>
#include <vector>

#include "applogic/testing/manual_clock.h"

namespace applogic::signin {
namespace {

using std::chrono::seconds;

std::vector<std::uint8_t> bytes(std::string_view text) { return {text.begin(), text.end()}; }

class AITokenTest : public ::testing::Test {
 protected:
  testing::ManualClock clock_;
};

// Valid while its expiration date is after now: at that very instant it no longer is, for any
// request of scopes; without a token or an expiration date it never is.
TEST_F(AITokenTest, AccessTokenExpiringExactlyNowIsInvalid) {
  const AIAccessToken token("at", clock_.now() + seconds(1), clock_);
  const AIAccessToken scoped("at", {"profile"}, clock_.now() + seconds(1), clock_);
  EXPECT_TRUE(token.isValid(clock_));
  clock_.advance(std::chrono::nanoseconds(999'999'999));
  EXPECT_TRUE(token.isValid(clock_));
  EXPECT_TRUE(scoped.isValidForScopes({}, clock_));
  clock_.advance(std::chrono::nanoseconds(1));
  EXPECT_FALSE(token.isValid(clock_));
  EXPECT_FALSE(scoped.isValidForScopes({}, clock_));

  EXPECT_FALSE(AIAccessToken(std::nullopt, clock_.now() + seconds(60), clock_).isValid(clock_));
  EXPECT_FALSE(AIAccessToken("at", std::nullopt, clock_).isValid(clock_));
}

// A profile is trusted for one hour; a refresh token never expires.
TEST_F(AITokenTest, ProfileForAnHourRefreshTokenForever) {
  const AIProfileData profile(JsonObject{{"email", "a@b.c"}}, clock_);
  const AIRefreshToken refresh("rt", {"profile"}, clock_);
  clock_.advance(seconds(3599));
  EXPECT_TRUE(profile.isValid(clock_));
  clock_.advance(seconds(1));
  EXPECT_FALSE(profile.isValid(clock_));
  clock_.advance(seconds(100LL * 365 * 24 * 3600));
  EXPECT_TRUE(refresh.isValidForScopes({"profile"}, clock_));
  EXPECT_FALSE(AIRefreshToken(std::nullopt, clock_).isValid(clock_));
}

TEST(ValidForScopes, EveryRequestedScopeMustBeHeld) {
  const std::pair<std::vector<std::string>, bool> rows[] = {
      {{}, true}, {{"profile"}, true}, {{"postal_code", "profile"}, true}, {{"profile", "profile"}, true},
      {{"Profile"}, false}, {{"profile", "email"}, false}, {{""}, false}};
  testing::ManualClock clock;
  const AIAccessToken access("at", {"profile", "postal_code"}, clock.now() + seconds(60), clock);
  const AIRefreshToken refresh("rt", {"profile", "postal_code"}, clock);
  for (const auto& [requested, valid] : rows) {
    SCOPED_TRACE(::testing::PrintToString(requested));
    EXPECT_EQ(access.isValidForScopes(requested, clock), valid);
    EXPECT_EQ(refresh.isValidForScopes(requested, clock), valid);
  }
}

TEST_F(AITokenTest, EqualityComparesTokenTypeAndScopesInAnyOrder) {
  const auto in = clock_.now() + seconds(60);
  const AIAccessToken token("at", {"a", "b"}, in, clock_);
  EXPECT_TRUE(token.isEqual(AIAccessToken("at", {"b", "a"}, in + seconds(5), clock_)));
  EXPECT_FALSE(token.isEqual(AIAccessToken("at", {"a"}, in, clock_)));
  EXPECT_FALSE(token.isEqual(AIAccessToken("at", {"a", "c"}, in, clock_)));
  EXPECT_FALSE(token.isEqual(AIAccessToken("other", {"a", "b"}, in, clock_)));
  EXPECT_FALSE(token.isEqual(AIRefreshToken("at", {"a", "b"}, clock_)));
  EXPECT_FALSE(AICode("c", clock_).isEqual(AIToken("c", clock_)));
}

TEST_F(AITokenTest, EveryClassUnarchivesToItself) {
  const auto expiry = clock_.now() + seconds(3600) + std::chrono::milliseconds(250);
  const AIAccessToken access("at", {"profile", "x"}, expiry, clock_);
  const AIRefreshToken refresh("rt", {"profile"}, clock_);
  const AICode code("code", clock_);
  const AIToken plain("plain", clock_);
  // A long number: read back with the plain parser it would move by a unit in the last place.
  const AIProfileData profile(JsonObject{{"user_id", "amzn1.x"}, {"n", 3}, {"x", 1.7004444444444443e42}}, clock_);

  for (const AIToken* original : std::initializer_list<const AIToken*>{&access, &refresh, &code, &plain, &profile}) {
    SCOPED_TRACE(std::string(original->className()));
    const auto copy = AIToken::unarchiveFromNSData(original->getValue());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->className(), original->className());
    EXPECT_EQ(copy->getKey(), original->getKey());
    EXPECT_TRUE(copy->isEqual(*original));
    EXPECT_EQ(copy->getValue(), original->getValue()) << "archived again, the same bytes";
  }

  const auto accessCopy = AIToken::unarchiveFromNSData(access.getValue());
  const auto& restored = dynamic_cast<const AIAccessToken&>(*accessCopy);
  EXPECT_EQ(restored.expirationDate(), expiry);
  EXPECT_EQ(restored.localTimeStamp(), clock_.now());
  EXPECT_EQ(restored.scopes(), access.scopes());

  const auto profileCopy = AIToken::unarchiveFromNSData(profile.getValue());
  EXPECT_EQ(dynamic_cast<const AIProfileData&>(*profileCopy).profileData(), profile.profileData());
}

TEST(UnreadableArchive, GivesNoObject) {
  for (const char* archive :
       {"", "not json", "[]", R"("AIToken")", R"({"token":"t"})", R"({"$class":"NSString"})",
        R"({"$class":7})", R"({"$class":"AIToken","token":5})",
        R"({"$class":"AIToken","tokenType":"2"})", R"({"$class":"AIToken","tokenType":4294967296})",
        R"({"$class":"AIToken","localTimeStamp":"yesterday"})",
        R"({"$class":"AIAccessToken","expirationDate":1e300})",
        R"({"$class":"AIAccessToken","expirationDate":1e10})",
        R"({"$class":"AIToken","localTimeStamp":-1e10})",
        R"({"$class":"AIAccessToken","scopes":"profile"})", R"({"$class":"AIRefreshToken","scopes":[1]})",
        R"({"$class":"AIProfileData","profile":[]})", R"({"$class":"AIToken"} trailing)",
        // A number beyond a double reads as infinity, which no archive can be written back with.
        R"({"$class":"AIProfileData","profile":{"user_id":"u","seen":1e999}})"}) {
    EXPECT_EQ(AIToken::unarchiveFromNSData(bytes(archive)), nullptr) << archive;
  }
  // What still reads: the dates at the bound, and a missing or null list or profile.
  for (const char* archive : {R"({"$class":"AIAccessToken","expirationDate":9e9})", R"({"$class":"AIToken","localTimeStamp":-9e9})",
                              R"({"$class":"AIRefreshToken"})", R"({"$class":"AIRefreshToken","scopes":null})",
                              R"({"$class":"AIProfileData","profile":null})"}) {
    EXPECT_NE(AIToken::unarchiveFromNSData(bytes(archive)), nullptr) << archive;
  }
}

}  // namespace
}  // namespace applogic::signin
