// The sign-in client against the local sign-in server, over real TLS through the libcurl port (the
// server's CA as the extra CA file), on a run loop.

#include <gtest/gtest.h>

#include "emulator/tls_client_fixture.h"
#include "run_until_quit.h"

namespace applogic::signin {
namespace {

// Quits the loop when the call is answered.
class QuittingDelegate final : public test::RecordingDelegate {
 public:
  explicit QuittingDelegate(platform::RunLoop& loop) { onAnswer = [&loop] { loop.quit(); }; }
  std::string failure() const { return failures.empty() ? "" : failures[0].error().message(); }
};

class ExchangeOverTlsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server_ = test::startServerForTheFixture());
    c_ = std::make_unique<test::TlsClientFixture>(*server_);
  }

  // Runs `call` with a new delegate until it is answered.
  std::shared_ptr<QuittingDelegate> answer(const std::function<void(std::shared_ptr<QuittingDelegate>)>& call) {
    auto delegate = std::make_shared<QuittingDelegate>(*c_->loop);
    call(delegate);
    EXPECT_TRUE(applogic::test::runUntilQuit(*c_->loop));  // a quit before the run makes it return at once
    return delegate;
  }

  // Signs in with the test account on the page the client opened, in the scripted browser.
  void signIn() {
    const auto signedIn = answer([&](auto d) { c_->client.lib().authorizeUserForScopes({"profile"}, d); });
    ASSERT_FALSE(c_->browser->opened().empty());
    EXPECT_EQ(c_->handled, std::vector<bool>(c_->handled.size(), true));
    const std::string page = c_->browser->opened().back();
    EXPECT_TRUE(page.starts_with(server_->baseUrl() + "/ap/oa?")) << page;
    ASSERT_EQ(signedIn->successes.size(), 1u) << signedIn->failure() << ::testing::PrintToString(c_->problems);
  }
  std::string storedAccessToken() const { return c_->client.stored(kTokenTypeAccessToken)->token().value_or(""); }

  std::unique_ptr<emulator::SignInServer> server_;
  std::unique_ptr<test::TlsClientFixture> c_;
};

TEST_F(ExchangeOverTlsTest, SignInRefreshSharedByAHundredCallersProfileAndSignOut) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const auto firstRefresh = c_->client.stored(kTokenTypeRefreshToken)->token();
  // The refresh is held at the server until every caller has asked; a second refresh with the
  // rotated-away token would revoke the grant.
  server_->injectDelay(emulator::Endpoint::token, std::chrono::milliseconds(300));
  const std::size_t before = server_->requests().size();
  std::vector<std::shared_ptr<test::RecordingDelegate>> callers;
  std::size_t answered = 0;
  for (int i = 0; i < 100; ++i) {
    callers.push_back(std::make_shared<test::RecordingDelegate>());
    callers.back()->onAnswer = [&] {
      if (++answered == callers.size()) c_->loop->quit();
    };
    c_->client.lib().getAccessTokenForScopes({"profile"}, JsonObject{{"force_refresh", "yes"}}, callers.back());
  }
  ASSERT_TRUE(applogic::test::runUntilQuit(*c_->loop));
  EXPECT_EQ(server_->requests().size() - before, 1u);
  for (const auto& caller : callers) {
    ASSERT_EQ(caller->successes.size(), 1u);
    EXPECT_EQ(caller->successes[0].resultString(), storedAccessToken());
  }
  EXPECT_NE(c_->client.stored(kTokenTypeRefreshToken)->token(), firstRefresh) << "the server rotates refresh tokens";

  const auto profile = answer([&](auto d) { c_->client.lib().getProfile(d); });
  ASSERT_EQ(profile->successes.size(), 1u) << profile->failure();
  EXPECT_EQ(json::string(*profile->successes[0].resultObject(), "email"), "listener@tunevo.test");
  for (const auto& request : server_->requests()) {
    if (request.path == "/ap/oa") continue;
    bool userAgent = false;
    for (const auto& [name, value] : request.headers) {
      if (name == "User-Agent") userAgent = value == "LWA/2.1.1/iOS/Linux-6.1.0-18-amd64/ThinkPad X1";
    }
    EXPECT_TRUE(userAgent) << request.path;
  }

  EXPECT_EQ(answer([&](auto d) { c_->client.lib().clearAuthorizationState(d); })->successes.size(), 1u);
  EXPECT_TRUE(c_->client.store->items().empty());
  c_->loop->runUntilIdle();
}

TEST_F(ExchangeOverTlsTest, ServerFaultsRetriedRefreshedOrEndingTheSignIn) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  server_->injectServerError(emulator::Endpoint::token, 3);
  const JsonObject force{{"force_refresh", "YES"}};
  const auto retried = answer([&](auto d) { c_->client.lib().getAccessTokenForScopes({"profile"}, force, d); });
  EXPECT_EQ(retried->successes.size(), 1u) << retried->failure();

  // A refused access token is refreshed once and the profile asked again.
  const auto before = storedAccessToken();
  server_->inject(emulator::Fault::invalidToken);
  const auto profile = answer([&](auto d) { c_->client.lib().getProfile(d); });
  ASSERT_EQ(profile->successes.size(), 1u) << profile->failure();
  EXPECT_NE(storedAccessToken(), before);
  std::vector<std::string> paths;
  for (const auto& request : server_->requests()) paths.push_back(request.method + " " + request.path);
  EXPECT_EQ(std::vector<std::string>(paths.end() - 3, paths.end()),
            (std::vector<std::string>{"GET /user/profile", "POST /auth/o2/token", "GET /user/profile"}));

  server_->inject(emulator::Fault::invalidGrant);
  const auto refused = answer([&](auto d) { c_->client.lib().getAccessTokenForScopes({"profile"}, force, d); });
  ASSERT_EQ(refused->failures.size(), 1u);
  EXPECT_EQ(refused->failures[0].error().code(), kAIApplicationNotAuthorized);
  EXPECT_TRUE(c_->client.store->items().empty());

  ASSERT_NO_FATAL_FAILURE(signIn());
  server_->inject(emulator::Fault::insufficientScope);
  const auto scoped = answer([&](auto d) { c_->client.lib().getProfile(d); });
  ASSERT_EQ(scoped->failures.size(), 1u);
  EXPECT_EQ(scoped->failures[0].error().code(), kAIApplicationNotAuthorized);
  EXPECT_TRUE(static_cast<AIRefreshToken&>(*c_->client.stored(kTokenTypeRefreshToken)).scopes().empty());
}

}  // namespace
}  // namespace applogic::signin
