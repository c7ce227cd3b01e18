// A whole sign-in through the login service and the sign-in client, against the local sign-in
// server over real TLS (libcurl port), with the scripted browser playing the user on the page.

#include "emulator/scripted_browser.h"

#include <algorithm>

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

TEST(ScriptedBrowserTest, SignsInThroughTheClientOrCancelsOrDenies) {
  struct Row {
    const char* name;
    ScriptedUser user;
    std::string password;
    std::string outcome;    // the login's error message, what the browser reports, or "" for a sign-in
    std::string submitted;  // the form the browser posted, after the sign-in request's id
  };
  const Row rows[] = {
      {"sign in", ScriptedUser::signIn, "tunevo-password", "",
       "&email=listener%40tunevo.test&password=tunevo-password&action=signin"},
      {"cancel", ScriptedUser::cancel, "tunevo-password", "The user cancelled the sign-in.",
       "&email=&password=&action=cancel"},
      {"wrong password", ScriptedUser::signIn, "guess",
       "the sign-in page says: The e-mail address or password is incorrect.",
       "&email=listener%40tunevo.test&password=guess&action=signin"},
  };
  SignInServerOptions serverOptions;
  serverOptions.bundleId = signin::test::kPackage;
  serverOptions.clientId = signin::test::kClientId;
  auto started = SignInServer::start(serverOptions);
  ASSERT_TRUE(started.ok()) << started.error();
  const auto server = std::move(started).value();
  const std::string base = server->baseUrl();

  for (const Row& row : rows) {
    const auto loop = std::make_shared<platform::RunLoop>();
    ScriptedBrowserOptions browserOptions;
    browserOptions.caFile = server->caPath();
    browserOptions.user = row.user;
    browserOptions.password = row.password;
    const auto browser = std::make_shared<ScriptedBrowser>(loop, browserOptions);

    platform::Platform p;
    p.clock = std::make_shared<testing::ManualClock>(std::chrono::system_clock::now());
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
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(test::runUntilQuit(*loop));
    ASSERT_EQ(browser->opened().size(), 1u);
    const auto requests = server->requests();
    const auto posted = std::find_if(requests.rbegin(), requests.rend(), [](const RecordedRequest& r) {
      return r.method == "POST" && r.path == "/ap/oa";
    });
    ASSERT_NE(posted, requests.rend());
    EXPECT_EQ(posted->body.substr(std::min(posted->body.find('&'), posted->body.size())), row.submitted);
    if (!outcome) {
      EXPECT_EQ(problems, std::vector<std::string>{row.outcome});
    } else if (!outcome->ok()) {
      EXPECT_EQ(outcome->error(),
                (Error{signin::kAmazonLoginErrorDomain, signin::kAIAccessDenied, {{"message", row.outcome}}}));
    } else {
      EXPECT_EQ(row.outcome, "");
      EXPECT_EQ(outcome->value().email + " " + outcome->value().userID, serverOptions.email + " " + serverOptions.userId);
      EXPECT_EQ(outcome->value().accessToken.rfind("at.", 0), 0u) << outcome->value().accessToken;
    }
    EXPECT_EQ(problems.size() + (outcome ? 1 : 0), 1u);
    // The handlers hold the client, which holds the browser through its platform.
    browser->setRedirectHandler(nullptr);
    browser->setFailureHandler(nullptr);
    loop->runUntilIdle();
    signin::AIAuthPortalProxy::resetSharedInstance();
    signin::AIAppIdentifier::resetSharedInstance();
    signin::AISPOP::resetSharedInstance();
  }
}

}  // namespace
}  // namespace applogic::emulator
