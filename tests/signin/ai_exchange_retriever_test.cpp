#include "applogic/signin/client/ai_exchange_retriever.h"

#include <gtest/gtest.h>

#include "signin/client_fixture.h"

namespace applogic::signin {
namespace {

using testing::HttpAnswer;
using test::ClientFixture;
using test::RecordingDelegate;

constexpr const char* kTokenUrl = "https://api.test/auth/o2/token";
constexpr const char* kProfileUrl = "https://api.test/user/profile";

std::string tokenAnswer(const std::string& access, const std::string& refresh, const std::string& scope = "profile") {
  return R"({"access_token":")" + access + R"(","refresh_token":")" + refresh +
         R"(","token_type":"bearer","expires_in":3600,"scope":")" + scope + R"(","iss":"https://signin.test"})";
}

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

  void store(const AIToken& token) { test::storeToken(tokens(), token); }
  std::unique_ptr<AIToken> stored(std::int32_t type) const { return test::storedToken(tokens(), type); }
  AITokenManager tokens() const { return services_->tokenManager(); }
  void storeAll() {
    store(AICode("ac.CODE", *f_.clock));
    store(AIRefreshToken("rt.OLD", {"profile", "postal_code"}, *f_.clock));
    store(AIAccessToken("at.OLD", {"profile"}, f_.clock->now() + std::chrono::seconds(10), *f_.clock));
    store(AIProfileData(JsonObject{{"user_id", "u"}}, *f_.clock));
  }
  std::size_t storedKinds() const {
    std::size_t kinds = 0;
    for (const std::int32_t type : {1, 2, 3, 4}) kinds += stored(type) ? 1 : 0;
    return kinds;
  }
  std::size_t requestsTo(const std::string& url) const {
    std::size_t n = 0;
    for (const auto& request : f_.http->requests()) n += request.url.starts_with(url) ? 1 : 0;
    return n;
  }
  void pump() { f_.mainThread->runPending(); }

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
  struct Row {
    int status;
    bool hasError;
    std::optional<std::string> code;
    int retries;
    S expected;
  };
  const Row rows[] = {
      {500, true, "server_error", 0, S::retry},
      {500, true, std::nullopt, 2, S::retry},       // an unreadable 500 page
      {500, true, "server_error", 3, S::report},    // the fourth answer is reported
      {500, false, std::nullopt, 0, S::report},     // a usable answer, whatever its status
      {503, true, "server_error", 0, S::report},
      {400, true, "invalid_grant", 0, S::invalidToken},
      {400, true, "INVALID_GRANT", 0, S::invalidToken},
      {500, true, "invalid_grant", 0, S::retry},    // a 500 is retried before it is read
      {500, true, "invalid_grant", 3, S::invalidToken},
      {401, true, "invalid_token", 0, S::report},   // another exchange's word
  };
  for (const Row& row : rows) {
    EXPECT_EQ(nextExchangeStep(row.status, row.hasError, row.code, row.retries, "INVALID_GRANT"), row.expected)
        << row.status << " " << row.code.value_or("-") << " " << row.retries;
  }
}

TEST_F(ExchangeTest, RefreshSavesTheTokensItGetsAndAnswersTheAccessToken) {
  store(AIRefreshToken("rt.OLD", {"profile", "postal_code"}, *f_.clock));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.NEW", "rt.NEW", "profile postal_code"))});
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  pump();

  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->successes[0].api(), kAPIGetAccessToken);
  EXPECT_EQ(delegate_->successes[0].resultString(), "at.NEW");
  const auto access = stored(kTokenTypeAccessToken);
  EXPECT_TRUE(access->isEqual(AIAccessToken("at.NEW", {"profile", "postal_code"}, std::nullopt, *f_.clock)));
  EXPECT_EQ(static_cast<AIAccessToken&>(*access).expirationDate(), f_.clock->now() + std::chrono::seconds(3600));
  EXPECT_TRUE(stored(kTokenTypeRefreshToken)->isEqual(AIRefreshToken("rt.NEW", {"profile", "postal_code"}, *f_.clock)));
  EXPECT_FALSE(refresher_->isBusy());
  EXPECT_TRUE(refresher_->callContexts().empty());

  // An answer without a refresh token keeps the stored one, and still succeeds.
  f_.http->script("POST", kTokenUrl,
                  {HttpAnswer::response(200, R"({"access_token":"at.NEWER","expires_in":60,"scope":"profile"})")});
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  pump();
  ASSERT_EQ(delegate_->successes.size(), 2u);
  EXPECT_EQ(delegate_->successes[1].resultString(), "at.NEWER");
  EXPECT_EQ(stored(kTokenTypeRefreshToken)->token(), "rt.NEW");
  EXPECT_EQ(stored(kTokenTypeAccessToken)->token(), "at.NEWER");
}

class SharedRefreshTest : public ExchangeTest, public ::testing::WithParamInterface<int> {};

TEST_P(SharedRefreshTest, CallsDuringARefreshShareItsOneRequestAndToken) {
  store(AIRefreshToken("rt.OLD", {"profile"}, *f_.clock));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::held()});
  std::vector<std::shared_ptr<RecordingDelegate>> delegates;
  for (int i = 0; i < GetParam(); ++i) {
    delegates.push_back(std::make_shared<RecordingDelegate>());
    refresher_->getAccessToken(context(AICallMethod::getAccessToken, delegates.back()));
    pump();
  }
  EXPECT_EQ(f_.http->requests().size(), 1u);
  EXPECT_EQ(refresher_->callContexts().size(), static_cast<std::size_t>(GetParam()));
  f_.http->answerHeld(HttpAnswer::response(200, tokenAnswer("at.SHARED", "rt.NEW")));
  pump();
  for (const auto& delegate : delegates) {
    ASSERT_EQ(delegate->successes.size(), 1u);
    EXPECT_TRUE(delegate->failures.empty());
    EXPECT_EQ(delegate->successes[0].resultString(), "at.SHARED");
  }
  EXPECT_EQ(f_.http->requests().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Callers, SharedRefreshTest, ::testing::Values(2, 100));

TEST_F(ExchangeTest, ServerErrorsAreRetriedThreeTimesThenReported) {
  struct Row {
    const char* name;
    std::vector<HttpAnswer> answers;
    std::size_t requests;
    std::optional<AIError> failure;  // absent: success
  };
  const auto busy = error(500, "server_error", "Try later");
  const auto ok = HttpAnswer::response(200, tokenAnswer("at.NEW", "rt.NEW"));
  const Row rows[] = {
      {"three 500s then an answer", {busy, busy, busy, ok}, 4, std::nullopt},
      {"four 500s", {busy}, 4, AIError(kAIServerError, "Try later")},
      {"an unreadable 500 page", {HttpAnswer::response(500, "<html>oops</html>"), ok}, 2, std::nullopt},
      {"a 503 is not retried", {error(503, "temporarily_unavailable", "Busy")}, 1, AIError(kAIServerError, "Busy")},
      {"a 500 without an error is used", {HttpAnswer::response(500, tokenAnswer("at.NEW", "rt.NEW"))}, 1, std::nullopt},
      {"a connection failure is code 7 with its description, not retried",
       {HttpAnswer::connectionFailure("Connection refused")}, 1, AIError(kAINetworkError, "Connection refused")},
  };
  for (const Row& row : rows) {
    f_.http->script("POST", kTokenUrl, row.answers);
    const auto before = f_.http->requests().size();
    store(AIRefreshToken("rt.OLD", {"profile"}, *f_.clock));
    auto delegate = std::make_shared<RecordingDelegate>();
    refresher_->getAccessToken(context(AICallMethod::getAccessToken, delegate));
    pump();
    const auto requests = f_.http->requests();
    EXPECT_EQ(requests.size() - before, row.requests) << row.name;
    // A retry resends the same request.
    for (std::size_t i = before + 1; i < requests.size(); ++i) EXPECT_EQ(requests[i], requests[before]) << row.name;
    ASSERT_EQ(delegate->answers(), 1u) << row.name;
    if (row.failure) {
      ASSERT_EQ(delegate->failures.size(), 1u) << row.name;
      EXPECT_EQ(delegate->failures[0].error(), *row.failure) << row.name;
      EXPECT_EQ(delegate->failures[0].api(), kAPIGetAccessToken) << row.name;
    } else {
      EXPECT_EQ(delegate->successes.size(), 1u) << row.name;
    }
    EXPECT_EQ(refresher_->nRetry(), 0) << row.name << ": a reported answer resets the count";
    f_.http->script("POST", kTokenUrl, {});
  }
}

TEST_F(ExchangeTest, InvalidGrantOnARefreshWipesEveryStoredKind) {
  storeAll();
  f_.http->script("POST", kTokenUrl, {HttpAnswer::held()});
  auto second = std::make_shared<RecordingDelegate>();
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  refresher_->getAccessToken(context(AICallMethod::getAccessToken, second));
  f_.http->answerHeld(error(400, "invalid_grant", "The refresh token is revoked."));
  pump();
  EXPECT_EQ(storedKinds(), 0u);
  for (const auto& d : {delegate_, second}) {
    ASSERT_EQ(d->failures.size(), 1u);
    EXPECT_EQ(d->failures[0].api(), kAPIGetAccessToken);
    EXPECT_EQ(d->failures[0].error(), AIError(kAIApplicationNotAuthorized, "The refresh token is revoked."));
  }
}

TEST_F(ExchangeTest, CodeExchangeSavesTokensWithTheCallScopesAndEndsTheSignIn) {
  store(AICode("ac.CODE", *f_.clock));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.NEW", "rt.NEW", "other"))});
  EXPECT_TRUE(codeExchanger_->getRefreshTokenForAuthCode(context(AICallMethod::authorizeUser)));
  pump();
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->successes[0].api(), kAPIAuthorizeUser);
  EXPECT_TRUE(delegate_->successes[0].result().is_null());
  EXPECT_TRUE(stored(kTokenTypeRefreshToken)->isEqual(AIRefreshToken("rt.NEW", {"profile", "postal_code"}, *f_.clock)));
  EXPECT_TRUE(stored(kTokenTypeAccessToken)
                  ->isEqual(AIAccessToken("at.NEW", {"profile", "postal_code"}, std::nullopt, *f_.clock)));
  EXPECT_EQ(hookCalls_, std::vector<std::string>{"clear states@0"});
  const std::string body = f_.http->requests().at(0).body.value();
  EXPECT_NE(body.find("code=ac.CODE"), std::string::npos) << body;
}

TEST_F(ExchangeTest, CodeExchangeRefusedWipesEverythingAndRemovesTheSignInView) {
  storeAll();
  f_.http->script("POST", kTokenUrl, {error(400, "INVALID_GRANT", "Code spent.")});
  ASSERT_TRUE(codeExchanger_->getRefreshTokenForAuthCode(context(AICallMethod::authorizeUser)));
  pump();
  EXPECT_EQ(storedKinds(), 0u);
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->failures[0].api(), kAPIAuthorizeUser);
  EXPECT_EQ(delegate_->failures[0].error(), AIError(kAIApplicationNotAuthorized, "Code spent."));
  EXPECT_EQ(hookCalls_, (std::vector<std::string>{"remove view@0", "clear states@0"}));
}

TEST_F(ExchangeTest, NothingToSendIsLeftToTheCallerToAnswer) {
  // No stored code: the request cannot be built.
  const auto ctx = context(AICallMethod::authorizeUser);
  EXPECT_FALSE(codeExchanger_->getRefreshTokenForAuthCode(ctx));
  EXPECT_EQ(ctx->error(), AIError(kAIInternalError, "SDK incountered internal Error."));
  EXPECT_EQ(delegate_->answers(), 0u);
  EXPECT_TRUE(codeExchanger_->callContexts().empty());

  // No refresh token: code 1, answered once by the operation.
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  ASSERT_EQ(delegate_->failures.size(), 1u);
  EXPECT_EQ(delegate_->failures[0].error(), AIError(kAIApplicationNotAuthorized, "The refresh token is invalid, expired or revoked."));

  // No HTTP client: code 7, answered once.
  f_.platform.httpClient = nullptr;
  const auto offline = f_.services();
  const auto retriever = std::make_shared<AIAccessTokenRetriever>(offline);
  store(AIRefreshToken("rt", {"profile"}, *f_.clock));
  retriever->getAccessToken(context(AICallMethod::getAccessToken));
  ASSERT_EQ(delegate_->failures.size(), 2u);
  EXPECT_EQ(delegate_->failures[1].error(), AIError(kAINetworkError, "Network error encountered."));
  EXPECT_TRUE(retriever->callContexts().empty());
  pump();
  EXPECT_EQ(delegate_->answers(), 2u);
}

TEST_F(ExchangeTest, UnusableAnswersAreServerErrors) {
  struct Row {
    const char* name;
    std::string body;
    AIError expected;
  };
  const AIError unparsable(kAIServerError, "Could not parse response from the server.");
  const AIError invalid(kAIServerError, "Received invalid response from the server.");
  const Row rows[] = {
      {"empty", "", unparsable},
      {"not JSON", "<html/>", unparsable},
      {"an array", "[]", unparsable},
      {"no expiry", R"({"access_token":"a","refresh_token":"r"})", invalid},
      {"expiry as text", R"({"access_token":"a","refresh_token":"r","expires_in":"3600"})", invalid},
      {"already expired", R"({"access_token":"a","refresh_token":"r","expires_in":0})", invalid},
      {"no refresh token", R"({"access_token":"a","expires_in":60})", invalid},
      {"no access token", R"({"refresh_token":"r","expires_in":60})", invalid},
      {"an unknown error", R"({"error":"slow_down","error_description":"Wait."})", AIError(kAIServerError, "Wait.")},
      {"invalid_request", R"({"error":"invalid_request","error_description":"Bad."})",
       AIError(kAIInvalidInput, "One or more input parameters are wrong.")},
      {"access_denied without description", R"({"error":"access_denied"})", AIError(kAIAccessDenied, "")},
  };
  for (const Row& row : rows) {
    store(AICode("ac", *f_.clock));
    f_.http->script("POST", kTokenUrl, {HttpAnswer::response(400, row.body)});
    auto delegate = std::make_shared<RecordingDelegate>();
    ASSERT_TRUE(codeExchanger_->getRefreshTokenForAuthCode(context(AICallMethod::authorizeUser, delegate))) << row.name;
    pump();
    ASSERT_EQ(delegate->failures.size(), 1u) << row.name;
    EXPECT_EQ(delegate->failures[0].error(), row.expected) << row.name;
  }
}

TEST_F(ExchangeTest, ProfileIsStoredAndAnsweredAsTheServerSentIt) {
  store(AIAccessToken("at.OK", {"profile"}, f_.clock->now() + std::chrono::hours(1), *f_.clock));
  f_.http->script("GET", kProfileUrl,
                  {HttpAnswer::response(200, R"({"user_id":"u1","email":"e@x","name":"N","iss":"https://x"})")});
  profiler_->getProfile(context(AICallMethod::getProfile));
  pump();
  ASSERT_EQ(delegate_->successes.size(), 1u);
  EXPECT_EQ(delegate_->successes[0].api(), kAPIGetProfile);
  const JsonObject expected{{"user_id", "u1"}, {"email", "e@x"}, {"name", "N"}, {"iss", "https://x"}};
  ASSERT_TRUE(delegate_->successes[0].resultObject());
  EXPECT_EQ(*delegate_->successes[0].resultObject(), expected);
  const auto profile = stored(kTokenTypeProfileData);
  EXPECT_EQ(static_cast<AIProfileData&>(*profile).profileData(), expected);
  EXPECT_EQ(platform::findHttpHeader(f_.http->requests().at(0).headers, "Authorization"), "Bearer at.OK");
}

TEST_F(ExchangeTest, InvalidTokenOnTheProfileRefreshesOnceAndRepeats) {
  storeAll();
  f_.http->script("GET", kProfileUrl,
                  {error(401, "INVALID_TOKEN", "expired"), HttpAnswer::response(200, R"({"user_id":"u1"})")});
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.FRESH", "rt.FRESH"))});
  auto second = std::make_shared<RecordingDelegate>();
  profiler_->getProfile(context(AICallMethod::getProfile));
  profiler_->getProfile(context(AICallMethod::getProfile, second));
  pump();
  const auto requests = f_.http->requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[1].url, kTokenUrl);
  EXPECT_EQ(platform::findHttpHeader(requests[0].headers, "Authorization"), "Bearer at.OLD");
  EXPECT_EQ(platform::findHttpHeader(requests[2].headers, "Authorization"), "Bearer at.FRESH");
  for (const auto& d : {delegate_, second}) {
    ASSERT_EQ(d->successes.size(), 1u);
    EXPECT_TRUE(d->failures.empty());
    EXPECT_EQ(d->successes[0].api(), kAPIGetProfile);
  }
}

TEST_F(ExchangeTest, ProfileInvalidTokenEndings) {
  struct Row {
    const char* name;
    std::vector<HttpAnswer> profileAnswers;
    HttpAnswer refreshAnswer;
    std::size_t requests;
    AIError expected;
    std::size_t kindsLeft;
  };
  const Row rows[] = {
      {"refused again after the refresh", {error(401, "invalid_token", "no")}, HttpAnswer::response(200, tokenAnswer("a", "r")), 3,
       AIError(kAIServerError, "no"), 4},
      {"the refresh is refused", {error(401, "invalid_token", "no")}, error(400, "invalid_grant", "revoked"), 2,
       AIError(kAIApplicationNotAuthorized, "revoked"), 0},
  };
  for (const Row& row : rows) {
    storeAll();
    const auto before = f_.http->requests().size();
    f_.http->script("GET", kProfileUrl, row.profileAnswers);
    f_.http->script("POST", kTokenUrl, {row.refreshAnswer});
    auto delegate = std::make_shared<RecordingDelegate>();
    profiler_->getProfile(context(AICallMethod::getProfile, delegate));
    pump();
    EXPECT_EQ(f_.http->requests().size() - before, row.requests) << row.name;
    ASSERT_EQ(delegate->failures.size(), 1u) << row.name;
    EXPECT_TRUE(delegate->successes.empty()) << row.name;
    EXPECT_EQ(delegate->failures[0].api(), kAPIGetProfile) << row.name;
    EXPECT_EQ(delegate->failures[0].error(), row.expected) << row.name;
    EXPECT_EQ(storedKinds(), row.kindsLeft) << row.name;
    EXPECT_FALSE(profiler_->isBusy()) << row.name;
    // The next profile call refreshes again when needed.
    f_.http->script("GET", kProfileUrl, {error(401, "invalid_token", "no"), HttpAnswer::response(200, "{}")});
    f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("a2", "r2"))});
    storeAll();
    profiler_->getProfile(context(AICallMethod::getProfile, delegate));
    pump();
    EXPECT_EQ(delegate->successes.size(), 1u) << row.name;
  }
}

TEST_F(ExchangeTest, InsufficientScopeForTheProfileDropsTheProfileScope) {
  struct Row {
    const char* description;
    std::vector<std::string> scopesAfter;
  };
  const Row rows[] = {
      {"Insufficient scope: Scope required PROFILE.", {"postal_code"}},
      {"Insufficient scope.", {"profile", "postal_code"}},
  };
  for (const Row& row : rows) {
    storeAll();
    f_.http->script("GET", kProfileUrl, {error(403, "insufficient_scope", row.description)});
    auto delegate = std::make_shared<RecordingDelegate>();
    profiler_->getProfile(context(AICallMethod::getProfile, delegate));
    pump();
    ASSERT_EQ(delegate->failures.size(), 1u);
    EXPECT_EQ(delegate->failures[0].error(), AIError(kAIApplicationNotAuthorized, row.description));
    const auto refresh = stored(kTokenTypeRefreshToken);
    ASSERT_TRUE(refresh);
    EXPECT_EQ(static_cast<AIRefreshToken&>(*refresh).scopes(), row.scopesAfter) << row.description;
    EXPECT_EQ(refresh->token(), "rt.OLD");
  }
}

TEST_F(ExchangeTest, ADelegateThatCallsAgainStartsANewExchange) {
  store(AIRefreshToken("rt", {"profile"}, *f_.clock));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at.1", "rt.1")),
                                      HttpAnswer::response(200, tokenAnswer("at.2", "rt.2"))});
  auto again = std::make_shared<RecordingDelegate>();
  delegate_->onAnswer = [&] {
    delegate_->onAnswer = nullptr;
    refresher_->getAccessToken(context(AICallMethod::getAccessToken, again));
  };
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  pump();
  EXPECT_EQ(f_.http->requests().size(), 2u);
  ASSERT_EQ(again->successes.size(), 1u);
  EXPECT_EQ(again->successes[0].resultString(), "at.2");
  EXPECT_EQ(delegate_->successes.size(), 1u);
}

TEST_F(ExchangeTest, DestroyingTheRetrieverCancelsItsRequest) {
  store(AIRefreshToken("rt", {"profile"}, *f_.clock));
  f_.http->script("POST", kTokenUrl, {HttpAnswer::response(200, tokenAnswer("at", "rt"))});
  refresher_->getAccessToken(context(AICallMethod::getAccessToken));
  profiler_.reset();
  refresher_.reset();
  pump();
  EXPECT_EQ(delegate_->answers(), 0u);
  EXPECT_EQ(f_.http->cancelledCount(), 1u);
}

TEST(AICallContextTest, CopyErrorMessagesNeedsASourceAndTwoContexts) {
  auto make = [](std::int64_t code, const char* message) {
    return std::make_shared<AICallContext>(AICallMethod::getAccessToken, nullptr, JsonObject{}, JsonObject{},
                                           std::make_shared<AIError>(code, message), std::vector<std::string>{}, "U");
  };
  const auto source = make(1, "revoked");
  const auto other = make(0, "No error");
  AICallContext::copyErrorMessagesFrom(source.get(), {source});
  AICallContext::copyErrorMessagesFrom(nullptr, {source, other});
  EXPECT_EQ(other->error(), AIError());
  AICallContext::copyErrorMessagesFrom(source.get(), {source, other});
  EXPECT_EQ(other->error(), AIError(1, "revoked"));
  EXPECT_NE(other->errorObject(), source->errorObject());
  // A context made without an error object gets its own "No error".
  EXPECT_EQ(std::make_shared<AICallContext>(AICallMethod::logout, nullptr, JsonObject{}, JsonObject{}, nullptr,
                                            std::vector<std::string>{}, "U")
                ->error(),
            AIError());
}

}  // namespace
}  // namespace applogic::signin
