#include "applogic/signin/amazon_login_service.h"

#include <gtest/gtest.h>

#include "signin/client_fixture.h"

namespace applogic::signin {
namespace {

using testing::HttpAnswer;
using test::kProfileUrl;
using test::kTokenUrl;
using test::tokenAnswer;

Error loginError(std::int64_t code, std::string message) {
  return Error{kAmazonLoginErrorDomain, code, {{"message", std::move(message)}}};
}

class AmazonLoginServiceTest : public ::testing::Test {
 protected:
  AmazonLoginServiceTest() : service_(AmazonLoginService::make(f_.lib())) {}

  // A refresh token, and an access token valid for `lifetime` (none when zero).
  void signedIn(std::chrono::seconds lifetime) {
    AIError error;
    f_.tokens().deleteAlldependentTokenFromStorageToType(kTokenTypeCode, error);
    f_.save(AIRefreshToken("rt.0", {"profile"}, *f_.clock));
    if (lifetime.count() != 0) f_.save(AIAccessToken("at.0", {"profile"}, f_.clock->now() + lifetime, *f_.clock));
  }
  void login(bool sandbox = false) {
    results_.clear();
    service_->login(sandbox, [this](Result<AmazonLoginInfo> result) { results_.push_back(std::move(result)); });
  }
  bool redirect(const std::string& query) {
    return f_.lib().handleOpenURL(f_.redirect(query + "&state=" + f_.shown()["state"]));
  }

  test::ClientFixture f_;
  std::shared_ptr<AmazonLoginService> service_;
  std::vector<Result<AmazonLoginInfo>> results_;
};

TEST_F(AmazonLoginServiceTest, SignsInThroughThePageWithTheSandboxFlag) {
  for (const bool sandbox : {true, false}) {
    service_->logOut();
    const std::string profileUrl = sandbox ? "https://api.sandbox.test/user/profile" : kProfileUrl;
    f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.1", "rt.1"))});
    f_.http->script("GET", profileUrl, {HttpAnswer::response(200, R"({"user_id":"u1","email":"e@x","name":"N"})")});
    login(sandbox);
    EXPECT_EQ(f_.shown().contains("sandbox"), sandbox);
    EXPECT_TRUE(redirect("code=ac.1"));
    f_.pump();
    ASSERT_EQ(results_.size(), 1u) << sandbox;
    ASSERT_TRUE(results_[0].ok()) << results_[0].error();
    EXPECT_EQ(results_[0].value(), (AmazonLoginInfo{"e@x", "u1", "at.1"}));
    EXPECT_TRUE(f_.http->requests().back().url.starts_with(profileUrl));
  }
  // A profile without its e-mail address or without its user id completes nothing.
  for (const char* profile : {R"({"user_id":"u1"})", R"({"email":"e@x"})"}) {
    signedIn(std::chrono::seconds(600));
    f_.http->script("GET", kProfileUrl, {HttpAnswer::response(200, profile)});
    login();
    f_.pump();
    EXPECT_TRUE(results_.empty()) << profile;
  }
}

TEST_F(AmazonLoginServiceTest, BothStepsFailingReportsTheErrorThatArrivedLast) {
  struct Row {
    std::chrono::seconds accessTokenLifetime;  // zero: no access token stored
    HttpAnswer refresh;
    HttpAnswer profile;
    Error expected;
  };
  const HttpAnswer unauthorized =
      HttpAnswer::response(400, R"({"error":"unauthorized_client","error_description":"Not this app"})");
  const Row rows[] = {
      // The profile has no access token to send and fails at once; the refresh fails later.
      {std::chrono::seconds(0), HttpAnswer::connectionFailure(), HttpAnswer::response(200, "{}"),
       loginError(kAINetworkError, "Connection refused")},
      // An expired access token: the refresh is sent first and answers first.
      {std::chrono::seconds(-1), unauthorized, HttpAnswer::connectionFailure("No route to host"),
       loginError(kAINetworkError, "No route to host")},
      {std::chrono::seconds(-1), HttpAnswer::connectionFailure(), unauthorized,
       loginError(kAIUnauthorizedClient, "Not this app")},
  };
  for (const Row& row : rows) {
    signedIn(row.accessTokenLifetime);
    f_.http->script("POST", kTokenUrl, {row.refresh});
    f_.http->script("GET", kProfileUrl, {row.profile});
    login();
    f_.pump();
    ASSERT_EQ(results_.size(), 1u);
    ASSERT_FALSE(results_[0].ok());
    EXPECT_EQ(results_[0].error(), row.expected);
  }
}

// The two-value shape: (token, e-mail, absent) or (absent, absent, error); the user id is not passed.
TEST_F(AmazonLoginServiceTest, LoginWithSandboxReportsTokenAndEmailOrTheError) {
  using Reported = std::tuple<std::optional<std::string>, std::optional<std::string>, std::optional<Error>>;
  std::vector<Reported> reported;
  const auto record = [&](auto token, auto email, auto error) { reported.emplace_back(token, email, error); };
  signedIn(std::chrono::seconds(600));
  f_.http->script("GET", kProfileUrl, {HttpAnswer::response(200, R"({"user_id":"u1","email":"e@x"})"),
                                       HttpAnswer::connectionFailure("No route to host")});
  service_->loginWithSandbox(false, record);
  f_.pump();
  f_.clock->advance(std::chrono::hours(2));  // the profile kept is stale: asked again, and fails
  signedIn(std::chrono::seconds(600));
  service_->loginWithSandbox(false, record);
  f_.pump();
  EXPECT_EQ(reported, (std::vector<Reported>{{"at.0", "e@x", std::nullopt},
                                             {std::nullopt, std::nullopt, loginError(kAINetworkError, "No route to host")}}));
}

TEST(AmazonLoginServiceAdapters, PassResultsOnOrStopOnImpossibleAnswers) {
  std::vector<std::string> calls;
  const auto failure = [&](std::optional<APIError> error) {
    calls.push_back(error ? "failure " + error->error().message() : "failure without error");
  };
  AmazonLoginServiceGetAccessTokenDelegate token([&](std::string t) { calls.push_back("token " + t); }, failure);
  AmazonLoginServiceGetProfileDelegate profile(
      [&](JsonObject p) { calls.push_back("profile " + std::to_string(p.size())); }, failure);
  token.requestDidSucceed(APIResult(kAPIGetAccessToken, "at"));
  token.requestDidSucceed(APIResult(kAPIGetAccessToken, 42));
  profile.requestDidSucceed(APIResult(kAPIGetProfile, JsonObject{{"a", 1}}));
  token.requestDidFail(APIError(kAPIGetAccessToken, AIError(kAINetworkError, "down")));
  EXPECT_EQ(calls, (std::vector<std::string>{"token at", "failure without error", "profile 1", "failure down"}));

  // Code 0 is no negative code.
  EXPECT_EQ(AmazonLoginService::convertErrorType(APIError(kAPIGetProfile, AIError(kAINoError, ""))),
            loginError(kAINoError, ""));
  EXPECT_DEATH(token.requestDidSucceed(APIResult(kAPIGetAccessToken, nullptr)), "no result");
  EXPECT_DEATH(profile.requestDidSucceed(APIResult(kAPIGetProfile, "text")), "no profile object");
  EXPECT_DEATH((void)AmazonLoginService::convertErrorType(APIError(kAPIGetProfile, AIError(-1, "x"))),
               "negative error code");
  test::ClientFixture withoutMainThread;
  withoutMainThread.platform.mainThread = nullptr;
  EXPECT_DEATH((void)AmazonLoginService::make(withoutMainThread.lib()), "has no MainThread");
}

}  // namespace
}  // namespace applogic::signin
