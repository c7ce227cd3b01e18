#include "applogic/signin/client/ai_mobile_lib.h"

#include <gtest/gtest.h>

#include "signin/client_fixture.h"

namespace applogic::signin {
namespace {

using testing::HttpAnswer;
using Kind = testing::ScriptedSignInPresenter::Kind;
using test::RecordingDelegate;
using test::kTokenUrl;
using test::tokenAnswer;

class MobileLibTest : public ::testing::Test {
 protected:
  AIMobileLib lib() const { return f_.lib(); }
  AIAccessToken accessToken(std::string token, std::chrono::seconds lifetime) const {
    return AIAccessToken(std::move(token), {"profile"}, f_.clock->now() + lifetime, *f_.clock);
  }
  std::shared_ptr<AISPOP> spop() const { return AISPOP::spop(f_.random, f_.platform.crypto); }

  test::ClientFixture f_;
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
};

TEST_F(MobileLibTest, NarrowerRequestSignsInForTheUnionWithStateAndChallenge) {
  f_.save(AIRefreshToken("rt", {"profile", "postal_code"}, *f_.clock));
  f_.save(AIProfileData(JsonObject{{"user_id", "u"}}, *f_.clock));
  f_.save(AICode("ac.OLD", *f_.clock));
  lib().authorizeUserForScopes({"profile:user_id", "profile"}, delegate_);
  const auto shown = f_.shown();
  EXPECT_EQ(shown.at("scope"), "profile:user_id profile postal_code");
  EXPECT_EQ(shown.at("state"), lib().proxy()->callContexts().at(0)->UID());
  EXPECT_EQ(shown.at("code_challenge"), *spop()->spopChallenge());
  EXPECT_EQ(shown.at("code_challenge_method"), "S256");
  // The page's address escapes its values as the exchanges do: the app id's escapes once more.
  EXPECT_NE(f_.presenter->opened().back().url.find("appIdentifier=eyJidW5kbGVJRCI6ImNvbS50dW5ldm8uYXBwIn0%253D&"), std::string::npos);
  EXPECT_FALSE(f_.stored(kTokenTypeProfileData));
  EXPECT_FALSE(f_.stored(kTokenTypeCode));
  EXPECT_EQ(delegate_->answers(), 0u);
}

TEST_F(MobileLibTest, RedirectExchangesTheCodeWithTheVerifierOnce) {
  lib().authorizeUserForScopes({"profile"}, delegate_);
  const std::string state = f_.shown().at("state");
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.1", "rt.1"))});
  EXPECT_TRUE(lib().handleOpenURL(f_.redirect("code=ac.CODE&scope=profile&state=" + state), "browser"));
  EXPECT_FALSE(lib().handleOpenURL(f_.redirect("code=ac.CODE&state=" + state))) << "the same redirect again";
  f_.pump();
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->answers(), 1u);
  const std::string body = f_.http->requests().at(0).body.value();
  EXPECT_NE(body.find("code=ac.CODE"), std::string::npos) << body;
  EXPECT_NE(body.find("code_verifier=" + *spop()->spopKey()), std::string::npos) << body;
  EXPECT_TRUE(lib().proxy()->openIdRequestStates().empty());
  auto token = std::make_shared<RecordingDelegate>();
  lib().getAccessTokenForScopes({"profile"}, {}, token);
  ASSERT_EQ(token->successes.size(), 1u);
  EXPECT_EQ(token->successes[0].resultString(), "at.1");
}

TEST_F(MobileLibTest, ReturnedCodeGoesToTheDelegateWithTheAppsChallenge) {
  lib().authorizeUserForScopes(
      {"profile"}, delegate_,
      JsonObject{{"return_authorization_code", true}, {"code_challenge", "APPCHALLENGE"}, {"code_challenge_method", "plain"}});
  const auto shown = f_.shown();
  EXPECT_EQ(shown.at("code_challenge"), "APPCHALLENGE");
  EXPECT_EQ(shown.at("code_challenge_method"), "plain");
  EXPECT_TRUE(lib().handleOpenURL(f_.redirect("code=ac.MINE&state=" + shown.at("state"))));
  f_.pump();
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->successes[0].api(), kAPIAuthorizationCode);
  EXPECT_EQ(delegate_->successes[0].resultString(), "ac.MINE");
  EXPECT_TRUE(f_.http->requests().empty());
  EXPECT_TRUE(lib().proxy()->callContexts().empty());
  // The next sign-in proves a verifier of its own: the app's challenge is not kept.
  lib().authorizeUserForScopes({"profile"}, std::make_shared<RecordingDelegate>());
  EXPECT_EQ(f_.shown().at("code_challenge"), *spop()->spopChallenge());
  EXPECT_EQ(f_.shown().at("code_challenge_method"), "S256");
}

// Redirects that are not the sign-in's, or carry a state no call waits for, change nothing; an
// error with the waiting call's state fails that call.
TEST_F(MobileLibTest, ForeignRedirectsChangeNothingAndARedirectErrorFailsTheSignIn) {
  lib().authorizeUserForScopes({"profile"}, delegate_);
  const std::string state = f_.shown().at("state");
  for (const std::string& url :
       {"amzn-com.tunevo.app://?code=c&state=" + state, "amzn-com.tunevo.app://?methodName=signout&code=c&state=" + state,
        f_.redirect("code=c&state=SOMEONE-ELSE"), f_.redirect("code=c"), f_.redirect("code=c&state=")}) {
    EXPECT_FALSE(lib().handleOpenURL(url)) << url;
  }
  f_.pump();
  EXPECT_EQ(lib().proxy()->openIdRequestStates().count(state), 1u);
  EXPECT_FALSE(f_.stored(kTokenTypeCode));
  EXPECT_EQ(delegate_->answers(), 0u);

  EXPECT_FALSE(lib().handleOpenURL(f_.redirect("error=access_denied&error_description=User%20said%20no&state=" + state)));
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->answers(), 1u);
  EXPECT_EQ(delegate_->failures[0].error(), AIError(kAIAccessDenied, "User said no"));
  EXPECT_TRUE(lib().proxy()->callContexts().empty());

  // Neither a code nor an error: an invalid answer.
  lib().authorizeUserForScopes({"profile"}, delegate_);
  EXPECT_FALSE(lib().handleOpenURL(f_.redirect("scope=profile&state=" + f_.shown().at("state"))));
  ASSERT_EQ(delegate_->failures.size(), 2u);
  EXPECT_EQ(delegate_->failures[1].error(), AIError(kAIServerError, "Received invalid response from the server."));
}

TEST_F(MobileLibTest, CancellingTheInAppBrowserGivesCode3ToEveryWaitingCallLastFirst) {
  f_.presenter->setInAppBrowserAvailable(true);
  AIAuthPortalProxy::resetSharedInstance();  // the view modes are read when the coordinator is made
  auto order = std::make_shared<std::vector<std::string>>();
  auto first = std::make_shared<RecordingDelegate>("first", order);
  auto second = std::make_shared<RecordingDelegate>("second", order);
  lib().authorizeUserForScopes({"profile"}, first);
  lib().authorizeUserForScopes({"profile"}, second);
  ASSERT_EQ(f_.presenter->opened().back().kind, Kind::inAppBrowser);
  f_.presenter->cancel();
  EXPECT_EQ(*order, (std::vector<std::string>{"second", "first"}));
  for (const auto& delegate : {first, second}) {
    ASSERT_EQ(delegate->failures.size(), 1u);
    EXPECT_EQ(delegate->failures[0].error(), AIError(kAIErrorUserInterrupted, std::string(kAIMessageUserInterupted)));
  }
  EXPECT_TRUE(lib().proxy()->openIdRequestStates().empty());

  // A delegate that signs in again from its cancel keeps its new page.
  auto again = std::make_shared<RecordingDelegate>();
  again->onAnswer = [&] {
    if (again->answers() == 1) lib().authorizeUserForScopes({"profile"}, again);
  };
  lib().authorizeUserForScopes({"profile"}, again);
  f_.presenter->cancel();
  EXPECT_EQ(again->answers(), 1u);
  EXPECT_TRUE(f_.presenter->showing());
  EXPECT_EQ(lib().proxy()->callContexts().size(), 1u);
  // A redirect with an error ends that sign-in and closes its page.
  EXPECT_FALSE(lib().handleOpenURL(f_.redirect("error=access_denied&state=" + f_.shown().at("state"))));
  EXPECT_FALSE(f_.presenter->showing());
}

TEST_F(MobileLibTest, VersionDeniedFallsBackToTheDefaultViewOnce) {
  f_.presenter->installApp("amazon-sso");
  lib().authorizeUserForScopes({"profile", "postal_code"}, delegate_);
  EXPECT_EQ(f_.presenter->opened().at(0).kind, Kind::app);
  const std::string state = f_.shown().at("state");
  EXPECT_FALSE(lib().handleOpenURL(f_.redirect("error=version_denied&state=" + state)));
  f_.pump();
  ASSERT_EQ(f_.presenter->opened().size(), 2u);
  EXPECT_EQ(f_.presenter->opened()[1].kind, Kind::browser);
  const auto retry = f_.shown();
  EXPECT_FALSE(retry.contains("sso.version"));
  EXPECT_NE(retry.at("state"), state);
  EXPECT_EQ(delegate_->answers(), 0u);
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.1", "rt.1"))});
  EXPECT_TRUE(lib().handleOpenURL(f_.redirect("code=ac.2&state=" + retry.at("state"))));
  f_.pump();
  EXPECT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->answers(), 1u);
}

// Calls answered at once, without the server: a code asked for without the app's challenge, an
// access token while signed out, and a profile fetched within the hour.
TEST_F(MobileLibTest, CallsThatNeedNoServerAnswerAtOnce) {
  const JsonObject codeWithoutChallenge{{"return_authorization_code", true}};
  const AIError missingChallenge(kAIInvalidInput, std::string(kAIMessageMissingCodeChallenge));
  const std::pair<std::function<void(std::shared_ptr<RecordingDelegate>)>, AIError> failing[] = {
      {[&](auto d) { lib().authorizeUserForScopes({"profile"}, d, codeWithoutChallenge); }, missingChallenge},
      {[&](auto d) { lib().getProfile(d, codeWithoutChallenge); }, missingChallenge},
      {[&](auto d) { lib().getAccessTokenForScopes({"profile"}, {}, d); },
       AIError(kAIApplicationNotAuthorized, std::string(kAIMessageApplicationNotAuthorized))},
      // No randomness, so no state to name the sign-in: no page is shown.
      {[&](auto d) { f_.random->setFailing(true), lib().authorizeUserForScopes({"profile"}, d), f_.random->setFailing(false); },
       AIError(kAIInternalError, std::string(kAIMessageInternalErrorGeneral))}};
  for (const auto& [call, error] : failing) {
    auto delegate = std::make_shared<RecordingDelegate>();
    call(delegate);
    ASSERT_EQ(delegate->failures.size(), 1u);
    EXPECT_EQ(delegate->failures[0].error(), error);
  }
  EXPECT_TRUE(f_.presenter->opened().empty());
  f_.save(AIProfileData(JsonObject{{"user_id", "u1"}}, *f_.clock));
  lib().getProfile(delegate_);
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(json::string(*delegate_->successes[0].resultObject(), "user_id"), "u1");
  EXPECT_TRUE(f_.http->requests().empty());
}

// Without a delegate the profile is still fetched, but the call's own error (code 6) keeps it
// from being stored.
TEST_F(MobileLibTest, ProfileWithoutDelegateIsNotKept) {
  f_.http->script("GET", test::kProfileUrl, {HttpAnswer::response(200, R"({"user_id":"u1"})")});
  f_.save(accessToken("at", std::chrono::seconds(600)));
  lib().getProfile(nullptr);
  f_.pump();
  EXPECT_EQ(f_.http->requests().size(), 1u);
  EXPECT_FALSE(f_.stored(kTokenTypeProfileData));
}

// Each refused profile call is refreshed once and asked again; refused again, or with a refresh
// that fails, it ends, and the next refusal is refreshed again.
TEST_F(MobileLibTest, EachRefusedProfileCallIsRefreshedOnceWhateverBefore) {
  f_.save(AIRefreshToken("rt", {"profile"}, *f_.clock));
  const HttpAnswer refused = HttpAnswer::response(401, R"({"error":"invalid_token"})");
  for (const auto& [refreshes, again] : std::initializer_list<std::pair<bool, int>>{
           {true, 200}, {true, 401}, {true, 200}, {false, 200}, {true, 200}}) {
    f_.save(accessToken("at", std::chrono::seconds(600)));
    f_.http->script("GET", test::kProfileUrl, {refused, again == 200 ? HttpAnswer::response(200, R"({"user_id":"u1"})") : refused});
    f_.http->script("POST", kTokenUrl, {refreshes ? HttpAnswer::response(200, tokenAnswer("at.new", "rt"))
                                                  : HttpAnswer::connectionFailure()});
    const auto sent = f_.http->requests().size();
    auto delegate = std::make_shared<RecordingDelegate>();
    lib().getProfile(delegate);
    f_.pump();
    EXPECT_EQ(delegate->answers(), 1u);
    EXPECT_EQ(delegate->successes.size(), refreshes && again == 200 ? 1u : 0u);
    EXPECT_EQ(f_.http->requests().size() - sent, refreshes ? 3u : 2u) << "one refresh at most";
    f_.clock->advance(std::chrono::hours(2));  // the profile kept is stale again
  }
}

// A profile refused for want of the profile scope takes that scope from the refresh token, so the
// next sign-in asks for it again; any other refusal keeps the scopes.
TEST_F(MobileLibTest, AProfileRefusedForWantOfTheProfileScopeTakesItFromTheRefreshToken) {
  const std::vector<std::string> kept{"profile", "postal_code"}, taken{"postal_code"};
  const std::tuple<const char*, const char*, std::vector<std::string>> rows[] = {
      {"insufficient_scope", "Insufficient scope: scope required profile.", taken},
      {"INSUFFICIENT_SCOPE", "SCOPE REQUIRED PROFILE", taken},
      {"insufficient_scope", "Insufficient scope.", kept},
      {"invalid_request", "scope required profile", kept}};
  for (const auto& [code, description, scopes] : rows) {
    f_.save(AIRefreshToken("rt", kept, *f_.clock));
    f_.save(accessToken("at", std::chrono::seconds(600)));
    f_.http->script("GET", test::kProfileUrl, {HttpAnswer::response(403, std::string(R"({"error":")") + code +
                                                                             R"(","error_description":")" + description + R"("})")});
    auto delegate = std::make_shared<RecordingDelegate>();
    lib().getProfile(delegate);
    f_.pump();
    EXPECT_EQ(delegate->failures.size(), 1u) << description;
    EXPECT_EQ(static_cast<AIRefreshToken&>(*f_.stored(kTokenTypeRefreshToken)).scopes(), scopes) << code << " " << description;
  }
}

TEST_F(MobileLibTest, AccessTokenIsServedUntilItsExpirySecondThenRefreshed) {
  f_.save(AIRefreshToken("rt", {"profile"}, *f_.clock));
  f_.save(accessToken("at.VALID", std::chrono::seconds(10)));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.NEW", "rt.NEW"))});
  f_.clock->advance(std::chrono::seconds(9));
  lib().getAccessTokenForScopes({"profile"}, {}, delegate_);
  ASSERT_EQ(delegate_->successes.size(), 1u) << "answered at once";
  EXPECT_EQ(delegate_->successes[0].resultString(), "at.VALID");
  f_.clock->advance(std::chrono::seconds(1));
  lib().getAccessTokenForScopes({"profile"}, {}, delegate_);
  EXPECT_EQ(delegate_->answers(), 1u);
  f_.pump();
  ASSERT_EQ(delegate_->successes.size(), 2u);
  EXPECT_EQ(delegate_->successes[1].resultString(), "at.NEW");
  EXPECT_EQ(f_.http->requests().size(), 1u);
}

}  // namespace
}  // namespace applogic::signin
