#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/platform/sign_in_presenter.h"

namespace applogic::testing {

class FaultPlan;

/// A `SignInPresenter` that shows nothing: it records every address it was asked to open or
/// present, answers the capability questions as the test sets them, and runs the cancel handler
/// or the web view's return handler when the test says the user did so. By default the browser
/// opens anything non-empty, no other app is installed, and neither an in-app browser nor a web
/// view exists. Main thread, like the real presenters.
class ScriptedSignInPresenter final : public platform::SignInPresenter {
 public:
  enum class Kind { browser, app, inAppBrowser, webView };
  struct Opened {
    Kind kind;
    std::string url;
    friend bool operator==(const Opened&, const Opened&) = default;
  };

  bool openURL(const std::string& url) override;
  bool canOpenAppURL(const std::string& url) const override;
  bool openAppURL(const std::string& url) override;
  bool inAppBrowserAvailable() const override { return inAppBrowser_; }
  bool presentInAppBrowser(const std::string& url) override;
  bool webViewAvailable() const override { return webView_; }
  bool presentWebView(const std::string& url, const std::string& returnToURL,
                      std::function<void(const std::string&)> onReturn) override;
  void dismiss() override;
  void setCancelHandler(std::function<void()> handler) override { cancelHandler_ = std::move(handler); }

  /// Whether `openURL` succeeds (true by default).
  void setBrowserOpens(bool opens) { browserOpens_ = opens; }
  /// Registers an app for `scheme` (compared without letter case); `openAppURL` then opens
  /// addresses of that scheme.
  void installApp(std::string scheme);
  void setInAppBrowserAvailable(bool available) { inAppBrowser_ = available; }
  void setWebViewAvailable(bool available) { webView_ = available; }
  /// Makes every open or present that would succeed ask `plan` ("presenter.open") first; one the
  /// plan fails shows nothing and returns false. Null: nothing fails.
  void setFaultPlan(std::shared_ptr<FaultPlan> plan) { faults_ = std::move(plan); }

  /// What was opened or presented, in order.
  const std::vector<Opened>& opened() const { return opened_; }
  /// Whether an in-app browser or a web view is shown now (presented and not dismissed).
  bool showing() const { return showing_; }
  int dismissCount() const { return dismissCount_; }
  /// The address the shown web view returns to; empty when none is shown.
  const std::string& returnToURL() const { return returnToURL_; }

  /// The user closes the shown view: it goes away and the cancel handler runs (when set).
  void cancel();
  /// The shown web view reached `url`: its return handler runs. False when no web view is shown
  /// or `url` is not of the scheme of the address it returns to.
  bool navigateWebView(const std::string& url);

 private:
  bool fails(std::string_view site) const;

  std::shared_ptr<FaultPlan> faults_;
  bool browserOpens_ = true;
  bool inAppBrowser_ = false;
  bool webView_ = false;
  bool showing_ = false;
  int dismissCount_ = 0;
  std::set<std::string> schemes_;
  std::vector<Opened> opened_;
  std::function<void()> cancelHandler_;
  std::string returnToURL_;
  std::function<void(const std::string&)> onReturn_;
};

}  // namespace applogic::testing
