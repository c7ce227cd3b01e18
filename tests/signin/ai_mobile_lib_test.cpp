#include "applogic/signin/client/ai_mobile_lib.h"

#include <gtest/gtest.h>

#include <mutex>

#include "applogic/support/log.h"
#include "applogic/testing/scripted_sign_in_presenter.h"
#include "signin/client_fixture.h"

namespace applogic::signin {
namespace {

using testing::HttpAnswer;
using testing::ScriptedSignInPresenter;
using test::ClientFixture;
using test::RecordingDelegate;
using test::tokenAnswer;
using Params = std::map<std::string, std::string>;

constexpr const char* kTokenUrl = "https://api.test/auth/o2/token";
constexpr const char* kProfileUrl = "https://api.test/user/profile";

class CollectingLog final : public LogSink {
 public:
  void write(std::string_view line) override {
    std::lock_guard lock(mutex_);
    lines.emplace_back(line);
  }
  std::vector<std::string> lines;

 private:
  std::mutex mutex_;
};

class MobileLibTest : public ::testing::Test {
 protected:
  MobileLibTest() {
    AIAuthPortalProxy::resetSharedInstance();
    f_.platform.signInPresenter = presenter_;
  }
  ~MobileLibTest() override { AIAuthPortalProxy::resetSharedInstance(); }

  AIMobileLib lib() const { return AIMobileLib(f_.platform, f_.configuration); }
  AITokenManager tokens() const { return lib().proxy()->services()->tokenManager(); }
  void store(const AIToken& token) { test::storeToken(tokens(), token); }
  std::unique_ptr<AIToken> stored(std::int32_t type) const { return test::storedToken(tokens(), type); }
  AIAccessToken accessToken(std::string token, std::chrono::seconds lifetime, std::vector<std::string> scopes = {"profile"}) {
    return AIAccessToken(std::move(token), std::move(scopes), f_.clock->now() + lifetime, *f_.clock);
  }
  void pump() { f_.mainThread->runPending(); }
  // The query of the address last shown.
  Params shownParameters() const {
    return presenter_->opened().empty() ? Params{} : AIUtils::getKeyValueDictionaryParseString(presenter_->opened().back().url);
  }
  std::string redirect(const std::string& query) const { return std::string(test::kRedirect) + "&" + query; }

  ClientFixture f_;
  std::shared_ptr<ScriptedSignInPresenter> presenter_ = std::make_shared<ScriptedSignInPresenter>();
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
};

TEST_F(MobileLibTest, ValidationsFailWithTheirCodeAndMessage) {
  struct Row {
    const char* name;
    std::function<void(const AIMobileLib&, const std::shared_ptr<RecordingDelegate>&)> call;
    std::uint32_t api;
    AIError expected;
  };
  const std::string delegateMessage(kAIMessageInvalidAuthenticationDelegate);
  const Row rows[] = {
      {"authorize, code asked without a challenge",
       [](const AIMobileLib& l, const auto& d) {
         l.authorizeUserForScopes({"profile"}, d, JsonObject{{"return_authorization_code", true}});
       },
       kAPIAuthorizeUser, AIError(kAIInvalidInput, std::string(kAIMessageMissingCodeChallenge))},
      {"access token without any token",
       [](const AIMobileLib& l, const auto& d) { l.getAccessTokenForScopes({"profile"}, {}, d); }, kAPIGetAccessToken,
       AIError(kAIApplicationNotAuthorized, std::string(kAIMessageApplicationNotAuthorized))},
  };
  for (const Row& row : rows) {
    auto delegate = std::make_shared<RecordingDelegate>();
    row.call(lib(), delegate);
    pump();
    ASSERT_EQ(delegate->failures.size(), 1u) << row.name;
    EXPECT_EQ(delegate->answers(), 1u) << row.name;
    EXPECT_EQ(delegate->failures[0].api(), row.api) << row.name;
    EXPECT_EQ(delegate->failures[0].error(), row.expected) << row.name;
  }
  EXPECT_TRUE(presenter_->opened().empty());
  EXPECT_TRUE(f_.http->requests().empty());

  // Without a delegate nothing is shown, sent or answered.
  lib().authorizeUserForScopes({"profile"}, nullptr);
  lib().getAccessTokenForScopes({"profile"}, {}, nullptr);
  pump();
  EXPECT_TRUE(presenter_->opened().empty());

  // An API key that does not verify.
  AIAuthPortalProxy::resetSharedInstance();
  AIAppIdentifier::resetSharedInstance();
  f_.bundle->set("APIKey", test::mint(R"({"ver":"3","bundleSeedId":"com.tunevo.app"})", test::otherKeys()));
  lib().authorizeUserForScopes({"profile"}, delegate_);
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->failures[0].error(), AIError(kAIInvalidInput, std::string(kAIMessageInvalidAPIKey)));
  EXPECT_FALSE(lib().getClientId());
  EXPECT_TRUE(presenter_->opened().empty());
}

TEST_F(MobileLibTest, HelperScopesAndRedirectErrors) {
  std::vector<std::string> requested{"profile:user_id", "profile"};
  AIMobileLibHelper::updateRequestedScopes(requested, {"postal_code", "profile", "profile:user_id", "x"});
  EXPECT_EQ(requested, (std::vector<std::string>{"profile:user_id", "profile", "postal_code", "x"}));

  AIError error;
  AIMobileLibHelper::checkForErrorsInRedirectURL({{"code", "c"}}, error);
  EXPECT_EQ(error, AIError());
  AIMobileLibHelper::checkForErrorsInRedirectURL({{"error", "ACCESS_DENIED"}, {"error_description", "No."}}, error);
  EXPECT_EQ(error, AIError(kAIAccessDenied, "No."));
}

TEST_F(MobileLibTest, StoredRefreshTokenAuthorisesAtOnceEvenWhenTheCodeIsAsked) {
  store(AIRefreshToken("rt", {"profile", "postal_code"}, *f_.clock));
  lib().authorizeUserForScopes({"profile"}, delegate_,
                               JsonObject{{"return_authorization_code", true}, {"code_challenge", "c"}});
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->successes[0].api(), kAPIAuthorizeUser);
  EXPECT_TRUE(delegate_->successes[0].result().is_null());
  EXPECT_TRUE(presenter_->opened().empty());
  EXPECT_TRUE(lib().proxy()->callContexts().empty());
}

TEST_F(MobileLibTest, NarrowerRequestSignsInForTheUnionAndDropsTheCachedProfile) {
  store(AIRefreshToken("rt", {"profile", "postal_code"}, *f_.clock));
  store(AIProfileData(JsonObject{{"user_id", "u"}}, *f_.clock));
  store(AICode("ac.OLD", *f_.clock));
  lib().authorizeUserForScopes({"profile:user_id", "profile"}, delegate_);
  const Params shown = shownParameters();
  EXPECT_EQ(shown.at("scope"), "profile:user_id profile postal_code");
  EXPECT_EQ(shown.at("state"), lib().proxy()->callContexts().at(0)->UID());
  EXPECT_EQ(shown.at("code_challenge"), *AISPOP::spop(f_.random, f_.platform.crypto)->spopChallenge());
  EXPECT_EQ(shown.at("code_challenge_method"), "S256");
  EXPECT_FALSE(stored(kTokenTypeProfileData));
  EXPECT_FALSE(stored(kTokenTypeCode));
  EXPECT_EQ(delegate_->answers(), 0u);
}

TEST_F(MobileLibTest, AuthorizeRedirectCodeExchangeTokenAndProfile) {
  lib().authorizeUserForScopes({"profile"}, delegate_);
  ASSERT_EQ(presenter_->opened().size(), 1u);
  EXPECT_EQ(presenter_->opened()[0].kind, ScriptedSignInPresenter::Kind::browser);
  const std::string state = shownParameters().at("state");

  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.1", "rt.1"))});
  EXPECT_TRUE(lib().handleOpenURL(redirect("code=ac.CODE&scope=profile&state=" + state + "&iss=x"), "browser"));
  pump();
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->answers(), 1u);
  EXPECT_EQ(delegate_->successes[0].api(), kAPIAuthorizeUser);
  const auto exchange = f_.http->requests().at(0);
  EXPECT_NE(exchange.body->find("code=ac.CODE"), std::string::npos);
  EXPECT_NE(exchange.body->find("code_verifier=" + *AISPOP::spop(f_.random, f_.platform.crypto)->spopKey()),
            std::string::npos);
  EXPECT_TRUE(lib().proxy()->callContexts().empty());
  EXPECT_TRUE(lib().proxy()->openIdRequestStates().empty());
  // The same redirect again belongs to nobody.
  EXPECT_FALSE(lib().handleOpenURL(redirect("code=ac.CODE&state=" + state)));

  auto token = std::make_shared<RecordingDelegate>();
  lib().getAccessTokenForScopes({"profile"}, {}, token);
  ASSERT_EQ(token->successes.size(), 1u);
  EXPECT_EQ(token->successes[0].resultString(), "at.1");

  f_.http->script("GET", kProfileUrl, {HttpAnswer::response(200, R"({"user_id":"u1","email":"e@x","name":"N"})")});
  auto profile = std::make_shared<RecordingDelegate>();
  lib().getProfile(profile);
  pump();
  ASSERT_EQ(profile->successes.size(), 1u);
  EXPECT_EQ(json::string(*profile->successes[0].resultObject(), "email"), "e@x");
  EXPECT_EQ(f_.http->requests().size(), 2u);
  // Now cached: answered without a request.
  lib().getProfile(profile);
  EXPECT_EQ(profile->successes.size(), 2u);
  EXPECT_EQ(f_.http->requests().size(), 2u);
  EXPECT_EQ(delegate_->answers(), 1u);
}

TEST_F(MobileLibTest, ReturnedCodeGoesToTheDelegateWithoutAnExchange) {
  lib().authorizeUserForScopes(
      {"profile"}, delegate_,
      JsonObject{{"return_authorization_code", true}, {"code_challenge", "APPCHALLENGE"}, {"code_challenge_method", "plain"}});
  const Params shown = shownParameters();
  EXPECT_EQ(shown.at("code_challenge"), "APPCHALLENGE");
  EXPECT_EQ(shown.at("code_challenge_method"), "plain");
  EXPECT_TRUE(lib().handleOpenURL(redirect("code=ac.MINE&state=" + shown.at("state"))));
  pump();
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->successes[0].api(), kAPIAuthorizationCode);
  EXPECT_EQ(delegate_->successes[0].resultString(), "ac.MINE");
  EXPECT_FALSE(stored(kTokenTypeCode));
  EXPECT_TRUE(f_.http->requests().empty());
  EXPECT_TRUE(lib().proxy()->callContexts().empty());
}

// Redirects that are not the sign-in's, or carry a state no call waits for, change nothing; an
// error with the waiting call's state fails that call.
TEST_F(MobileLibTest, ForeignRedirectsChangeNothingAndARedirectErrorFailsTheSignIn) {
  lib().authorizeUserForScopes({"profile"}, delegate_);
  const std::string state = shownParameters().at("state");
  EXPECT_FALSE(lib().handleOpenURL("amzn-com.tunevo.app://?code=c&state=" + state));
  EXPECT_FALSE(lib().handleOpenURL("amzn-com.tunevo.app://?methodName=signout&code=c&state=" + state));
  EXPECT_FALSE(lib().handleOpenURL(redirect("code=c&state=SOMEONE-ELSE")));
  EXPECT_FALSE(lib().handleOpenURL(redirect("code=c")));
  EXPECT_FALSE(lib().handleOpenURL(redirect("code=c&state=")));
  pump();
  EXPECT_EQ(lib().proxy()->callContexts().size(), 1u);
  EXPECT_EQ(lib().proxy()->openIdRequestStates().count(state), 1u);
  EXPECT_FALSE(stored(kTokenTypeCode));
  EXPECT_EQ(delegate_->answers(), 0u);

  EXPECT_FALSE(lib().handleOpenURL(redirect("error=access_denied&error_description=User%20said%20no&state=" + state)));
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->answers(), 1u);
  EXPECT_EQ(delegate_->failures[0].api(), kAPIAuthorizeUser);
  EXPECT_EQ(delegate_->failures[0].error(), AIError(kAIAccessDenied, "User said no"));
  EXPECT_TRUE(lib().proxy()->callContexts().empty());
  EXPECT_TRUE(f_.http->requests().empty());
}

TEST_F(MobileLibTest, CodeBesideAnErrorIsStoredButTheCallFailsWithTheError) {
  lib().authorizeUserForScopes({"profile"}, delegate_);
  const std::string state = shownParameters().at("state");
  EXPECT_TRUE(lib().handleOpenURL(redirect("code=ac.X&error=server_error&error_description=Busy&state=" + state)));
  pump();
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->answers(), 1u);
  EXPECT_EQ(delegate_->failures[0].error(), AIError(kAIServerError, "Busy"));
  EXPECT_EQ(stored(kTokenTypeCode)->token(), "ac.X");
  EXPECT_TRUE(f_.http->requests().empty());
}

TEST_F(MobileLibTest, CancellingTheInAppBrowserGivesCode3ToEveryWaitingCallLastFirst) {
  presenter_->setInAppBrowserAvailable(true);
  AIAuthPortalProxy::resetSharedInstance();  // the view modes are read when the coordinator is made
  auto order = std::make_shared<std::vector<std::string>>();
  auto first = std::make_shared<RecordingDelegate>("first", order);
  auto second = std::make_shared<RecordingDelegate>("second", order);
  lib().authorizeUserForScopes({"profile"}, first);
  lib().authorizeUserForScopes({"profile"}, second);
  ASSERT_EQ(presenter_->opened().back().kind, ScriptedSignInPresenter::Kind::inAppBrowser);
  ASSERT_EQ(lib().proxy()->callContexts().size(), 2u);

  presenter_->cancel();
  EXPECT_EQ(*order, (std::vector<std::string>{"second", "first"}));
  const AIError cancelled(kAIErrorUserInterrupted, std::string(kAIMessageUserInterupted));
  for (const auto& delegate : {first, second}) {
    ASSERT_EQ(delegate->failures.size(), 1u);
    EXPECT_EQ(delegate->failures[0].api(), kAPIAuthorizeUser);
    EXPECT_EQ(delegate->failures[0].error(), cancelled);
  }
  EXPECT_TRUE(lib().proxy()->callContexts().empty());
  EXPECT_TRUE(lib().proxy()->openIdRequestStates().empty());
  presenter_->cancel();
  pump();
  EXPECT_EQ(order->size(), 2u);
}

TEST_F(MobileLibTest, DelegateThatSignsInAgainFromItsCancelKeepsItsNewPage) {
  presenter_->setInAppBrowserAvailable(true);
  AIAuthPortalProxy::resetSharedInstance();
  auto again = std::make_shared<RecordingDelegate>();
  again->onAnswer = [&] {
    if (again->answers() == 1) lib().authorizeUserForScopes({"profile"}, again);
  };
  lib().authorizeUserForScopes({"profile"}, again);
  presenter_->cancel();
  EXPECT_EQ(again->answers(), 1u);
  EXPECT_TRUE(presenter_->showing());
  ASSERT_EQ(lib().proxy()->callContexts().size(), 1u);
  EXPECT_EQ(lib().proxy()->openIdRequestStates().size(), 1u);
}

TEST_F(MobileLibTest, VersionDeniedFallsBackToTheDefaultViewOnce) {
  presenter_->installApp("amazon-sso");
  lib().authorizeUserForScopes({"profile", "postal_code"}, delegate_);
  ASSERT_EQ(presenter_->opened().size(), 1u);
  EXPECT_EQ(presenter_->opened()[0].kind, ScriptedSignInPresenter::Kind::app);
  const std::string state = shownParameters().at("state");

  EXPECT_FALSE(lib().handleOpenURL(redirect("error=version_denied&state=" + state)));
  EXPECT_EQ(presenter_->opened().size(), 1u) << "the retry runs later on the main thread";
  pump();
  ASSERT_EQ(presenter_->opened().size(), 2u);
  EXPECT_EQ(presenter_->opened()[1].kind, ScriptedSignInPresenter::Kind::browser);
  const Params retry = shownParameters();
  EXPECT_FALSE(retry.contains("sso.version"));
  EXPECT_EQ(retry.at("scope"), "profile postal_code");
  EXPECT_NE(retry.at("state"), state);
  EXPECT_EQ(lib().proxy()->signInViewManager().SDKPriSignInViewMode(), kAISignInViewModeFirstPartyApp);
  EXPECT_EQ(delegate_->answers(), 0u);
  ASSERT_EQ(lib().proxy()->callContexts().size(), 1u) << "the first call is retired, the retry answers";

  // The retry's own answer reaches the delegate once.
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.1", "rt.1"))});
  EXPECT_TRUE(lib().handleOpenURL(redirect("code=ac.2&state=" + retry.at("state"))));
  pump();
  EXPECT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->answers(), 1u);
}

TEST_F(MobileLibTest, SignOutDeletesTheFourKindsAndTheSignInSiteCookies) {
  store(AICode("ac", *f_.clock));
  store(AIRefreshToken("rt", {"profile"}, *f_.clock));
  store(accessToken("at", std::chrono::seconds(60)));
  store(AIProfileData(JsonObject{{"user_id", "u"}}, *f_.clock));
  f_.http->addCookie({.name = "session", .value = "1", .domain = "amazon.com", .hostOnly = false, .secure = true});
  f_.http->addCookie({.name = "www", .value = "1", .domain = "www.amazon.com"});
  f_.http->addCookie({.name = "other", .value = "1", .domain = "other.example"});
  f_.http->addCookie({.name = "sibling", .value = "1", .domain = "api.amazon.com"});

  lib().clearAuthorizationState(delegate_);
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->successes[0].api(), kAPIClearAuthorizationState);
  EXPECT_TRUE(delegate_->successes[0].result().is_null());
  for (const std::int32_t type : {1, 2, 3, 4}) EXPECT_FALSE(stored(type)) << type;
  std::vector<std::string> left;
  for (const auto& cookie : f_.http->allCookies()) left.push_back(cookie.name);
  EXPECT_EQ(left, (std::vector<std::string>{"other", "sibling"}));

  // A store that fails: code 5, nothing more.
  f_.store->failWith(testing::InMemorySecureStore::Call::remove, -25308);
  auto failing = std::make_shared<RecordingDelegate>();
  lib().clearAuthorizationState(failing);
  ASSERT_EQ(failing->failures.size(), 1u);
  EXPECT_EQ(failing->failures[0].api(), kAPIClearAuthorizationState);
  EXPECT_EQ(failing->failures[0].error().code(), kAIDeviceError);
}

TEST_F(MobileLibTest, AccessTokenIsServedUntilItsExpirySecondThenRefreshed) {
  store(AIRefreshToken("rt", {"profile"}, *f_.clock));
  store(accessToken("at.VALID", std::chrono::seconds(10)));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.NEW", "rt.NEW"))});

  f_.clock->advance(std::chrono::seconds(9));
  lib().getAccessTokenForScopes({"profile"}, {}, delegate_);
  ASSERT_EQ(delegate_->successes.size(), 1u) << "answered at once";
  EXPECT_EQ(delegate_->successes[0].resultString(), "at.VALID");
  EXPECT_TRUE(f_.http->requests().empty());

  f_.clock->advance(std::chrono::seconds(1));
  lib().getAccessTokenForScopes({"profile"}, {}, delegate_);
  EXPECT_EQ(delegate_->answers(), 1u);
  pump();
  ASSERT_EQ(delegate_->successes.size(), 2u);
  EXPECT_EQ(delegate_->successes[1].resultString(), "at.NEW");
  EXPECT_EQ(f_.http->requests().size(), 1u);
}

TEST_F(MobileLibTest, ForceRefreshInAnyLetterCase) {
  struct Row {
    Json value;
    bool refreshes;
  };
  const Row rows[] = {{"YES", true}, {"yes", true}, {"yEs", true}, {"no", false}, {"true", false}, {true, false}, {"YES ", false}};
  for (const Row& row : rows) {
    store(AIRefreshToken("rt", {"profile"}, *f_.clock));
    store(accessToken("at.VALID", std::chrono::seconds(600)));
    f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.NEW", "rt.NEW"))});
    auto delegate = std::make_shared<RecordingDelegate>();
    lib().getAccessTokenForScopes({"profile"}, JsonObject{{"force_refresh", row.value}}, delegate);
    pump();
    ASSERT_EQ(delegate->successes.size(), 1u) << row.value;
    EXPECT_EQ(delegate->successes[0].resultString(), row.refreshes ? "at.NEW" : "at.VALID") << row.value;
  }
}

TEST_F(MobileLibTest, AccessTokenWithoutTheScopesRefreshesWithTheRefreshToken) {
  store(AIRefreshToken("rt", {"profile", "postal_code"}, *f_.clock));
  store(accessToken("at.NARROW", std::chrono::seconds(600), {"profile"}));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::connectionFailure("Connection refused")});
  lib().getAccessTokenForScopes({"postal_code"}, {}, delegate_);
  pump();
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->answers(), 1u);
  EXPECT_EQ(delegate_->failures[0].api(), kAPIGetAccessToken);
  EXPECT_EQ(delegate_->failures[0].error().code(), kAINetworkError);
}

TEST_F(MobileLibTest, ProfileWithoutDelegateGoesOnAndAnswersNobody) {
  f_.http->script("GET", kProfileUrl, {HttpAnswer::response(200, R"({"user_id":"u1"})")});
  store(accessToken("at", std::chrono::seconds(600)));
  lib().getProfile(nullptr);
  pump();
  EXPECT_EQ(f_.http->requests().size(), 1u);
  // The call's own error (no delegate, code 6) turns the answer into a failure: nothing is kept.
  EXPECT_FALSE(stored(kTokenTypeProfileData));
}

TEST_F(MobileLibTest, InternalModesAndTheirLogLines) {
  auto sink = std::make_shared<CollectingLog>();
  ScopedLogSink scoped(sink);
  AIMobileLibInternal internal(f_.platform, f_.configuration);
  internal.setPrimarySigninViewMode(kAISignInViewModeBrowser);
  internal.setDefaultSignInViewMode(kAISignInViewModeWebView);
  EXPECT_EQ(sink->lines, (std::vector<std::string>{"setPriSignInViewMode called.", "Mode is set to:2"}));
  EXPECT_EQ(lib().proxy()->signInViewManager().SDKPriSignInViewMode(), kAISignInViewModeBrowser);
  EXPECT_EQ(lib().proxy()->signInViewManager().SDKSignInViewMode(), kAISignInViewModeWebView);
  // The app id: none until a key is verified ("IBAAppAPIKey" is not set), then the key's.
  EXPECT_FALSE(internal.getAppId());
  EXPECT_EQ(lib().getClientId(), test::kClientId);
  EXPECT_EQ(internal.getAppId(), "amzn1.family");
  EXPECT_EQ(lib().getRedirectUri(), test::kRedirect);
  // Primary mode browser: the ordinary address, in the browser.
  lib().authorizeUserForScopes({"profile"}, delegate_);
  ASSERT_EQ(presenter_->opened().size(), 1u);
  EXPECT_FALSE(shownParameters().contains("sso.version"));
}

TEST_F(MobileLibTest, WebViewRedirectContinuesTheSignIn) {
  presenter_->setWebViewAvailable(true);
  AIMobileLibInternal internal(f_.platform, f_.configuration);
  internal.setDefaultSignInViewMode(kAISignInViewModeWebView);
  lib().authorizeUserForScopes({"profile"}, delegate_);
  ASSERT_EQ(presenter_->opened().back().kind, ScriptedSignInPresenter::Kind::webView);
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.1", "rt.1"))});
  EXPECT_TRUE(presenter_->navigateWebView(redirect("code=ac.W&state=" + shownParameters().at("state"))));
  EXPECT_FALSE(presenter_->showing());
  pump();
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->answers(), 1u);
}

TEST_F(MobileLibTest, BrowserThatCannotOpenFailsTheCallOnce) {
  presenter_->setBrowserOpens(false);
  lib().authorizeUserForScopes({"profile"}, delegate_);
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->failures[0].error(), AIError(kAIInvalidInput, std::string(kAIMessageInvalidSignInURL)));
  EXPECT_TRUE(lib().proxy()->callContexts().empty());
  EXPECT_TRUE(lib().proxy()->openIdRequestStates().empty());
}

TEST_F(MobileLibTest, TheCoordinatorIsMadeOnceForTheProcess) {
  EXPECT_EQ(AIMobileLib(f_.platform, ClientConfiguration{}).proxy(), lib().proxy());
}

}  // namespace
}  // namespace applogic::signin
