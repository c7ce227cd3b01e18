#include "applogic/signin/client/ai_sign_in_view_manager.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "applogic/testing/scripted_sign_in_presenter.h"
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
  std::vector<std::string> redirects;
  std::unique_ptr<AISignInViewManager> manager;
  AIError error;
  int builds = 0;
  std::optional<AIError> cancelled;
  int cancelCount = 0;

  void make() {
    manager = std::make_unique<AISignInViewManager>(presenter, kScheme, kReturnTo,
                                                    [this](const std::string& url) { redirects.push_back(url); });
  }
  AISignInCall call(bool sandbox = false) {
    AISignInCall c;
    c.error = &error;
    c.sandbox = sandbox;
    c.buildURLString = [this](bool singleSignOn) -> std::optional<std::string> {
      return addressOf(++builds, singleSignOn);
    };
    c.onCancelled = [this](const AIError& e) {
      cancelled = e;
      ++cancelCount;
    };
    return c;
  }
};

TEST(SignInViewModes, ShowTheFirstStrategyThatStarts) {
  struct Row {
    const char* name;
    bool sandbox;
    bool appInstalled;
    bool inAppBrowser;
    bool webView;
    std::optional<AISignInViewMode> defaultMode;  // absent: the mode after reset
    std::vector<ScriptedSignInPresenter::Opened> opened;
  };
  const std::string kSso = std::string(kScheme) + addressOf(2, true);
  const Row rows[] = {
      // The Linux host: only the browser. The first-party app was tried, so the browser shows
      // the single-sign-on address, the one built last.
      {"browserOnly", false, false, false, false, std::nullopt, {{Kind::browser, addressOf(2, true)}}},
      {"appInstalled", false, true, true, true, std::nullopt, {{Kind::app, kSso}}},
      {"noAppWithInAppBrowser", false, false, true, false, std::nullopt,
        {{Kind::inAppBrowser, addressOf(2, true)}}},
      {"sandboxNeverTriesTheApp", true, true, true, false, std::nullopt,
        {{Kind::inAppBrowser, addressOf(1, false)}}},
      {"sandboxWithoutInAppBrowser", true, true, false, false, std::nullopt,
        {{Kind::browser, addressOf(1, false)}}},
      {"defaultWebViewWithoutApp", false, false, true, true, kAISignInViewModeWebView,
        {{Kind::webView, addressOf(2, true)}}},
      {"defaultWebViewTheHostLacks", false, false, false, false, kAISignInViewModeWebView,
        {{Kind::browser, addressOf(2, true)}}},
      {"defaultInAppBrowserTheHostLacks", false, false, false, false, kAISignInViewModeSafariWebView,
        {{Kind::browser, addressOf(2, true)}}}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Harness h;
    h.presenter->setInAppBrowserAvailable(row.inAppBrowser);
    h.presenter->setWebViewAvailable(row.webView);
    if (row.appInstalled) h.presenter->installApp("amazon-sso-test");
    h.make();
    if (row.defaultMode) h.manager->setSDKSignInViewMode(*row.defaultMode);
    h.manager->initializeSignIn(h.call(row.sandbox));
    EXPECT_EQ(h.presenter->opened(), row.opened);
    EXPECT_FALSE(h.error.hasErrorOccured()) << h.error.message();
    EXPECT_NE(h.manager->strategy(), nullptr);
  }
}

TEST(AISignInViewManager, ResetsTheModesByWhatTheHostOffers) {
  for (const bool inAppBrowser : {false, true}) {
    Harness h;
    h.presenter->setInAppBrowserAvailable(inAppBrowser);
    h.make();
    EXPECT_EQ(h.manager->SDKPriSignInViewMode(), kAISignInViewModeFirstPartyApp);
    EXPECT_EQ(h.manager->SDKSignInViewMode(), inAppBrowser ? kAISignInViewModeSafariWebView : kAISignInViewModeBrowser);
    h.manager->setSDKPriSignInViewMode(kAISignInViewModeBrowser);
    h.manager->setSDKSignInViewMode(kAISignInViewModeWebView);
    h.manager->removeSignInView();  // also with nothing shown
    EXPECT_EQ(h.manager->SDKPriSignInViewMode(), kAISignInViewModeFirstPartyApp);
    EXPECT_EQ(h.manager->SDKSignInViewMode(), inAppBrowser ? kAISignInViewModeSafariWebView : kAISignInViewModeBrowser);
  }
}

TEST(AISignInViewManager, APrimaryModeOtherThanTheAppBuildsOnlyTheOrdinaryAddress) {
  Harness h;
  h.presenter->installApp("amazon-sso-test");
  h.make();
  h.manager->setSDKPriSignInViewMode(kAISignInViewModeBrowser);
  h.manager->initializeSignIn(h.call());
  EXPECT_EQ(h.builds, 1);
  EXPECT_EQ(h.presenter->opened(), (std::vector<ScriptedSignInPresenter::Opened>{{Kind::browser, addressOf(1, false)}}));
}

TEST(AISignInViewManager, StopsWhenTheAddressCannotBeBuilt) {
  Harness h;
  h.make();
  AISignInCall call = h.call();
  call.buildURLString = [&](bool) -> std::optional<std::string> {
    h.error.setError(kAIInvalidInput, std::string(kAIMessageInvalidRedirectURI));
    return std::nullopt;
  };
  h.manager->initializeSignIn(std::move(call));
  EXPECT_TRUE(h.presenter->opened().empty());
  EXPECT_EQ(h.error, AIError(kAIInvalidInput, std::string(kAIMessageInvalidRedirectURI)));
  EXPECT_EQ(h.manager->strategy(), nullptr);
}

TEST(AISignInViewManager, ABrowserThatCannotOpenIsAnInvalidSignInUrl) {
  Harness h;
  h.presenter->setBrowserOpens(false);
  h.make();
  h.manager->initializeSignIn(h.call());
  EXPECT_EQ(h.error, AIError(kAIInvalidInput, std::string(kAIMessageInvalidSignInURL)));
  EXPECT_EQ(h.manager->strategy(), nullptr);
}

TEST(AISignInViewManager, ClosingTheViewCancelsWithCode3Once) {
  for (const AISignInViewMode mode : {kAISignInViewModeSafariWebView, kAISignInViewModeWebView}) {
    Harness h;
    h.presenter->setInAppBrowserAvailable(true);
    h.presenter->setWebViewAvailable(true);
    h.make();
    h.manager->setSDKSignInViewMode(mode);
    h.manager->initializeSignIn(h.call());
    ASSERT_TRUE(h.presenter->showing());
    h.presenter->cancel();
    EXPECT_EQ(h.cancelled, AIError(kAIErrorUserInterrupted, "User cancelled sign in.")) << mode;
    EXPECT_EQ(h.manager->strategy(), nullptr);
    EXPECT_EQ(h.manager->SDKSignInViewMode(), kAISignInViewModeSafariWebView);  // reset
    h.presenter->cancel();  // nothing is shown any more
    EXPECT_EQ(h.cancelCount, 1);
    // The call's own error is the coordinator's to change.
    EXPECT_FALSE(h.error.hasErrorOccured());
  }
}

TEST(AISignInViewManager, RemovingTheViewDismissesItWithoutCancelling) {
  Harness h;
  h.presenter->setInAppBrowserAvailable(true);
  h.make();
  h.manager->initializeSignIn(h.call());
  ASSERT_TRUE(h.presenter->showing());
  h.manager->removeSignInView();
  EXPECT_FALSE(h.presenter->showing());
  EXPECT_EQ(h.presenter->dismissCount(), 1);
  h.presenter->cancel();
  EXPECT_EQ(h.cancelCount, 0);
}

TEST(AISignInViewManager, TheWebViewHandsItsRedirectToTheCoordinator) {
  Harness h;
  h.presenter->setWebViewAvailable(true);
  h.make();
  h.manager->setSDKSignInViewMode(kAISignInViewModeWebView);
  h.manager->initializeSignIn(h.call());
  EXPECT_EQ(h.presenter->returnToURL(), kReturnTo);
  EXPECT_FALSE(h.presenter->navigateWebView("https://signin.test/ap/signin"));
  // The server may order the query as it likes: the app's scheme is what marks the redirect.
  const std::string redirect = "AMZN-app.tunevo.test://?code=C&state=S&methodName=signin";
  EXPECT_TRUE(h.presenter->navigateWebView(redirect));
  EXPECT_EQ(h.redirects, std::vector<std::string>{redirect});
}

TEST(AIWebViewSignInStrategy, TitlesPagesByTheirPath) {
  struct Row {
    const char* path;
    std::optional<std::string> title;
  };
  for (const Row& row : {Row{"/ap/forgotpassword", "Forgot Password"}, Row{"/ap/REGISTER", "Register"},
                         Row{"/ap/signin/register", "Register"}, Row{"/ap/signin", "Sign In"},
                         Row{"/ap/SignIn", std::nullopt}, Row{"/ap/ForgotPassword", std::nullopt},
                         Row{"/ap/oa", std::nullopt}, Row{"", std::nullopt}}) {
    EXPECT_EQ(AIWebViewSignInStrategy::titleForPagePath(row.path), row.title) << row.path;
  }
}

}  // namespace
}  // namespace applogic::signin

namespace applogic::signin {
namespace {

using testing::ScriptedSignInPresenter;

struct ClientHarness {
  test::ClientFixture f;
  std::shared_ptr<ScriptedSignInPresenter> presenter = std::make_shared<ScriptedSignInPresenter>();
  AIOpenIdRequestStates states;
  std::vector<std::shared_ptr<AICallContext>> ended;
  std::unique_ptr<AISignInViewManager> manager;

  ClientHarness() {
    f.platform.signInPresenter = presenter;
    manager = std::make_unique<AISignInViewManager>(f.services(), &states, [](const std::string&) {});
    manager->setOnSignInCancelled([this](const std::shared_ptr<AICallContext>& c) { ended.push_back(c); });
  }
  std::shared_ptr<AISPOP> spop() const { return AISPOP::spop(f.platform.secureRandom, f.platform.crypto); }
};

TEST(AISignInViewManagerClient, TheAddressCarriesTheStateAndAFreshChallenge) {
  ClientHarness h;
  const auto context = test::ClientFixture::context(AICallMethod::authorizeUser);
  const auto first = h.manager->buildURLString(context, false);
  ASSERT_TRUE(first) << context->error().message();
  const std::string firstVerifier = h.spop()->spopKey().value_or("");
  const auto params = AIUtils::getKeyValueDictionaryParseString(*first);
  EXPECT_EQ(first->rfind("https://signin.test/ap/oa?", 0), 0u) << *first;
  EXPECT_EQ(params.at("state"), context->UID());
  EXPECT_EQ(params.at("redirect_uri"), test::kRedirect);
  EXPECT_EQ(params.at("code_challenge"), h.spop()->getSHA256HashStringFrom(firstVerifier));
  EXPECT_EQ(params.at("code_challenge_method"), "S256");
  EXPECT_EQ(params.count("sso.version"), 0u);
  EXPECT_EQ(h.states.at(context->UID()), context);
  ASSERT_NE(h.manager->request(), nullptr);
  EXPECT_EQ(h.manager->request()->mParams().at("code_challenge"), params.at("code_challenge"));

  const auto sso = h.manager->buildURLString(context, true);
  ASSERT_TRUE(sso);
  EXPECT_NE(h.spop()->spopKey(), firstVerifier);  // every address gets its own verifier
  EXPECT_EQ(AIUtils::getKeyValueDictionaryParseString(*sso).at("sso.version"), "2.0");
}

TEST(AISignInViewManagerClient, AnAppThatKeepsItsVerifierSendsItsOwnChallenge) {
  ClientHarness h;
  JsonObject options;
  options["return_authorization_code"] = true;
  options["code_challenge"] = "app-challenge";
  options["code_challenge_method"] = "plain";
  const auto context = test::ClientFixture::context(AICallMethod::authorizeUser, {"profile"}, options);
  const auto url = h.manager->buildURLString(context, false);
  ASSERT_TRUE(url);
  const auto params = AIUtils::getKeyValueDictionaryParseString(*url);
  EXPECT_EQ(params.at("code_challenge"), "app-challenge");
  EXPECT_EQ(params.at("code_challenge_method"), "plain");
}

TEST(AISignInViewManagerClient, OnLinuxTheBrowserShowsThePageAndNothingCanCancel) {
  ClientHarness h;  // the scripted presenter as the Linux one: the browser only
  const auto context = test::ClientFixture::context(AICallMethod::authorizeUser);
  h.manager->initializeSignIn(context);
  ASSERT_EQ(h.presenter->opened().size(), 1u);
  EXPECT_EQ(h.presenter->opened()[0].kind, ScriptedSignInPresenter::Kind::browser);
  EXPECT_EQ(AIUtils::getKeyValueDictionaryParseString(h.presenter->opened()[0].url).at("state"), context->UID());
  EXPECT_FALSE(context->error().hasErrorOccured());
}

TEST(AISignInViewManagerClient, CancellingWritesCode3IntoTheCallAndEndsIt) {
  ClientHarness h;
  h.presenter->setInAppBrowserAvailable(true);
  h.manager->resetViewModes();
  const auto context = test::ClientFixture::context(AICallMethod::authorizeUser);
  h.manager->initializeSignIn(context);
  ASSERT_TRUE(h.presenter->showing());
  h.presenter->cancel();
  EXPECT_EQ(context->error(), AIError(kAIErrorUserInterrupted, "User cancelled sign in."));
  EXPECT_EQ(h.ended, std::vector<std::shared_ptr<AICallContext>>{context});
}

TEST(AISignInViewManagerClient, WithoutARedirectAddressNothingIsShown) {
  ClientHarness h;
  h.f.bundle->set("CFBundleIdentifier", std::nullopt);
  h.manager = std::make_unique<AISignInViewManager>(h.f.services(), &h.states, [](const std::string&) {});
  const auto context = test::ClientFixture::context(AICallMethod::authorizeUser);
  h.manager->initializeSignIn(context);
  EXPECT_EQ(context->error(), AIError(kAIInvalidInput, "Redirect to uri is invalid."));
  EXPECT_TRUE(h.presenter->opened().empty());
  EXPECT_TRUE(h.states.empty());
}

}  // namespace
}  // namespace applogic::signin
