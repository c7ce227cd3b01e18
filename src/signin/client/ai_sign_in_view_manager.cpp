#include "applogic/signin/client/ai_sign_in_view_manager.h"

#include <utility>

#include "applogic/support/strings.h"

namespace applogic::signin {

AIBrowserSignInStrategy::AIBrowserSignInStrategy(std::shared_ptr<platform::SignInPresenter> presenter)
    : presenter_(std::move(presenter)) {}

bool AIBrowserSignInStrategy::initializeSignIn(AIError& error, const std::string& URLString) {
  if (presenter_ && presenter_->openURL(URLString)) return true;
  error.setError(kAIInvalidInput, std::string(kAIMessageInvalidSignInURL));
  return false;
}

AIFirstPartyAppSignInStrategy::AIFirstPartyAppSignInStrategy(std::shared_ptr<platform::SignInPresenter> presenter,
                                                             std::string singleSignOnScheme)
    : presenter_(std::move(presenter)), scheme_(std::move(singleSignOnScheme)) {}

bool AIFirstPartyAppSignInStrategy::initializeSignIn(AIError&, const std::string& URLString) {
  const std::string url = scheme_ + URLString;
  return presenter_ && presenter_->canOpenAppURL(url) && presenter_->openAppURL(url);
}

AISafariWebViewSignInStrategy::AISafariWebViewSignInStrategy(std::shared_ptr<platform::SignInPresenter> presenter)
    : presenter_(std::move(presenter)) {}

bool AISafariWebViewSignInStrategy::initializeSignIn(AIError&, const std::string& URLString) {
  shown_ = presenter_ && presenter_->inAppBrowserAvailable() && presenter_->presentInAppBrowser(URLString);
  return shown_;
}

void AISafariWebViewSignInStrategy::removeSignInView() {
  if (std::exchange(shown_, false)) presenter_->dismiss();
}

AIWebViewSignInStrategy::AIWebViewSignInStrategy(std::shared_ptr<platform::SignInPresenter> presenter,
                                                 std::optional<std::string> returnToURL,
                                                 std::function<void(const std::string&)> onRedirect)
    : presenter_(std::move(presenter)), returnToURL_(std::move(returnToURL)), onRedirect_(std::move(onRedirect)) {}

bool AIWebViewSignInStrategy::initializeSignIn(AIError&, const std::string& URLString) {
  if (!presenter_ || !returnToURL_ || returnToURL_->empty() || !presenter_->webViewAvailable()) return false;
  // The handler may outlive this strategy inside the host's view; it holds its own copy.
  shown_ = presenter_->presentWebView(URLString, *returnToURL_, [onRedirect = onRedirect_](const std::string& url) {
    if (onRedirect) onRedirect(url);
  });
  return shown_;
}

void AIWebViewSignInStrategy::removeSignInView() {
  if (std::exchange(shown_, false)) presenter_->dismiss();
}

std::optional<std::string> AIWebViewSignInStrategy::titleForPagePath(std::string_view path) {
  if (path.find("forgotpassword") != std::string_view::npos) return "Forgot Password";
  if (asciiLowercase(path).find("register") != std::string::npos) return "Register";
  if (path.find("signin") != std::string_view::npos) return "Sign In";
  return std::nullopt;
}

AISignInViewManager::AISignInViewManager(std::shared_ptr<platform::SignInPresenter> presenter,
                                         std::string singleSignOnScheme, std::optional<std::string> returnToURL,
                                         std::function<void(const std::string&)> onWebViewRedirect)
    : presenter_(std::move(presenter)),
      singleSignOnScheme_(std::move(singleSignOnScheme)),
      returnToURL_(std::move(returnToURL)),
      onWebViewRedirect_(std::move(onWebViewRedirect)) {
  resetViewModes();
  // `this` is safe: the destructor removes the handler before the manager goes.
  if (presenter_) presenter_->setCancelHandler([this] { onPresenterCancel(); });
}

AISignInViewManager::AISignInViewManager(std::shared_ptr<const AIClientServices> services,
                                         AIOpenIdRequestStates* openIdRequestStates,
                                         std::function<void(const std::string&)> onWebViewRedirect)
    : AISignInViewManager(services->platform().signInPresenter, services->configuration().singleSignOnScheme,
                          services->utils().getRedirectToUrl(), std::move(onWebViewRedirect)) {
  services_ = std::move(services);
  openIdRequestStates_ = openIdRequestStates;
}

AISignInViewManager::~AISignInViewManager() {
  if (presenter_) presenter_->setCancelHandler(nullptr);
}

void AISignInViewManager::resetViewModes() {
  SDKPriSignInViewMode_ = kAISignInViewModeFirstPartyApp;
  SDKSignInViewMode_ = presenter_ && presenter_->inAppBrowserAvailable() ? kAISignInViewModeSafariWebView
                                                                          : kAISignInViewModeBrowser;
}

bool AISignInViewManager::tryStrategy(std::unique_ptr<AISignInStrategy> strategy, AIError& error,
                                      const std::string& url) {
  if (!strategy->initializeSignIn(error, url)) return false;
  strategy_ = std::move(strategy);
  return true;
}

void AISignInViewManager::initializeSignIn(AISignInCall call) {
  AIError& error = *call.error;
  std::optional<std::string> url = call.buildURLString ? call.buildURLString(false) : std::nullopt;
  if (error.hasErrorOccured()) return;
  if (!url) {
    error.setError(kAIInvalidInput, std::string(kAIMessageInvalidSignInURL));
    return;
  }
  onCancelled_ = std::move(call.onCancelled);
  auto safari = [&] { return std::make_unique<AISafariWebViewSignInStrategy>(presenter_); };
  auto browser = [&] { return std::make_unique<AIBrowserSignInStrategy>(presenter_); };

  if (call.sandbox) {
    if (!tryStrategy(safari(), error, *url)) tryStrategy(browser(), error, *url);
    return;
  }
  if (SDKPriSignInViewMode_ == kAISignInViewModeFirstPartyApp) {
    // The address last built is the one every later strategy shows: building regenerates the
    // proof key, so only the newest address carries the challenge that matches the verifier.
    if (auto singleSignOn = call.buildURLString(true)) url = std::move(singleSignOn);
    if (error.hasErrorOccured()) return;
    if (tryStrategy(std::make_unique<AIFirstPartyAppSignInStrategy>(presenter_, singleSignOnScheme_), error, *url)) {
      return;
    }
  }
  if (SDKSignInViewMode_ == kAISignInViewModeSafariWebView && tryStrategy(safari(), error, *url)) return;
  if (SDKSignInViewMode_ == kAISignInViewModeWebView &&
      tryStrategy(std::make_unique<AIWebViewSignInStrategy>(presenter_, returnToURL_, onWebViewRedirect_), error,
                  *url)) {
    return;
  }
  tryStrategy(browser(), error, *url);
}

AI3POpenIdRequest* AISignInViewManager::build3POpenIdRequest(const std::shared_ptr<AICallContext>& context,
                                                              bool singleSignOn) {
  if (!services_) return nullptr;
  request_ = singleSignOn ? AI3POpenIdRequest::initWithCallContextSSO(services_, context, openIdRequestStates_)
                          : AI3POpenIdRequest::initWithCallContext(services_, context, openIdRequestStates_);
  return request_.get();
}

std::optional<std::string> AISignInViewManager::buildURLString(const std::shared_ptr<AICallContext>& context,
                                                               bool singleSignOn) {
  if (!services_) {  // a manager made over a presenter alone builds no requests
    context->error().setError(kAIInternalError, std::string(kAIMessageInternalErrorGeneral));
    return std::nullopt;
  }
  AI3POpenIdRequest* request = build3POpenIdRequest(context, singleSignOn);
  if (request == nullptr) return std::nullopt;
  const std::shared_ptr<AISPOP> spop = services_->spop();
  if (context->boolOption(kAIOptionReturnAuthorizationCode)) {
    const auto challenge = context->stringOption(kAIOptionCodeChallenge);
    const auto method = context->stringOption(kAIOptionCodeChallengeMethod);
    spop->generateWithChallenge(challenge ? std::optional<std::string>(*challenge) : std::nullopt,
                                method ? std::optional<std::string>(*method) : std::nullopt);
  } else {
    spop->regenerateSpop();
  }
  if (!spop->spopChallenge()) {
    // No proof key (the secure random source failed): a page without a challenge would let a
    // stolen code be exchanged by anyone, so none is shown.
    context->error().setError(kAIInternalError, std::string(kAIMessageInternalErrorGeneral));
    return std::nullopt;
  }
  request->mParams()[std::string(CODE_CHALLENGE)] = *spop->spopChallenge();
  if (spop->spopMethod()) request->mParams()[std::string(CODE_CHALLENGE_METHOD)] = *spop->spopMethod();
  const std::optional<std::string> base = request->getBaseUrlWithOption(*context);
  if (!base) return std::nullopt;
  return *base + "?" + AIAuthPortalRequest::buildParamList(request->getParameters(*context), true);
}

void AISignInViewManager::initializeSignIn(const std::shared_ptr<AICallContext>& context) {
  AISignInCall call;
  call.error = &context->error();
  call.sandbox = context->isSandbox();
  // `this` is safe: the call's handlers live in this manager (or in a strategy it owns) only.
  call.buildURLString = [this, context](bool singleSignOn) { return buildURLString(context, singleSignOn); };
  call.onCancelled = [this, context](const AIError& cancelled) {
    context->error().setErrorWithError(cancelled);
    if (onSignInCancelled_) onSignInCancelled_(context);
  };
  initializeSignIn(std::move(call));
}

void AISignInViewManager::removeSignInView() {
  if (auto strategy = std::move(strategy_)) strategy->removeSignInView();
  onCancelled_ = nullptr;
  resetViewModes();
}

void AISignInViewManager::onPresenterCancel() {
  if (!strategy_) return;
  auto cancelled = std::exchange(onCancelled_, nullptr);
  removeSignInView();
  if (cancelled) cancelled(AIError(kAIErrorUserInterrupted, std::string(kAIMessageUserInterupted)));
}

}  // namespace applogic::signin
