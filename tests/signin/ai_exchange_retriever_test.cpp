#include "applogic/signin/client/ai_exchange_retriever.h"

#include <gtest/gtest.h>

#include "signin/client_fixture.h"

namespace applogic::signin {
namespace {

using testing::HttpAnswer;
using test::ClientFixture;
using test::RecordingDelegate;
using test::kProfileUrl;
using test::kTokenUrl;
using test::tokenAnswer;

HttpAnswer error(int status, const std::string& code, const std::string& description) {
  return HttpAnswer::response(status, R"({"error":")" + code + R"(","error_description":")" + description + R"("})");
}

class ExchangeTest : public ::testing::Test {
 protected:
  ExchangeTest()
      : services_(f_.services()),
        refresher_(std::make_shared<AIAccessTokenRetriever>(services_)),
        profiler_(std::make_shared<AIProfileExchangerRetriever>(services_, refresher_)),
        codeExchanger_(std::make_shared<AICodeExchangeRetriever>(
            services_, AISignInHooks{[this] { hookCalls_.push_back("remove view@" + std::to_string(delegate_->answers())); },
                                     [this] { hookCalls_.push_back("clear states@" + std::to_string(delegate_->answers())); }})) {}

  std::shared_ptr<AICallContext> context(AICallMethod method, std::shared_ptr<RecordingDelegate> delegate = nullptr) {
    return ClientFixture::context(method, {"profile", "postal_code"}, {}, delegate ? delegate : delegate_);
  }
  void store(const AIToken& token) { test::storeToken(services_->tokenManager(), token); }
  std::unique_ptr<AIToken> stored(std::int32_t type) const { return test::storedToken(services_->tokenManager(), type); }
  void storeAll() {
    store(AICode("ac.CODE", *f_.clock));
    store(AIRefreshToken("rt.OLD", {"profile", "postal_code"}, *f_.clock));
    store(AIAccessToken("at.OLD", {"profile"}, f_.clock->now() + std::chrono::seconds(10), *f_.clock));
    store(AIProfileData(JsonObject{{"user_id", "u"}}, *f_.clock));
  }
  std::size_t storedKinds() const { return f_.store->items().size(); }

  ClientFixture f_;
  std::shared_ptr<const AIClientServices> services_;
  std::shared_ptr<AIAccessTokenRetriever> refresher_;
  std::shared_ptr<AIProfileExchangerRetriever> profiler_;
  std::vector<std::string> hookCalls_;
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
  std::shared_ptr<AICodeExchangeRetriever> codeExchanger_;
};

TEST(NextExchangeStepTest, RetryThenInvalidTokenThenReport) {
  using S = AIExchangeStep;
  const std::tuple<int, bool, std::optional<std::string>, int, S> rows[] = {
      {500, true, std::nullopt, 2, S::retry},       // an unreadable 500 page
      {500, true, "server_error", 3, S::report},    // the fourth answer is reported
      {500, false, std::nullopt, 0, S::report},     // a usable answer, whatever its status
      {503, true, "server_error", 0, S::report},
      {400, true, "INVALID_GRANT", 0, S::invalidToken},
      {500, true, "invalid_grant", 2, S::retry},    // a 500 is retried before it is read
      {500, true, "invalid_grant", 3, S::invalidToken},
      {401, true, "invalid_token", 0, S::report},   // another exchange's word
  };
  for (const auto& [status, hasError, code, retries, expected] : rows) {
    EXPECT_EQ(nextExchangeStep(status, hasError, code, retries, "INVALID_GRANT"), expected) << status << " " << retries;
  }
}

TEST_F(ExchangeTest, RefreshSavesTheTokensItGetsAndAnswersTheAccessToken) {
  store(AIRefreshToken("rt.OLD", {"profile", "postal_code"}, *f_.clock));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.NEW", "rt.NEW", "profile postal_code"))});
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  f_.pump();
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->successes[0].resultString(), "at.NEW");
  const auto access = stored(kTokenTypeAccessToken);
  EXPECT_TRUE(access->isEqual(AIAccessToken("at.NEW", {"profile", "postal_code"}, std::nullopt, *f_.clock)));
  EXPECT_EQ(static_cast<AIAccessToken&>(*access).expirationDate(), f_.clock->now() + std::chrono::seconds(3600));
  EXPECT_TRUE(stored(kTokenTypeRefreshToken)->isEqual(AIRefreshToken("rt.NEW", {"profile", "postal_code"}, *f_.clock)));

  // An answer without a refresh token keeps the stored one, and still succeeds.
  f_.http->script("POST", kTokenUrl,
                  {HttpAnswer::response(200, R"({"access_token":"at.NEWER","expires_in":60,"scope":"profile"})")});
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  f_.pump();
  ASSERT_EQ(delegate_->successes.size(), 2u);
  EXPECT_EQ(stored(kTokenTypeRefreshToken)->token(), "rt.NEW");
  EXPECT_EQ(stored(kTokenTypeAccessToken)->token(), "at.NEWER");
}

TEST_F(ExchangeTest, InvalidGrantOnARefreshWipesEveryStoredKindAndFailsEveryCaller) {
  storeAll();
  f_.http->script("POST", kTokenUrl, {HttpAnswer::held()});
  auto second = std::make_shared<RecordingDelegate>();
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  refresher_->getAccessToken(context(AICallMethod::getAccessToken, second));
  f_.http->answerHeld(error(400, "invalid_grant", "The refresh token is revoked."));
  f_.pump();
  EXPECT_EQ(f_.http->requests().size(), 1u) << "callers during a refresh share it";
  EXPECT_EQ(storedKinds(), 0u);
  for (const auto& d : {delegate_, second}) {
    ASSERT_EQ(d->failures.size(), 1u);
    EXPECT_EQ(d->failures[0].error(), AIError(kAIApplicationNotAuthorized, "The refresh token is revoked."));
  }
}

TEST_F(ExchangeTest, CodeExchangeSavesTokensWithTheCallScopesOrWipesEverythingWhenRefused) {
  store(AICode("ac.CODE", *f_.clock));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.NEW", "rt.NEW", "other"))});
  EXPECT_TRUE(codeExchanger_->getRefreshTokenForAuthCode(context(AICallMethod::authorizeUser)));
  f_.pump();
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_TRUE(stored(kTokenTypeRefreshToken)->isEqual(AIRefreshToken("rt.NEW", {"profile", "postal_code"}, *f_.clock)));
  EXPECT_TRUE(stored(kTokenTypeAccessToken)
                  ->isEqual(AIAccessToken("at.NEW", {"profile", "postal_code"}, std::nullopt, *f_.clock)));
  EXPECT_EQ(hookCalls_, std::vector<std::string>{"clear states@0"});

  storeAll();
  f_.http->script("POST", kTokenUrl, {error(400, "INVALID_GRANT", "Code spent.")});
  ASSERT_TRUE(codeExchanger_->getRefreshTokenForAuthCode(context(AICallMethod::authorizeUser)));
  f_.pump();
  EXPECT_EQ(storedKinds(), 0u);
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->failures[0].error(), AIError(kAIApplicationNotAuthorized, "Code spent."));
  EXPECT_EQ(hookCalls_, (std::vector<std::string>{"clear states@0", "remove view@1", "clear states@1"}));
}

TEST_F(ExchangeTest, NothingToSendIsLeftToTheCallerToAnswer) {
  // No refresh token: code 1, answered once by the operation.
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->failures[0].error(), AIError(kAIApplicationNotAuthorized, "The refresh token is invalid, expired or revoked."));

  // No HTTP client: code 7, answered once.
  f_.platform.httpClient = nullptr;
  const auto retriever = std::make_shared<AIAccessTokenRetriever>(f_.services());
  store(AIRefreshToken("rt", {"profile"}, *f_.clock));
  retriever->getAccessToken(context(AICallMethod::getAccessToken));
  f_.pump();
  ASSERT_EQ(delegate_->failures.size(), 2u);
  EXPECT_EQ(delegate_->failures[1].error(), AIError(kAINetworkError, "Network error encountered."));
  EXPECT_TRUE(retriever->callContexts().empty());
}

TEST_F(ExchangeTest, UnusableAnswersAreServerErrors) {
  const AIError unparsable(kAIServerError, "Could not parse response from the server.");
  const AIError invalid(kAIServerError, "Received invalid response from the server.");
  // The last second of the dates a token can hold, as "expires_in" from now.
  const std::int64_t latest =
      kAITokenDateLimitSeconds - std::chrono::floor<std::chrono::seconds>(f_.clock->now().time_since_epoch()).count();
  const auto expiringIn = [](auto seconds) {
    return R"({"access_token":"a","refresh_token":"r","expires_in":)" + std::to_string(seconds) + "}";
  };
  const std::pair<std::string, AIError> rows[] = {
      {"[]", unparsable},
      {R"({"access_token":"a","refresh_token":"r"})", invalid},
      {expiringIn(0), invalid},
      {expiringIn(latest + 1), invalid},
      {expiringIn(INT64_MAX), invalid},
      {R"({"access_token":"a","expires_in":60})", invalid},
      {R"({"error":"slow_down","error_description":"Wait."})", AIError(kAIServerError, "Wait.")},
  };
  for (const auto& [body, expected] : rows) {
    store(AICode("ac", *f_.clock));
    f_.http->script("POST", kTokenUrl, {HttpAnswer::response(400, body)});
    auto delegate = std::make_shared<RecordingDelegate>();
    ASSERT_TRUE(codeExchanger_->getRefreshTokenForAuthCode(context(AICallMethod::authorizeUser, delegate))) << body;
    f_.pump();
    ASSERT_EQ(delegate->failures.size(), 1u) << body;
    EXPECT_EQ(delegate->failures[0].error(), expected) << body;
  }
  store(AICode("ac", *f_.clock));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, expiringIn(latest))});
  ASSERT_TRUE(codeExchanger_->getRefreshTokenForAuthCode(context(AICallMethod::authorizeUser)));
  f_.pump();
  EXPECT_EQ(delegate_->successes.size(), 1u) << "the latest expiry a token can hold";
}

// A refresh's retries start again once an exchange is reported; the profile's never do, so after
// three retries in all its 500s are reported at once.
TEST_F(ExchangeTest, RetryCountsStartAgainForTheRefreshButNotForTheProfile) {
  const HttpAnswer unreadable = HttpAnswer::response(500, "<html>busy</html>");
  const HttpAnswer tokens = HttpAnswer::response(200, tokenAnswer("at", "rt"));
  store(AIRefreshToken("rt", {"profile"}, *f_.clock));
  f_.http->script("POST", kTokenUrl, {unreadable, tokens, unreadable, unreadable, unreadable, tokens});
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  f_.pump();
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  f_.pump();
  EXPECT_EQ(delegate_->successes.size(), 2u);
  EXPECT_EQ(f_.http->requests().size(), 6u);

  f_.http->script("GET", kProfileUrl, {unreadable, unreadable, unreadable, HttpAnswer::response(200, R"({"user_id":"u"})"), unreadable});
  profiler_->getProfile(context(AICallMethod::getProfile));
  f_.pump();
  EXPECT_EQ(delegate_->successes.size(), 3u);
  profiler_->getProfile(context(AICallMethod::getProfile));
  f_.pump();
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->failures[0].error().code(), kAIServerError);
  EXPECT_EQ(f_.http->requests().size(), 11u);
}

// A profile call made while a refused profile's refresh runs waits for it, and one profile request
// with the new token answers both.
TEST_F(ExchangeTest, AProfileCallDuringTheRefreshJoinsIt) {
  store(AIRefreshToken("rt", {"profile"}, *f_.clock));
  store(AIAccessToken("at.OLD", {"profile"}, f_.clock->now() + std::chrono::seconds(600), *f_.clock));
  f_.http->script("GET", kProfileUrl, {error(401, "invalid_token", "Expired."), HttpAnswer::response(200, R"({"user_id":"u"})")});
  f_.http->script("POST", kTokenUrl, {HttpAnswer::held()});
  profiler_->getProfile(context(AICallMethod::getProfile));
  f_.pump();
  auto second = std::make_shared<RecordingDelegate>();
  profiler_->getProfile(context(AICallMethod::getProfile, second));
  f_.pump();
  EXPECT_EQ(f_.http->requests().size(), 2u);
  f_.http->answerHeld(HttpAnswer::response(200, tokenAnswer("at.NEW", "rt")));
  f_.pump();
  const auto requests = f_.http->requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(platform::findHttpHeader(requests[2].headers, "Authorization"), "Bearer at.NEW");
  EXPECT_TRUE(delegate_->successes.size() == 1u && second->successes.size() == 1u);
}

TEST_F(ExchangeTest, DestroyingTheRetrieverCancelsItsRequest) {
  store(AIRefreshToken("rt", {"profile"}, *f_.clock));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at", "rt"))});
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  profiler_.reset();
  refresher_.reset();
  f_.pump();
  EXPECT_EQ(delegate_->answers(), 0u);
  EXPECT_EQ(f_.http->cancelledCount(), 1u);
}

}  // namespace
}  // namespace applogic::signin
