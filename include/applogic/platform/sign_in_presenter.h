#pragma once

#include <functional>
#include <string>

#include "applogic/export.h"

namespace applogic::platform {

/// Shows the authorization server's sign-in page: in the system browser, in another app through
/// its URL scheme, or, where the host offers them, in an in-app browser or in an embedded web
/// view. The answer of the page comes back to the app through its URL scheme (or, for the web
/// view, through the redirect handler given to `presentWebView`).
///
/// Thread contract: every method is called on the main thread; the handlers run on the main
/// thread, never inside the call that installed them.
class APPLOGIC_EXPORT SignInPresenter {
 public:
  virtual ~SignInPresenter() = default;

  /// Asks the system to open `url` with its browser. Returns false when that could not even be
  /// started (no browser, an empty address); true means the browser was asked, not that the
  /// page loaded.
  virtual bool openURL(const std::string& url) = 0;

  /// True when an app other than the browser is registered for the scheme of `url`, so that
  /// `openAppURL` can hand it over.
  virtual bool canOpenAppURL(const std::string& url) const = 0;

  /// Opens `url` in the app registered for its scheme. Returns false when no app handles the
  /// scheme or the app could not be started.
  virtual bool openAppURL(const std::string& url) = 0;

  /// True when the host can show web pages in an in-app browser (the browser's engine inside
  /// the app's own window, with its cookies).
  virtual bool inAppBrowserAvailable() const = 0;

  /// Presents `url` in the in-app browser, animated, over the app's key window. Returns false
  /// when there is no in-app browser or nothing to present it from.
  virtual bool presentInAppBrowser(const std::string& url) = 0;

  /// True when the host can show an embedded web view whose navigation the library follows.
  virtual bool webViewAvailable() const = 0;

  /// Shows `url` in the embedded web view. When a load or a redirect of the view leads to an
  /// address of the same scheme as `returnToURL` (compared without letter case; the app's own
  /// scheme, which no web page can show), the view does not load it: it calls `onReturn` with the
  /// whole address, once per such address. Returns false when there is no web view.
  virtual bool presentWebView(const std::string& url, const std::string& returnToURL,
                              std::function<void(const std::string& url)> onReturn) = 0;

  /// Dismisses the in-app browser or the web view, whichever is shown; nothing when neither is.
  /// Dismissing is not a cancellation: the cancel handler does not run.
  virtual void dismiss() = 0;

  /// The handler run when the user closes the in-app browser or the web view (or cancels its
  /// navigation) before the sign-in ended. Replaces the previous handler; null removes it. The
  /// browser and other apps cannot report this.
  virtual void setCancelHandler(std::function<void()> handler) = 0;
};

/// A presenter that has only the browser: no other app is offered the sign-in, there is no
/// in-app browser and no web view, so nothing is ever presented to dismiss and no cancellation
/// can be reported. Subclasses implement `openURL`. Same thread contract as `SignInPresenter`.
class APPLOGIC_EXPORT BrowserOnlySignInPresenter : public SignInPresenter {
 public:
  bool canOpenAppURL(const std::string&) const override { return false; }
  bool openAppURL(const std::string&) override { return false; }
  bool inAppBrowserAvailable() const override { return false; }
  bool presentInAppBrowser(const std::string&) override { return false; }
  bool webViewAvailable() const override { return false; }
  bool presentWebView(const std::string&, const std::string&, std::function<void(const std::string&)>) override {
    return false;
  }
  void dismiss() override {}
  void setCancelHandler(std::function<void()>) override {}
};

}  // namespace applogic::platform
