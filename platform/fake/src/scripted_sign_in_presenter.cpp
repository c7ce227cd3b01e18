#include "applogic/testing/scripted_sign_in_presenter.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "applogic/testing/fault_plan.h"

namespace applogic::testing {
namespace {

std::string lowerScheme(const std::string& url) {
  const auto colon = url.find(':');
  std::string scheme = url.substr(0, colon == std::string::npos ? 0 : colon);
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return scheme;
}

}  // namespace

bool ScriptedSignInPresenter::openURL(const std::string& url) {
  if (!browserOpens_ || url.empty() || fails("presenter.open")) return false;
  opened_.push_back({Kind::browser, url});
  return true;
}

bool ScriptedSignInPresenter::canOpenAppURL(const std::string& url) const {
  return schemes_.count(lowerScheme(url)) != 0;
}

bool ScriptedSignInPresenter::openAppURL(const std::string& url) {
  if (!canOpenAppURL(url) || fails("presenter.open")) return false;
  opened_.push_back({Kind::app, url});
  return true;
}

bool ScriptedSignInPresenter::presentInAppBrowser(const std::string& url) {
  if (!inAppBrowser_ || fails("presenter.open")) return false;
  opened_.push_back({Kind::inAppBrowser, url});
  showing_ = true;
  return true;
}

bool ScriptedSignInPresenter::presentWebView(const std::string& url, const std::string& returnToURL,
                                             std::function<void(const std::string&)> onReturn) {
  if (!webView_ || fails("presenter.open")) return false;
  opened_.push_back({Kind::webView, url});
  showing_ = true;
  returnToURL_ = returnToURL;
  onReturn_ = std::move(onReturn);
  return true;
}

bool ScriptedSignInPresenter::fails(std::string_view site) const { return faults_ && faults_->fails(site); }

void ScriptedSignInPresenter::dismiss() {
  ++dismissCount_;
  showing_ = false;
  returnToURL_.clear();
  onReturn_ = nullptr;
}

void ScriptedSignInPresenter::installApp(std::string scheme) {
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  schemes_.insert(std::move(scheme));
}

void ScriptedSignInPresenter::cancel() {
  showing_ = false;
  returnToURL_.clear();
  onReturn_ = nullptr;
  if (auto handler = cancelHandler_) handler();
}

bool ScriptedSignInPresenter::navigateWebView(const std::string& url) {
  if (!onReturn_ || lowerScheme(url).empty() || lowerScheme(url) != lowerScheme(returnToURL_)) return false;
  auto handler = onReturn_;  // the handler may dismiss the view, which drops onReturn_
  handler(url);
  return true;
}

}  // namespace applogic::testing
