// The three exchanges against the local sign-in server, over real TLS through the libcurl port
// (the server's CA as the extra CA file), on a run loop.

#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <thread>

#include "applogic/platform/curl_http_client.h"
#include "applogic/platform/openssl_crypto.h"
#include "applogic/platform/run_loop.h"
#include "applogic/signin/client/ai_exchange_retriever.h"
#include "applogic/signin/client/ai_mobile_lib.h"
#include "applogic/testing/scripted_sign_in_presenter.h"
#include "emulator/signin_server.h"
#include "signin/client_fixture.h"
#include "run_until_quit.h"

namespace applogic::signin {
namespace {

class SystemClock final : public platform::Clock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }
};

// Quits the loop when the call is answered.
class QuittingDelegate final : public AIAuthenticationDelegate {
 public:
  explicit QuittingDelegate(platform::RunLoop& loop) : loop_(loop) {}
  void requestDidSucceed(const APIResult& result) override {
    successes.push_back(result);
    loop_.quit();
  }
  void requestDidFail(const APIError& error) override {
    failures.push_back(error);
    loop_.quit();
  }
  std::vector<APIResult> successes;
  std::vector<APIError> failures;

 private:
  platform::RunLoop& loop_;
};

using ::applogic::test::runUntilQuit;

class ExchangeOverTlsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    emulator::SignInServerOptions options;
    options.bundleId = test::kPackage;
    options.clientId = test::kClientId;
    auto started = emulator::SignInServer::start(std::move(options));
    ASSERT_TRUE(started.ok()) << started.error();
    server_ = std::move(started).value();
    AIAppIdentifier::resetSharedInstance();
    AISPOP::resetSharedInstance();
    const std::string base = server_->baseUrl();
    platform::Platform p;
    p.clock = std::make_shared<SystemClock>();
    p.crypto = platform::makeOpenSslCrypto();
    p.secureRandom = platform::makeOpenSslSecureRandom();
    p.bundleInfo = std::make_shared<testing::BundleValues>(test::kPackage, test::apiKeyFor(base + "/ap/oa", base + "/auth/o2/token"));
    p.deviceInfo = std::make_shared<testing::FixedDeviceInfo>("ThinkPad X1", "Linux", "6.1.0");
    p.secureStore = std::make_shared<testing::InMemorySecureStore>();
    p.mainThread = loop_;
    p.signInPresenter = presenter_;
    platform::CurlHttpOptions http;
    http.caFile = server_->caPath();
    p.httpClient = platform::makeCurlHttpClient(loop_, http);
    ClientConfiguration configuration;
    configuration.apiKeyPublicKey = test::issuerKeys().publicPem;
    configuration.profileEndpointUrl = configuration.sandboxProfileEndpointUrl =
        configuration.integrationProfileEndpointUrl = configuration.integrationSandboxProfileEndpointUrl =
            base + "/user/profile";
    services_ = std::make_shared<AIClientServices>(p, configuration);
    refresher_ = std::make_shared<AIAccessTokenRetriever>(services_);
    profiler_ = std::make_shared<AIProfileExchangerRetriever>(services_, refresher_);
    codeExchanger_ = std::make_shared<AICodeExchangeRetriever>(services_, AISignInHooks{});
  }
  void TearDown() override {
    codeExchanger_.reset();
    profiler_.reset();
    refresher_.reset();
    services_.reset();
    AIAppIdentifier::resetSharedInstance();
    AISPOP::resetSharedInstance();
  }

  std::shared_ptr<AICallContext> context(AICallMethod method, std::shared_ptr<AIAuthenticationDelegate> delegate,
                                         std::string uid = "STATE") {
    return std::make_shared<AICallContext>(method, std::move(delegate), JsonObject{}, JsonObject{}, nullptr,
                                           std::vector<std::string>{"profile"}, std::move(uid));
  }

  // Signs in on the server's page with the request the client builds and the proof key's
  // challenge, and stores the code the redirect carries.
  void signInAndStoreCode() {
    AIOpenIdRequestStates states;
    const auto ctx = context(AICallMethod::authorizeUser, nullptr, "STATE-1");
    const auto request = AI3POpenIdRequest::initWithCallContext(services_, ctx, &states);
    ASSERT_TRUE(request);
    const auto spop = services_->spop();
    spop->regenerateSpop();
    request->mParams()[std::string(CODE_CHALLENGE)] = *spop->spopChallenge();
    request->mParams()[std::string(CODE_CHALLENGE_METHOD)] = *spop->spopMethod();
    const std::string location = signInWithBrowser(AIAuthPortalRequest::buildParamList(request->getParameters(*ctx), true));
    const auto parameters = AIUtils::getKeyValueDictionaryParseString(location);
    ASSERT_TRUE(parameters.contains("code")) << location;
    EXPECT_EQ(parameters.at("state"), "STATE-1");
    AIError error;
    services_->tokenManager().saveTokenToStorage(AICode(parameters.at("code"), *services_->platform().clock),
                                                 kTokenTypeCode, error);
  }

  // Opens the sign-in page with `query`, signs in with the test account and answers the address
  // the server redirects to (empty on a failure, which is reported).
  std::string signInWithBrowser(const std::string& query) {
    std::string location;
    browse(query, location);
    return location;
  }
  void browse(const std::string& query, std::string& location) {
    httplib::SSLClient browser("127.0.0.1", server_->port());
    browser.set_ca_cert_path(server_->caPath().c_str());
    browser.enable_server_certificate_verification(true);
    const auto page = browser.Get(("/ap/oa?" + query).c_str());
    ASSERT_TRUE(page);
    ASSERT_EQ(page->status, 200) << query << "\n" << page->body;
    const std::string marker = "name=\"signin_request\" value=\"";
    const std::size_t start = page->body.find(marker);
    ASSERT_NE(start, std::string::npos);
    const std::size_t valueStart = start + marker.size();
    const std::string id = page->body.substr(valueStart, page->body.find('"', valueStart) - valueStart);
    const auto redirect = browser.Post("/ap/oa", "signin_request=" + id +
                                                     "&email=listener%40tunevo.test&password=tunevo-password&action=signin",
                                       "application/x-www-form-urlencoded");
    ASSERT_TRUE(redirect);
    ASSERT_EQ(redirect->status, 302) << redirect->body;
    location = redirect->get_header_value("Location");
  }

  std::unique_ptr<AIToken> stored(std::int32_t type) const { return test::storedToken(services_->tokenManager(), type); }

  void exchangeCode() {
    ASSERT_NO_FATAL_FAILURE(signInAndStoreCode());
    auto delegate = std::make_shared<QuittingDelegate>(*loop_);
    ASSERT_TRUE(codeExchanger_->getRefreshTokenForAuthCode(context(AICallMethod::authorizeUser, delegate)));
    ASSERT_TRUE(runUntilQuit(*loop_));
    ASSERT_EQ(delegate->successes.size(), 1u) << (delegate->failures.empty() ? "" : delegate->failures[0].error().message());
  }

  std::shared_ptr<platform::RunLoop> loop_ = std::make_shared<platform::RunLoop>();
  std::shared_ptr<testing::ScriptedSignInPresenter> presenter_ = std::make_shared<testing::ScriptedSignInPresenter>();
  std::unique_ptr<emulator::SignInServer> server_;
  std::shared_ptr<AIClientServices> services_;
  std::shared_ptr<AIAccessTokenRetriever> refresher_;
  std::shared_ptr<AIProfileExchangerRetriever> profiler_;
  std::shared_ptr<AICodeExchangeRetriever> codeExchanger_;
};

TEST_F(ExchangeOverTlsTest, CodeExchangeRefreshAndProfile) {
  ASSERT_NO_FATAL_FAILURE(exchangeCode());
  const auto firstRefresh = stored(kTokenTypeRefreshToken);
  ASSERT_TRUE(firstRefresh && stored(kTokenTypeAccessToken));
  EXPECT_TRUE(stored(kTokenTypeAccessToken)->isValid(*services_->platform().clock));

  auto refreshed = std::make_shared<QuittingDelegate>(*loop_);
  refresher_->getAccessToken(context(AICallMethod::getAccessToken, refreshed));
  ASSERT_TRUE(runUntilQuit(*loop_));
  ASSERT_EQ(refreshed->successes.size(), 1u) << refreshed->failures.at(0).error().message();
  EXPECT_EQ(refreshed->successes[0].resultString(), stored(kTokenTypeAccessToken)->token());
  EXPECT_NE(stored(kTokenTypeRefreshToken)->token(), firstRefresh->token()) << "the server rotates refresh tokens";

  auto profile = std::make_shared<QuittingDelegate>(*loop_);
  profiler_->getProfile(context(AICallMethod::getProfile, profile));
  ASSERT_TRUE(runUntilQuit(*loop_));
  ASSERT_EQ(profile->successes.size(), 1u) << profile->failures.at(0).error().message();
  const JsonObject* answer = profile->successes[0].resultObject();
  ASSERT_TRUE(answer);
  EXPECT_EQ(json::string(*answer, "email"), "listener@tunevo.test");
  EXPECT_TRUE(stored(kTokenTypeProfileData));

  // What the server received: the form type on both token requests, the client's User-Agent.
  for (const auto& request : server_->requests()) {
    if (request.path == "/ap/oa") continue;
    bool userAgent = false;
    for (const auto& [name, value] : request.headers) {
      if (name == "User-Agent") userAgent = value == "LWA/2.1.1/iOS/Linux-6.1.0/ThinkPad X1";
    }
    EXPECT_TRUE(userAgent) << request.path;
    if (request.path == "/auth/o2/token") {
      EXPECT_FALSE(request.form.empty());
    }
  }
}

TEST_F(ExchangeOverTlsTest, ServerErrorsAreRetriedAndRefusalsWipeTheTokens) {
  ASSERT_NO_FATAL_FAILURE(exchangeCode());
  server_->injectServerError(emulator::Endpoint::token, 3);
  auto retried = std::make_shared<QuittingDelegate>(*loop_);
  refresher_->getAccessToken(context(AICallMethod::getAccessToken, retried));
  ASSERT_TRUE(runUntilQuit(*loop_));
  EXPECT_EQ(retried->successes.size(), 1u);

  server_->inject(emulator::Fault::invalidGrant);
  auto refused = std::make_shared<QuittingDelegate>(*loop_);
  refresher_->getAccessToken(context(AICallMethod::getAccessToken, refused));
  ASSERT_TRUE(runUntilQuit(*loop_));
  ASSERT_EQ(refused->failures.size(), 1u);
  EXPECT_EQ(refused->failures[0].error().code(), kAIApplicationNotAuthorized);
  for (const std::int32_t type : {1, 2, 3, 4}) EXPECT_FALSE(stored(type)) << type;
}

TEST_F(ExchangeOverTlsTest, ProfileRefusedTokenIsRefreshedOnceAndTheCallRepeated) {
  ASSERT_NO_FATAL_FAILURE(exchangeCode());
  const auto before = stored(kTokenTypeAccessToken)->token();
  server_->inject(emulator::Fault::invalidToken);
  auto profile = std::make_shared<QuittingDelegate>(*loop_);
  profiler_->getProfile(context(AICallMethod::getProfile, profile));
  ASSERT_TRUE(runUntilQuit(*loop_));
  ASSERT_EQ(profile->successes.size(), 1u) << profile->failures.at(0).error().message();
  EXPECT_NE(stored(kTokenTypeAccessToken)->token(), before);
  std::vector<std::string> paths;
  for (const auto& request : server_->requests()) paths.push_back(request.method + " " + request.path);
  const std::vector<std::string> tail(paths.end() - 3, paths.end());
  EXPECT_EQ(tail, (std::vector<std::string>{"GET /user/profile", "POST /auth/o2/token", "GET /user/profile"}));

  server_->inject(emulator::Fault::insufficientScope);
  auto scoped = std::make_shared<QuittingDelegate>(*loop_);
  profiler_->getProfile(context(AICallMethod::getProfile, scoped));
  ASSERT_TRUE(runUntilQuit(*loop_));
  ASSERT_EQ(scoped->failures.size(), 1u);
  EXPECT_EQ(scoped->failures[0].error().code(), kAIApplicationNotAuthorized);
  EXPECT_TRUE(static_cast<AIRefreshToken&>(*stored(kTokenTypeRefreshToken)).scopes().empty());
}

TEST_F(ExchangeOverTlsTest, AHundredCallersDuringOneRefreshSendOneRequest) {
  ASSERT_NO_FATAL_FAILURE(exchangeCode());
  const std::size_t before = server_->requests().size();
  // The refresh is held at the server until every caller has asked; a second refresh with the
  // rotated-away token would revoke the grant.
  server_->injectDelay(emulator::Endpoint::token, std::chrono::milliseconds(300));
  std::vector<std::shared_ptr<QuittingDelegate>> delegates;
  for (int i = 0; i < 100; ++i) {
    delegates.push_back(std::make_shared<QuittingDelegate>(*loop_));
    refresher_->getAccessToken(context(AICallMethod::getAccessToken, delegates.back()));
  }
  ASSERT_TRUE(runUntilQuit(*loop_));
  loop_->runUntilIdle();
  EXPECT_EQ(server_->requests().size() - before, 1u);
  const auto token = stored(kTokenTypeAccessToken)->token();
  for (const auto& delegate : delegates) {
    ASSERT_EQ(delegate->successes.size(), 1u);
    EXPECT_EQ(delegate->successes[0].resultString(), token);
  }
}

TEST_F(ExchangeOverTlsTest, EntryPointsSignInTakeTheRedirectAndServeTokenAndProfile) {
  const AIMobileLib lib(AIAuthPortalProxy::make(services_));
  auto signIn = std::make_shared<QuittingDelegate>(*loop_);
  lib.authorizeUserForScopes({"profile"}, signIn);
  ASSERT_EQ(presenter_->opened().size(), 1u);
  const std::string page = presenter_->opened()[0].url;
  const std::string prefix = server_->baseUrl() + "/ap/oa?";
  ASSERT_TRUE(page.starts_with(prefix)) << page;
  const std::string location = signInWithBrowser(page.substr(prefix.size()));
  ASSERT_FALSE(location.empty());
  ASSERT_TRUE(lib.handleOpenURL(location, "browser")) << location;
  ASSERT_TRUE(runUntilQuit(*loop_));
  ASSERT_EQ(signIn->successes.size(), 1u) << signIn->failures.at(0).error().message();
  EXPECT_EQ(signIn->successes[0].api(), kAPIAuthorizeUser);

  auto token = std::make_shared<QuittingDelegate>(*loop_);
  lib.getAccessTokenForScopes({"profile"}, JsonObject{{"force_refresh", "yes"}}, token);
  ASSERT_TRUE(runUntilQuit(*loop_));
  ASSERT_EQ(token->successes.size(), 1u) << token->failures.at(0).error().message();
  EXPECT_EQ(token->successes[0].resultString(), stored(kTokenTypeAccessToken)->token());

  auto profile = std::make_shared<QuittingDelegate>(*loop_);
  lib.getProfile(profile);
  ASSERT_TRUE(runUntilQuit(*loop_));
  ASSERT_EQ(profile->successes.size(), 1u) << profile->failures.at(0).error().message();
  EXPECT_EQ(json::string(*profile->successes[0].resultObject(), "email"), "listener@tunevo.test");

  auto signOut = std::make_shared<QuittingDelegate>(*loop_);
  lib.clearAuthorizationState(signOut);
  EXPECT_EQ(signOut->successes.size(), 1u);
  for (const std::int32_t type : {1, 2, 3, 4}) EXPECT_FALSE(stored(type)) << type;
  loop_->runUntilIdle();
}

}  // namespace
}  // namespace applogic::signin
