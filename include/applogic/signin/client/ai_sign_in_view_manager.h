#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "applogic/export.h"
#include "applogic/platform/sign_in_presenter.h"
#include "applogic/signin/client/ai_auth_portal_request.h"
#include "applogic/signin/client/ai_call_context.h"
#include "applogic/signin/client/ai_client_services.h"
#include "applogic/signin/client/ai_error.h"

namespace applogic::signin {

/// Sign-in view modes: where the sign-in page is shown.
using AISignInViewMode = unsigned int;
/// The client's own embedded web view (`AIWebViewSignInStrategy`).
inline constexpr AISignInViewMode kAISignInViewModeWebView = 1;
/// The external browser (`AIBrowserSignInStrategy`).
inline constexpr AISignInViewMode kAISignInViewModeBrowser = 2;
/// An in-app browser presented over the app's key window (`AISafariWebViewSignInStrategy`).
inline constexpr AISignInViewMode kAISignInViewModeSafariWebView = 3;
/// The Amazon shopping app, by single sign-on (`AIFirstPartyAppSignInStrategy`).
inline constexpr AISignInViewMode kAISignInViewModeFirstPartyApp = 4;

/// One way of showing the sign-in page. A strategy lives from `initializeSignIn` to
/// `removeSignInView`. Main thread.
class APPLOGIC_EXPORT AISignInStrategy {
 public:
  virtual ~AISignInStrategy() = default;
  /// Shows the page at `URLString`. Returns true when it could start; false when it could not
  /// (writing the reason into `error` where the strategy names one).
  virtual bool initializeSignIn(AIError& error, const std::string& URLString) = 0;
  /// Removes what `initializeSignIn` showed, if anything is still shown.
  virtual void removeSignInView() = 0;
};

/// Opens the page in the system's browser. When it cannot be opened: code 6 "Invalid Sign In
/// URL." and false.
class APPLOGIC_EXPORT AIBrowserSignInStrategy final : public AISignInStrategy {
 public:
  explicit AIBrowserSignInStrategy(std::shared_ptr<platform::SignInPresenter> presenter);
  bool initializeSignIn(AIError& error, const std::string& URLString) override;
  void removeSignInView() override {}

 private:
  std::shared_ptr<platform::SignInPresenter> presenter_;
};

/// Opens the Amazon app's single-sign-on scheme followed by the URL string; true when the system
/// opened it (an app is registered for the scheme).
class APPLOGIC_EXPORT AIFirstPartyAppSignInStrategy final : public AISignInStrategy {
 public:
  AIFirstPartyAppSignInStrategy(std::shared_ptr<platform::SignInPresenter> presenter, std::string singleSignOnScheme);
  bool initializeSignIn(AIError& error, const std::string& URLString) override;
  void removeSignInView() override {}

 private:
  std::shared_ptr<platform::SignInPresenter> presenter_;
  std::string scheme_;
};

/// Presents the page in the host's in-app browser; false when the host has none.
/// `removeSignInView` dismisses it.
class APPLOGIC_EXPORT AISafariWebViewSignInStrategy final : public AISignInStrategy {
 public:
  explicit AISafariWebViewSignInStrategy(std::shared_ptr<platform::SignInPresenter> presenter);
  bool initializeSignIn(AIError& error, const std::string& URLString) override;
  void removeSignInView() override;

 private:
  std::shared_ptr<platform::SignInPresenter> presenter_;
  bool shown_ = false;
};

/// Shows the page in the host's embedded web view, which hands every address of the redirect
/// address's scheme to `onRedirect` instead of loading it; false when the host has no web
/// view or there is no redirect address. `removeSignInView` dismisses it.
class APPLOGIC_EXPORT AIWebViewSignInStrategy final : public AISignInStrategy {
 public:
  AIWebViewSignInStrategy(std::shared_ptr<platform::SignInPresenter> presenter, std::optional<std::string> returnToURL,
                          std::function<void(const std::string& url)> onRedirect);
  bool initializeSignIn(AIError& error, const std::string& URLString) override;
  void removeSignInView() override;

  /// The title the web view shows for a page at `path`: "Forgot Password" when the path contains
  /// "forgotpassword", else "Register" when it contains "register" in any letter case, else
  /// "Sign In" when it contains "signin"; absent otherwise. Pure.
  static std::optional<std::string> titleForPagePath(std::string_view path);

 private:
  std::shared_ptr<platform::SignInPresenter> presenter_;
  std::optional<std::string> returnToURL_;
  std::function<void(const std::string&)> onRedirect_;
  bool shown_ = false;
};

/// One sign-in, as the view manager sees it: the call's error, whether it signs in against the
/// sandbox, how to build the sign-in page's address, and what ends the call when the user
/// cancels.
struct APPLOGIC_EXPORT AISignInCall {
  /// The call's error object, used during `initializeSignIn` only. Never null.
  AIError* error = nullptr;
  /// The call's option "sandbox_mode".
  bool sandbox = false;
  /// Builds the sign-in page's address (the single-sign-on variant when the flag is set) with a
  /// fresh proof-key challenge, registering the call under its state. Absent after writing the
  /// reason into the error.
  std::function<std::optional<std::string>(bool singleSignOn)> buildURLString;
  /// Runs, at most once, when the user closes the in-app browser or the web view before the
  /// sign-in ended, with the error code 3 "User cancelled sign in.", after the view manager
  /// removed the sign-in view: the coordinator writes it into the call's error and ends the
  /// call as failed.
  std::function<void(const AIError& cancelled)> onCancelled;
};

/// Chooses how the sign-in page is shown and shows it, through the platform's `SignInPresenter`.
///
/// Two modes choose the strategy: the primary mode is tried first (4, the first-party app, by
/// default) and the default mode after it (3, the in-app browser, when the host has one,
/// otherwise 2, the browser). A strategy that cannot start falls back to the next. The modes go
/// back to these values whenever the sign-in view is removed.
///
/// Thread contract: main thread only, like the presenter; the handlers it installs run there.
class APPLOGIC_EXPORT AISignInViewManager {
 public:
  /// `singleSignOnScheme` is the Amazon app's single-sign-on scheme, which the sign-in address is
  /// appended to; `returnToURL` is the app's redirect address, which the embedded web view
  /// catches; `onWebViewRedirect` receives the redirects it caught.
  AISignInViewManager(std::shared_ptr<platform::SignInPresenter> presenter, std::string singleSignOnScheme,
                      std::optional<std::string> returnToURL,
                      std::function<void(const std::string& url)> onWebViewRedirect);
  /// The client's manager: the presenter is the platform's `signInPresenter`, the single-sign-on
  /// scheme `ClientConfiguration::singleSignOnScheme`, the address to return to the app's
  /// redirect address (`AIUtils::getRedirectToUrl`). Sign-in requests register their call in
  /// `openIdRequestStates` (the coordinator's, which outlives the manager; null registers
  /// nothing).
  AISignInViewManager(std::shared_ptr<const AIClientServices> services, AIOpenIdRequestStates* openIdRequestStates,
                      std::function<void(const std::string& url)> onWebViewRedirect);
  ~AISignInViewManager();
  AISignInViewManager(const AISignInViewManager&) = delete;
  AISignInViewManager& operator=(const AISignInViewManager&) = delete;

  /// Builds the ordinary sign-in address and shows it; stops when building it set an error.
  /// In the sandbox: the in-app browser, else the browser. Otherwise: with primary mode 4, the
  /// single-sign-on address is built and the first-party app tried; then, with default mode 3,
  /// the in-app browser with the address last built; then the web view when the default mode is
  /// 1, else the browser, with that address. A web view the host does not have falls back to the
  /// browser. A failure of the last strategy is left in the call's error.
  void initializeSignIn(AISignInCall call);

  /// `initializeSignIn:` for a call context of the client (needs the services constructor): the
  /// address is `buildURLString(context, flag)`; a cancellation writes code 3 into the context's
  /// error and hands the context to the handler of `setOnSignInCancelled`.
  void initializeSignIn(const std::shared_ptr<AICallContext>& context);

  /// What ends a cancelled call (the coordinator's `processCallContext:SignInSuccessful:` with
  /// NO); it runs after the context's error became code 3.
  void setOnSignInCancelled(std::function<void(const std::shared_ptr<AICallContext>&)> handler) {
    onSignInCancelled_ = std::move(handler);
  }

  /// `build3POpenIdRequest:forSignInMode:`: the single-sign-on request when `singleSignOn` is
  /// set, the ordinary one otherwise; it becomes `request()`. Null (with the reason in the
  /// context's error) when the app has no redirect address or client id.
  AI3POpenIdRequest* build3POpenIdRequest(const std::shared_ptr<AICallContext>& context, bool singleSignOn);

  /// `buildURLString:forSignInMode:`: builds the request, sets up the proof key (the app's own
  /// challenge and method when the option "return_authorization_code" is true, otherwise a new
  /// verifier), adds "code_challenge" and, when there is one, "code_challenge_method" to the
  /// request's parameters, and answers "<sign-in page>?<encoded parameter list>". Absent when the
  /// request could not be built (the context's error says why).
  std::optional<std::string> buildURLString(const std::shared_ptr<AICallContext>& context, bool singleSignOn);

  /// The sign-in request built last; null before the first.
  const AI3POpenIdRequest* request() const noexcept { return request_.get(); }

  /// Asks the current strategy to remove its view, drops it and resets the modes. Nothing to
  /// remove is fine.
  void removeSignInView();

  /// Primary mode 4; default mode 3 when the host has an in-app browser, otherwise 2.
  void resetViewModes();

  void setSDKSignInViewMode(AISignInViewMode mode) { SDKSignInViewMode_ = mode; }
  void setSDKPriSignInViewMode(AISignInViewMode mode) { SDKPriSignInViewMode_ = mode; }
  AISignInViewMode SDKSignInViewMode() const noexcept { return SDKSignInViewMode_; }
  AISignInViewMode SDKPriSignInViewMode() const noexcept { return SDKPriSignInViewMode_; }

  /// The strategy showing the page now; null when none is.
  const AISignInStrategy* strategy() const noexcept { return strategy_.get(); }

 private:
  bool tryStrategy(std::unique_ptr<AISignInStrategy> strategy, AIError& error, const std::string& url);
  void onPresenterCancel();

  std::shared_ptr<const AIClientServices> services_;  // null with the first constructor
  AIOpenIdRequestStates* openIdRequestStates_ = nullptr;
  std::unique_ptr<AI3POpenIdRequest> request_;
  std::function<void(const std::shared_ptr<AICallContext>&)> onSignInCancelled_;
  std::shared_ptr<platform::SignInPresenter> presenter_;
  std::string singleSignOnScheme_;
  std::optional<std::string> returnToURL_;
  std::function<void(const std::string&)> onWebViewRedirect_;
  std::unique_ptr<AISignInStrategy> strategy_;
  AISignInViewMode SDKSignInViewMode_ = kAISignInViewModeBrowser;
  AISignInViewMode SDKPriSignInViewMode_ = kAISignInViewModeFirstPartyApp;
  // The cancellation of the call whose view is shown.
  std::function<void(const AIError&)> onCancelled_;
};

}  // namespace applogic::signin
