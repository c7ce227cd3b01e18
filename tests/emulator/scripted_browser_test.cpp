// A whole sign-in through the login service and the sign-in client, against the local sign-in
// server over real TLS (libcurl port), with the scripted browser playing the user on the page.

#include "emulator/scripted_browser.h"

#include <gtest/gtest.h>

#include "applogic/platform/curl_http_client.h"
#include "applogic/platform/openssl_crypto.h"
#include "applogic/platform/run_loop.h"
#include "applogic/signin/amazon_login_service.h"
#include "emulator/signin_server.h"
#include "run_until_quit.h"
#include "signin/client_fixture.h"

namespace applogic::emulator {
namespace {

using signin::AmazonLoginInfo;

class SystemClock final : public platform::Clock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }
};

TEST(ScriptedBrowserTest, SignsInThroughTheClientOrCancelsOrDenies) {
  struct Row {
    const char* name;
    ScriptedUser user;
    std::string password;
    std::optional<std::string> failure;  // the login's error message, or absent for a sign-in
    std::optional<std::string> problem;  // what the browser reports instead of a redirect
  };
  const Row rows[] = {
      {"sign in", ScriptedUser::signIn, "tunevo-password", std::nullopt, std::nullopt},
      {"cancel", ScriptedUser::cancel, "tunevo-password", "The user cancelled the sign-in.", std::nullopt},
      {"wrong password", ScriptedUser::signIn, "guess", std::nullopt,
       "the sign-in page says: The e-mail address or password is incorrect."},
  };
  SignInServerOptions serverOptions;
  serverOptions.bundleId = signin::test::kPackage;
  serverOptions.clientId = signin::test::kClientId;
  auto started = SignInServer::start(serverOptions);
  ASSERT_TRUE(started.ok()) << started.error();
  const auto server = std::move(started).value();
  const std::string base = server->baseUrl();

  for (const Row& row : rows) {
    signin::AIAuthPortalProxy::resetSharedInstance();
    signin::AIAppIdentifier::resetSharedInstance();
    signin::AISPOP::resetSharedInstance();
    const auto loop = std::make_shared<platform::RunLoop>();
    ScriptedBrowserOptions browserOptions;
    browserOptions.caFile = server->caPath();
    browserOptions.user = row.user;
    browserOptions.password = row.password;
    const auto browser = std::make_shared<ScriptedBrowser>(loop, browserOptions);

    platform::Platform p;
    p.clock = std::make_shared<SystemClock>();
    p.crypto = platform::makeOpenSslCrypto();
    p.secureRandom = platform::makeOpenSslSecureRandom();
    p.bundleInfo = std::make_shared<testing::BundleValues>(
        signin::test::kPackage, signin::test::apiKeyFor(base + "/ap/oa", base + "/auth/o2/token"));
    p.deviceInfo = std::make_shared<testing::FixedDeviceInfo>("ThinkPad X1", "Linux", "6.1.0");
    p.secureStore = std::make_shared<testing::InMemorySecureStore>();
    p.mainThread = loop;
    p.signInPresenter = browser;
    platform::CurlHttpOptions http;
    http.caFile = server->caPath();
    p.httpClient = platform::makeCurlHttpClient(loop, http);
    signin::ClientConfiguration configuration;
    configuration.apiKeyPublicKey = signin::test::issuerKeys().publicPem;
    configuration.profileEndpointUrl = configuration.sandboxProfileEndpointUrl =
        configuration.integrationProfileEndpointUrl = configuration.integrationSandboxProfileEndpointUrl =
            base + "/user/profile";

    const signin::AIMobileLib client(p, configuration);
    std::vector<std::string> problems;
    browser->setRedirectHandler([client](const std::string& url) { client.handleOpenURL(url, "browser"); });
    browser->setFailureHandler([&](const std::string& description) {
      problems.push_back(description);
      loop->quit();
    });
    const auto service = signin::AmazonLoginService::make(client);
    std::optional<Result<AmazonLoginInfo>> outcome;
    service->login(false, [&](Result<AmazonLoginInfo> result) {
      outcome = std::move(result);
      loop->quit();
    });
    ASSERT_TRUE(test::runUntilQuit(*loop)) << row.name;
    ASSERT_EQ(browser->opened().size(), 1u) << row.name;
    EXPECT_EQ(browser->opened()[0].rfind(base + "/ap/oa?", 0), 0u) << browser->opened()[0];
    if (row.problem) {
      EXPECT_EQ(problems, std::vector<std::string>{*row.problem}) << row.name;
      EXPECT_FALSE(outcome) << row.name;
    } else {
      ASSERT_TRUE(problems.empty()) << row.name << ": " << problems[0];
      ASSERT_TRUE(outcome) << row.name;
      if (!row.failure) {
        ASSERT_TRUE(outcome->ok()) << row.name << ": " << outcome->error();
        EXPECT_EQ(outcome->value().email, serverOptions.email);
        EXPECT_EQ(outcome->value().userID, serverOptions.userId);
        EXPECT_EQ(outcome->value().accessToken.rfind("at.", 0), 0u) << outcome->value().accessToken;
      } else {
        ASSERT_FALSE(outcome->ok()) << row.name;
        EXPECT_EQ(outcome->error(), (Error{signin::kAmazonLoginErrorDomain, signin::kAIAccessDenied,
                                           {{"message", *row.failure}}}))
            << row.name;
      }
    }
    // The handlers hold the client, which holds the browser through its platform.
    browser->setRedirectHandler(nullptr);
    browser->setFailureHandler(nullptr);
    loop->runUntilIdle();
  }
  signin::AIAuthPortalProxy::resetSharedInstance();
  signin::AIAppIdentifier::resetSharedInstance();
  signin::AISPOP::resetSharedInstance();
}

}  // namespace
}  // namespace applogic::emulator
