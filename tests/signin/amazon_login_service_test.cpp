#include "applogic/signin/amazon_login_service.h"

#include <gtest/gtest.h>

#include "applogic/testing/scripted_sign_in_presenter.h"
#include "signin/client_fixture.h"

namespace applogic::signin {
namespace {

using testing::HttpAnswer;
using testing::ScriptedSignInPresenter;
using Params = std::map<std::string, std::string>;
using test::tokenAnswer;

constexpr const char* kTokenUrl = "https://api.test/auth/o2/token";
constexpr const char* kProfileUrl = "https://api.test/user/profile";
constexpr const char* kSandboxProfileUrl = "https://api.sandbox.test/user/profile";

Error loginError(std::int64_t code, std::string message) {
  return Error{kAmazonLoginErrorDomain, code, {{"message", std::move(message)}}};
}

class AmazonLoginServiceTest : public ::testing::Test {
 protected:
  AmazonLoginServiceTest() {
    AIAuthPortalProxy::resetSharedInstance();
    f_.platform.signInPresenter = presenter_;
    service_ = AmazonLoginService::make(lib());
  }
  ~AmazonLoginServiceTest() override { AIAuthPortalProxy::resetSharedInstance(); }

  AIMobileLib lib() const { return AIMobileLib(f_.platform, f_.configuration); }
  void store(const AIToken& token) { test::storeToken(lib().proxy()->services()->tokenManager(), token); }
  // Deletes the four stored kinds.
  void wipe() {
    AIError error;
    lib().proxy()->services()->tokenManager().deleteAlldependentTokenFromStorageToType(kTokenTypeCode, error);
  }
  // A refresh token, and an access token valid for `lifetime` (none when zero).
  void signedIn(std::chrono::seconds lifetime = std::chrono::seconds(600)) {
    store(AIRefreshToken("rt.0", {"profile"}, *f_.clock));
    if (lifetime.count() != 0) {
      store(AIAccessToken("at.0", {"profile"}, f_.clock->now() + lifetime, *f_.clock));
    }
  }
  void login(bool sandbox = false) {
    service_->login(sandbox, [this](Result<AmazonLoginInfo> result) { results_.push_back(std::move(result)); });
  }
  void pump() { f_.mainThread->runPending(); }
  Params shown() const {
    return presenter_->opened().empty() ? Params{}
                                        : AIUtils::getKeyValueDictionaryParseString(presenter_->opened().back().url);
  }
  // The app's URL scheme is opened with `query` for the sign-in page shown last.
  bool redirect(const std::string& query) {
    return lib().handleOpenURL(std::string(test::kRedirect) + "&" + query + "&state=" + shown()["state"]);
  }

  test::ClientFixture f_;
  std::shared_ptr<ScriptedSignInPresenter> presenter_ = std::make_shared<ScriptedSignInPresenter>();
  std::shared_ptr<AmazonLoginService> service_;
  std::vector<Result<AmazonLoginInfo>> results_;
};

TEST_F(AmazonLoginServiceTest, SignsInThroughThePageWithTheSandboxFlagAsYesOrNo) {
  struct Row {
    bool sandbox;
    const char* profileUrl;
  };
  for (const Row& row : {Row{true, kSandboxProfileUrl}, Row{false, kProfileUrl}}) {
    wipe();
    results_.clear();
    f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.1", "rt.1"))});
    f_.http->script("GET", row.profileUrl,
                    {HttpAnswer::response(200, R"({"user_id":"u1","email":"e@x","name":"N"})")});
    const std::size_t requestsBefore = f_.http->requests().size();

    login(row.sandbox);
    const Params page = shown();
    EXPECT_EQ(page.contains("sandbox"), row.sandbox) << row.sandbox;  // "YES" reads as true, "NO" as false
    EXPECT_TRUE(redirect("code=ac.1"));
    pump();

    ASSERT_EQ(results_.size(), 1u) << row.sandbox;
    ASSERT_TRUE(results_[0].ok()) << results_[0].error();
    EXPECT_EQ(results_[0].value(), (AmazonLoginInfo{"e@x", "u1", "at.1"}));
    const auto requests = f_.http->requests();
    ASSERT_EQ(requests.size(), requestsBefore + 2);
    EXPECT_EQ(requests.back().url.substr(0, requests.back().url.find('?')), row.profileUrl);
  }
}

TEST_F(AmazonLoginServiceTest, ProfileNeedsStringEmailAndUserIdOrNothingIsReported) {
  struct Row {
    const char* profile;
    std::optional<AmazonLoginInfo> expected;
  };
  const Row rows[] = {
      {R"({"name":"N","user_id":"u1","postal_code":"1","email":"e@x"})", AmazonLoginInfo{"e@x", "u1", "at.0"}},
      {R"({"user_id":42,"email":"e@x"})", std::nullopt},
      {R"({"user_id":"u1"})", std::nullopt},
      {R"({"email":"e@x","user_id":null})", std::nullopt},
      {R"({})", std::nullopt},
  };
  for (const Row& row : rows) {
    wipe();
    results_.clear();
    signedIn();
    f_.http->script("GET", kProfileUrl, {HttpAnswer::response(200, row.profile)});
    login();
    pump();
    if (row.expected) {
      ASSERT_EQ(results_.size(), 1u) << row.profile;
      ASSERT_TRUE(results_[0].ok()) << row.profile;
      EXPECT_EQ(results_[0].value(), *row.expected) << row.profile;
    } else {
      EXPECT_TRUE(results_.empty()) << row.profile;
    }
  }
}

TEST_F(AmazonLoginServiceTest, BothStepsFailingReportsTheErrorThatArrivedLast) {
  struct Row {
    const char* name;
    std::chrono::seconds accessTokenLifetime;  // zero: no access token stored
    HttpAnswer refresh;
    HttpAnswer profile;
    Error expected;
  };
  const Row rows[] = {
      // The profile has no access token to send and fails at once; the refresh fails later.
      {"profile first", std::chrono::seconds(0), HttpAnswer::connectionFailure(), HttpAnswer::response(200, "{}"),
       loginError(kAINetworkError, "Connection refused")},
      // An expired access token: the refresh is sent first and answers first.
      {"token first", std::chrono::seconds(-1),
       HttpAnswer::response(400, R"({"error":"unauthorized_client","error_description":"Not this app"})"),
       HttpAnswer::connectionFailure("No route to host"), loginError(kAINetworkError, "No route to host")},
      {"token first, other codes", std::chrono::seconds(-1), HttpAnswer::connectionFailure(),
       HttpAnswer::response(400, R"({"error":"unauthorized_client","error_description":"Not this app"})"),
       loginError(kAIUnauthorizedClient, "Not this app")},
  };
  for (const Row& row : rows) {
    wipe();
    results_.clear();
    store(AIRefreshToken("rt.0", {"profile"}, *f_.clock));
    if (row.accessTokenLifetime.count() != 0) {
      store(AIAccessToken("at.0", {"profile"}, f_.clock->now() + row.accessTokenLifetime, *f_.clock));
    }
    f_.http->script("POST", kTokenUrl, {row.refresh});
    f_.http->script("GET", kProfileUrl, {row.profile});
    login();
    pump();
    ASSERT_EQ(results_.size(), 1u) << row.name;
    ASSERT_FALSE(results_[0].ok()) << row.name;
    EXPECT_EQ(results_[0].error(), row.expected) << row.name;
  }
}

TEST_F(AmazonLoginServiceTest, ReleasingTheServiceDuringTheSignInReportsNothing) {
  for (const char* answer : {"code=ac.1", "error=access_denied&error_description=No"}) {
    wipe();
    results_.clear();
    service_ = AmazonLoginService::make(lib());
    f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.1", "rt.1"))});
    f_.http->script("GET", kProfileUrl, {HttpAnswer::response(200, R"({"user_id":"u1","email":"e@x"})")});
    const std::size_t requestsBefore = f_.http->requests().size();
    login();
    service_.reset();
    redirect(answer);
    pump();
    EXPECT_TRUE(results_.empty()) << answer;
    // The steps after the sign-in are skipped: no profile is asked for.
    for (std::size_t i = requestsBefore; i < f_.http->requests().size(); ++i) {
      EXPECT_EQ(f_.http->requests()[i].url.find(kProfileUrl), std::string::npos) << answer;
    }
  }
}

TEST_F(AmazonLoginServiceTest, LoginWithSandboxPassesTokenAndEmailOrTheError) {
  struct Seen {
    std::optional<std::string> token, email;
    std::optional<Error> error;
  };
  std::vector<Seen> seen;
  const auto record = [&](std::optional<std::string> token, std::optional<std::string> email,
                          std::optional<Error> error) { seen.push_back({token, email, error}); };

  signedIn();
  f_.http->script("GET", kProfileUrl, {HttpAnswer::response(200, R"({"user_id":"u1","email":"e@x"})")});
  service_->loginWithSandbox(false, record);
  pump();
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].token, "at.0");
  EXPECT_EQ(seen[0].email, "e@x");
  EXPECT_FALSE(seen[0].error);

  // Signed out: the sign-in page is shown again, and the user refuses.
  service_->logOut();
  EXPECT_TRUE(f_.store->items().empty());
  service_->loginWithSandbox(false, record);
  EXPECT_FALSE(redirect("error=access_denied&error_description=User%20said%20no"));
  pump();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_FALSE(seen[1].token);
  EXPECT_FALSE(seen[1].email);
  EXPECT_EQ(seen[1].error, loginError(kAIAccessDenied, "User said no"));
}

TEST(AmazonLoginServiceAdapters, PassResultsOnOrStopOnImpossibleAnswers) {
  std::vector<std::string> calls;
  const auto failure = [&](std::optional<APIError> error) {
    calls.push_back(error ? "failure " + error->error().message() : "failure without error");
  };
  AmazonLoginServiceAuthDelegate auth([&] { calls.push_back("authorized"); }, failure);
  AmazonLoginServiceGetAccessTokenDelegate token([&](std::string t) { calls.push_back("token " + t); }, failure);
  AmazonLoginServiceGetProfileDelegate profile(
      [&](JsonObject p) { calls.push_back("profile " + std::to_string(p.size())); }, failure);

  auth.requestDidSucceed(APIResult(kAPIAuthorizeUser, "ignored"));
  token.requestDidSucceed(APIResult(kAPIGetAccessToken, "at"));
  token.requestDidSucceed(APIResult(kAPIGetAccessToken, 42));
  profile.requestDidSucceed(APIResult(kAPIGetProfile, JsonObject{{"a", 1}}));
  token.requestDidFail(APIError(kAPIGetAccessToken, AIError(kAINetworkError, "down")));
  EXPECT_EQ(calls, (std::vector<std::string>{"authorized", "token at", "failure without error", "profile 1",
                                             "failure down"}));

  EXPECT_EQ(AmazonLoginService::convertErrorType(APIError(kAPIGetProfile, AIError(kAIServerError, ""))),
            loginError(kAIServerError, ""));
  EXPECT_DEATH(token.requestDidSucceed(APIResult(kAPIGetAccessToken, nullptr)), "no result");
  EXPECT_DEATH(profile.requestDidSucceed(APIResult(kAPIGetProfile, nullptr)), "no profile object");
  EXPECT_DEATH(profile.requestDidSucceed(APIResult(kAPIGetProfile, "text")), "no profile object");
  EXPECT_DEATH((void)AmazonLoginService::convertErrorType(APIError(kAPIGetProfile, AIError(-1, "x"))),
               "negative error code");
}

}  // namespace
}  // namespace applogic::signin
