#include "applogic/signin/client/ai_sign_in_view_manager.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "signin/client_fixture.h"

namespace applogic::signin {
namespace {

using testing::ScriptedSignInPresenter;
using Kind = ScriptedSignInPresenter::Kind;

constexpr const char* kScheme = "amazon-sso-test://";
constexpr const char* kReturnTo = "amzn-app.tunevo.test://?methodName=signin";

// Each address built says which build it was and whether it is the single-sign-on one, so a
// test sees which address a strategy showed.
std::string addressOf(int build, bool singleSignOn) {
  return "https://signin.test/ap/oa?build=" + std::to_string(build) + (singleSignOn ? "&sso.version=2.0" : "");
}

struct Harness {
  std::shared_ptr<ScriptedSignInPresenter> presenter = std::make_shared<ScriptedSignInPresenter>();
  std::unique_ptr<AISignInViewManager> manager;
  AIError error;
  int builds = 0;
  std::vector<AIError> cancelled;

  void make() {
    manager = std::make_unique<AISignInViewManager>(presenter, kScheme, kReturnTo,
                                                    [](const std::string&) {});
  }
  AISignInCall call(bool sandbox = false) {
    AISignInCall c;
    c.error = &error;
    c.sandbox = sandbox;
    c.buildURLString = [this](bool singleSignOn) -> std::optional<std::string> { return addressOf(++builds, singleSignOn); };
    c.onCancelled = [this](const AIError& e) { cancelled.push_back(e); };
    return c;
  }
};

TEST(SignInViewModes, ShowTheFirstStrategyThatStarts) {
  struct Row {
    const char* name;
    bool sandbox, appInstalled, inAppBrowser, webView;
    std::optional<AISignInViewMode> defaultMode;  // absent: the mode after reset
    ScriptedSignInPresenter::Opened opened;
  };
  const Row rows[] = {
      // The Linux host: only the browser. The first-party app was tried, so the browser shows
      // the single-sign-on address, the one built last.
      {"browserOnly", false, false, false, false, std::nullopt, {Kind::browser, addressOf(2, true)}},
      {"appInstalled", false, true, true, true, std::nullopt, {Kind::app, kScheme + addressOf(2, true)}},
      {"noAppWithInAppBrowser", false, false, true, false, std::nullopt, {Kind::inAppBrowser, addressOf(2, true)}},
      {"sandboxNeverTriesTheApp", true, true, true, false, std::nullopt, {Kind::inAppBrowser, addressOf(1, false)}},
      {"sandboxWithoutInAppBrowser", true, true, false, false, std::nullopt, {Kind::browser, addressOf(1, false)}},
      {"defaultWebViewWithoutApp", false, false, true, true, kAISignInViewModeWebView, {Kind::webView, addressOf(2, true)}},
      {"defaultWebViewTheHostLacks", false, false, false, false, kAISignInViewModeWebView,
       {Kind::browser, addressOf(2, true)}}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Harness h;
    h.presenter->setInAppBrowserAvailable(row.inAppBrowser);
    h.presenter->setWebViewAvailable(row.webView);
    if (row.appInstalled) h.presenter->installApp("amazon-sso-test");
    h.make();
    if (row.defaultMode) h.manager->setSDKSignInViewMode(*row.defaultMode);
    h.manager->initializeSignIn(h.call(row.sandbox));
    EXPECT_EQ(h.presenter->opened(), std::vector<ScriptedSignInPresenter::Opened>{row.opened});
    EXPECT_FALSE(h.error.hasErrorOccured()) << h.error.message();
    EXPECT_NE(h.manager->strategy(), nullptr) << "the strategy that showed the page is kept";
  }
}

TEST(AISignInViewManager, ClosingTheViewCancelsWithCode3OnceAndResetsTheModes) {
  for (const AISignInViewMode mode : {kAISignInViewModeSafariWebView, kAISignInViewModeWebView}) {
    Harness h;
    h.presenter->setInAppBrowserAvailable(true);
    h.presenter->setWebViewAvailable(true);
    h.make();
    h.manager->setSDKSignInViewMode(mode);
    h.manager->initializeSignIn(h.call());
    ASSERT_TRUE(h.presenter->showing());
    h.presenter->cancel();
    h.presenter->cancel();  // nothing is shown any more
    EXPECT_EQ(h.cancelled, std::vector<AIError>{AIError(kAIErrorUserInterrupted, "User cancelled sign in.")}) << mode;
    EXPECT_EQ(h.manager->strategy(), nullptr);
    EXPECT_EQ(h.manager->SDKSignInViewMode(), kAISignInViewModeSafariWebView);
    EXPECT_FALSE(h.error.hasErrorOccured()) << "the call's own error is the coordinator's to change";
    // A view the coordinator removes is dismissed without a cancel.
    h.manager->setSDKSignInViewMode(mode);
    h.manager->initializeSignIn(h.call());
    h.manager->removeSignInView();
    EXPECT_FALSE(h.presenter->showing());
    h.presenter->cancel();
    EXPECT_EQ(h.cancelled.size(), 1u);
  }
}

// A browser that does not open the page leaves the sign-in with code 6 and no strategy; a manager
// made over a presenter alone builds no page.
TEST(AISignInViewManager, APageThatCannotBeShownOrBuiltIsTheCallsError) {
  Harness h;
  h.presenter->setBrowserOpens(false);
  h.make();
  h.manager->initializeSignIn(h.call());
  EXPECT_EQ(h.error, AIError(kAIInvalidInput, std::string(kAIMessageInvalidSignInURL)));
  EXPECT_EQ(h.manager->strategy(), nullptr);
  const auto context = test::ClientFixture::context(AICallMethod::authorizeUser);
  h.manager->initializeSignIn(context);
  EXPECT_EQ(context->error(), AIError(kAIInternalError, std::string(kAIMessageInternalErrorGeneral)));
  // An address that cannot be built, with no reason given: code 6 too, and nothing is shown.
  Harness unbuilt;
  unbuilt.make();
  AISignInCall call = unbuilt.call();
  call.buildURLString = [](bool) -> std::optional<std::string> { return std::nullopt; };
  unbuilt.manager->initializeSignIn(std::move(call));
  EXPECT_EQ(unbuilt.error, AIError(kAIInvalidInput, std::string(kAIMessageInvalidSignInURL)));
  EXPECT_TRUE(unbuilt.presenter->opened().empty());
}

TEST(AIWebViewSignInStrategy, TitlesNameThePageByItsPath) {
  const std::pair<const char*, std::optional<std::string>> rows[] = {
      {"/ap/forgotpassword", "Forgot Password"}, {"/ap/signin?forgotpassword", "Forgot Password"},
      {"/ap/REGISTER", "Register"}, {"/ap/signin/Register", "Register"}, {"/ap/signin", "Sign In"},
      {"/ap/ForgotPassword", std::nullopt}, {"/ap/SignIn", std::nullopt}, {"/ap/regist", std::nullopt}, {"", std::nullopt}};
  for (const auto& [path, title] : rows) EXPECT_EQ(AIWebViewSignInStrategy::titleForPagePath(path), title) << path;
}

// A presenter that outlives the manager must not call into it once it is gone.
TEST(AISignInViewManager, ReleasesThePresentersCancelHandlerWhenDestroyed) {
  class HandlerKeeper final : public platform::BrowserOnlySignInPresenter {
   public:
    bool openURL(const std::string&) override { return true; }
    void setCancelHandler(std::function<void()> h) override { handler = std::move(h); }
    std::function<void()> handler;
  };
  const auto presenter = std::make_shared<HandlerKeeper>();
  auto manager = std::make_unique<AISignInViewManager>(presenter, kScheme, kReturnTo, [](const std::string&) {});
  EXPECT_TRUE(presenter->handler);
  manager.reset();
  EXPECT_FALSE(presenter->handler);
}

}  // namespace
}  // namespace applogic::signin
