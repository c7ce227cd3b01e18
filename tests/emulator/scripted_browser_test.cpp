// A whole sign-in through the login service and the sign-in client, against the local sign-in
// server over real TLS (libcurl port), with the scripted browser playing the user on the page.

#include "emulator/scripted_browser.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "applogic/signin/amazon_login_service.h"
#include "emulator/tls_client_fixture.h"
#include "run_until_quit.h"

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
  const auto server = signin::test::startServerForTheFixture();
  ASSERT_TRUE(server);

  for (const Row& row : rows) {
    ScriptedBrowserOptions browserOptions;
    browserOptions.user = row.user;
    browserOptions.password = row.password;
    signin::test::TlsClientFixture f(*server, browserOptions);
    const auto service = signin::AmazonLoginService::make(f.client.lib());
    std::optional<Result<AmazonLoginInfo>> outcome;
    service->login(false, [&](Result<AmazonLoginInfo> result) {
      outcome = std::move(result);
      f.loop->quit();
    });
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(test::runUntilQuit(*f.loop));
    ASSERT_EQ(f.browser->opened().size(), 1u);
    const auto requests = server->requests();
    const auto posted = std::find_if(requests.rbegin(), requests.rend(), [](const RecordedRequest& r) {
      return r.method == "POST" && r.path == "/ap/oa";
    });
    ASSERT_NE(posted, requests.rend());
    EXPECT_EQ(posted->body.substr(std::min(posted->body.find('&'), posted->body.size())), row.submitted);
    if (!outcome) {
      EXPECT_EQ(f.problems, std::vector<std::string>{row.outcome});
    } else if (!outcome->ok()) {
      EXPECT_EQ(outcome->error(),
                (Error{signin::kAmazonLoginErrorDomain, signin::kAIAccessDenied, {{"message", row.outcome}}}));
    } else {
      EXPECT_EQ(row.outcome, "");
      const SignInServerOptions account;
      EXPECT_EQ(outcome->value().email + " " + outcome->value().userID, account.email + " " + account.userId);
      EXPECT_EQ(outcome->value().accessToken.rfind("at.", 0), 0u) << outcome->value().accessToken;
    }
    EXPECT_EQ(f.problems.size() + (outcome ? 1 : 0), 1u);
  }
}

}  // namespace
}  // namespace applogic::emulator
