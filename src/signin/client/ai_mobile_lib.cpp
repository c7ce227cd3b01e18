#include "applogic/signin/client/ai_mobile_lib.h"

#include <algorithm>
#include <cassert>

#include "applogic/signin/client/ai_app_identifier.h"
#include "applogic/support/log.h"
#include "applogic/support/strings.h"

namespace applogic::signin {
namespace {

std::shared_ptr<AIAuthPortalProxy> sharedProxy(platform::Platform platform, ClientConfiguration configuration) {
  return AIAuthPortalProxy::authPortalProxy(
      std::make_shared<AIClientServices>(std::move(platform), std::move(configuration)));
}

void checkThread(const AIAuthPortalProxy& proxy) {
#ifndef NDEBUG
  const auto& mainThread = proxy.services()->platform().mainThread;
  assert(!mainThread || mainThread->isMainThread());
#else
  (void)proxy;
#endif
}

std::shared_ptr<AICallContext> makeContext(const AIClientServices& services, AICallMethod method,
                                           const std::shared_ptr<AIAuthenticationDelegate>& delegate,
                                           JsonObject overrideParams, JsonObject options,
                                           std::shared_ptr<AIError> error, std::vector<std::string> scopes) {
  return std::make_shared<AICallContext>(method, delegate, std::move(overrideParams), std::move(options),
                                         std::move(error), std::move(scopes), services.utils().getUUID().value_or(""));
}

}  // namespace

// --- AIMobileLib ---------------------------------------------------------------------------------

AIMobileLib::AIMobileLib(platform::Platform platform, ClientConfiguration configuration)
    : proxy_(sharedProxy(std::move(platform), std::move(configuration))) {}

void AIMobileLib::authorizeUserForScopes(const std::vector<std::string>& scopes,
                                         const std::shared_ptr<AIAuthenticationDelegate>& delegate,
                                         const JsonObject& options) const {
  checkThread(*proxy_);
  const auto& services = *proxy_->services();
  auto error = std::make_shared<AIError>();
  std::vector<std::string> requested = scopes;
  AIMobileLibHelper::validateAPIKey(*error, services.utils());
  const auto context = makeContext(services, AICallMethod::authorizeUser, delegate, {}, options, error, scopes);
  AIMobileLibHelper::initializeAndValidateParamsForAuthorizeUser(*context);
  if (error->hasErrorOccured()) {
    context->fail(kAPIAuthorizeUser);  // no delegate, no answer
    return;
  }
  const auto tokens = services.tokenManager();
  const auto stored = tokens.getTokenFromStorage(kTokenTypeRefreshToken, *error);
  const auto* refreshToken = dynamic_cast<const AIRefreshToken*>(stored.get());
  // Checked before anything else on purpose, also for "return_authorization_code": a user who is
  // already authorised gets no code.
  if (refreshToken && refreshToken->isValidForScopes(scopes, *services.platform().clock)) {
    context->succeed(kAPIAuthorizeUser, nullptr);
    return;
  }
  tokens.deleteTokenFromStorageOfType(kTokenTypeProfileData, *error);
  if (refreshToken) {
    // A new sign-in never narrows what was granted before.
    AIMobileLibHelper::updateRequestedScopes(requested, refreshToken->scopes());
    context->setScopes(requested);
  }
  tokens.deleteTokenFromStorageOfType(kTokenTypeCode, *error);
  if (!error->hasErrorOccured()) {
    proxy_->callContexts().push_back(context);
    proxy_->showSignInPage(context);
  }
  if (error->hasErrorOccured()) {
    // Nothing is shown: the call must not wait to be answered a second time by a later sign-in.
    proxy_->forgetCallContext(context);
    context->fail(kAPIAuthorizeUser);
  }
}

void AIMobileLib::getAccessTokenForScopes(const std::vector<std::string>& scopes, const JsonObject& overrideParams,
                                          const std::shared_ptr<AIAuthenticationDelegate>& delegate) const {
  checkThread(*proxy_);
  const auto& services = *proxy_->services();
  const auto context = makeContext(services, AICallMethod::getAccessToken, delegate, overrideParams, {}, nullptr, scopes);
  const auto tokens = services.tokenManager();
  AIMobileLibHelper::initializeAndValidateParamsForGetAuthToken(*context, tokens);
  AIError& error = context->error();
  if (error.hasErrorOccured()) {
    context->fail(kAPIGetAccessToken);
    return;
  }
  const auto& clock = *services.platform().clock;
  const auto storedRefresh = tokens.getTokenFromStorage(kTokenTypeRefreshToken, error);
  const auto storedAccess = tokens.getTokenFromStorage(kTokenTypeAccessToken, error);
  const auto* refreshToken = dynamic_cast<const AIRefreshToken*>(storedRefresh.get());
  const auto* accessToken = dynamic_cast<const AIAccessToken*>(storedAccess.get());
  if (accessToken && accessToken->isValidForScopes(scopes, clock)) {
    context->succeed(kAPIGetAccessToken, Json(accessToken->token().value_or("")));
  } else if (refreshToken && refreshToken->isValidForScopes(scopes, clock)) {
    // The exchange answers, also when nothing could be sent; answering here too would answer twice.
    proxy_->getAccessToken(context);
  } else {
    error.setError(kAIApplicationNotAuthorized, std::string(kAIMessageApplicationNotAuthorized));
    context->fail(kAPIGetAccessToken);
  }
}

void AIMobileLib::getProfile(const std::shared_ptr<AIAuthenticationDelegate>& delegate, const JsonObject& options) const {
  checkThread(*proxy_);
  const auto& services = *proxy_->services();
  const auto context = makeContext(services, AICallMethod::getProfile, delegate, {}, options, nullptr, {});
  AIMobileLibHelper::initializeAndValidateParamsForGetProfile(*context);
  if (context->error().hasErrorOccured() && delegate) {
    context->fail(kAPIGetProfile);
    return;
  }
  const auto stored = services.tokenManager().getTokenFromStorage(kTokenTypeProfileData, context->error());
  const auto* profile = dynamic_cast<const AIProfileData*>(stored.get());
  if (profile && profile->isValid(*services.platform().clock)) {
    context->succeed(kAPIGetProfile, Json(*profile->profileData()));
    return;
  }
  proxy_->getProfile(context);
}

void AIMobileLib::clearAuthorizationState(const std::shared_ptr<AIAuthenticationDelegate>& delegate) const {
  checkThread(*proxy_);
  const auto context = makeContext(*proxy_->services(), AICallMethod::logout, delegate, {}, {}, nullptr, {});
  AIMobileLibHelper::initializeAndValidateParamsForClearAuthorizationState(*context);
  if (context->error().hasErrorOccured() && delegate) {
    context->fail(kAPIClearAuthorizationState);
    return;
  }
  proxy_->logout(context);
}

bool AIMobileLib::handleOpenURL(std::string_view url, std::string_view) const {
  checkThread(*proxy_);
  if (url.find("methodName=signin") == std::string_view::npos) return false;
  const auto parameters = AIUtils::getKeyValueDictionaryParseString(url);
  const auto state = parameters.find("state");
  if (state == parameters.end() || state->second.empty()) return false;
  auto& states = proxy_->openIdRequestStates();
  const auto found = states.find(state->second);
  if (found == states.end()) return false;
  const auto context = found->second;
  const auto keepAlive = proxy_;
  // A state is spent by its first redirect, so a redirect handed in twice cannot continue (and
  // answer) the same call twice.
  states.erase(found);
  AIMobileLibHelper::checkForErrorsInRedirectURL(parameters, context->error());
  // The view goes before anything is answered, so that a page a delegate opens again from its
  // answer stays.
  proxy_->signInViewManager().removeSignInView();

  if (context->error().code() == kAIVersionDenied) {
    // The retry stands for this call: it leaves the waiting list unanswered, and the new sign-in
    // answers its delegate.
    proxy_->forgetCallContext(context);
    const std::weak_ptr<AIAuthPortalProxy> weak = proxy_;
    const auto& mainThread = proxy_->services()->platform().mainThread;
    if (mainThread) mainThread->post([weak, context] {
      const auto proxy = weak.lock();
      if (!proxy) return;
      auto& views = proxy->signInViewManager();
      const AISignInViewMode primary = views.SDKPriSignInViewMode();
      views.setSDKPriSignInViewMode(views.SDKSignInViewMode());
      AIMobileLib(proxy).authorizeUserForScopes(context->scopes(), context->authenticationDelegate());
      views.setSDKPriSignInViewMode(primary);
    });
    return false;
  }
  const auto code = parameters.find("code");
  if (code != parameters.end()) {
    if (context->boolOption(kAIOptionReturnAuthorizationCode)) {
      proxy_->forgetCallContext(context);
      context->succeed(kAPIAuthorizationCode, Json(code->second));
      return true;
    }
    const auto& services = *proxy_->services();
    services.tokenManager().saveTokenToStorage(AICode(code->second, *services.platform().clock), kTokenTypeCode,
                                               context->error());
    // The page ended: every sign-in waiting for it continues with this code, in one exchange.
    proxy_->processCallContextsFor(context, true);
    return true;
  }
  // An answer without a code ends the sign-in as failed, with its error or, when it names none,
  // as an invalid answer.
  if (!context->error().hasErrorOccured()) {
    context->error().setError(kAIServerError, std::string(kAIMessageInvalidResponseFromServer));
  }
  proxy_->processCallContextsFor(context, false);
  return false;
}

std::optional<std::string> AIMobileLib::getClientId() const { return proxy_->services()->utils().getClientId(); }

std::optional<std::string> AIMobileLib::getRedirectUri() const {
  return proxy_->services()->utils().getRedirectToUrl();
}

// --- AIMobileLibInternal -------------------------------------------------------------------------

AIMobileLibInternal::AIMobileLibInternal(platform::Platform platform, ClientConfiguration configuration)
    : proxy_(sharedProxy(std::move(platform), std::move(configuration))) {}

void AIMobileLibInternal::setDefaultSignInViewMode(AISignInViewMode mode) const {
  proxy_->signInViewManager().setSDKSignInViewMode(mode);
}

void AIMobileLibInternal::setPrimarySigninViewMode(AISignInViewMode mode) const {
  log("setPriSignInViewMode called.");
  log("Mode is set to:" + std::to_string(mode));
  proxy_->signInViewManager().setSDKPriSignInViewMode(mode);
}

std::optional<std::string> AIMobileLibInternal::getAppId() const {
  const auto& helper = proxy_->services()->utils().apiKeyHelper();
  const auto identifier = AIAppIdentifier::appIdentifier();
  const auto package = helper.getPackageName();
  if (auto appId = identifier->getAppIdForPackage(package)) return appId;
  if (!identifier->isAPIKeyValid(helper)) return std::nullopt;
  return identifier->getAppIdForPackage(package);
}

// --- AIMobileLibHelper ---------------------------------------------------------------------------

void AIMobileLibHelper::commonValidations(AICallContext& context) {
  if (!context.authenticationDelegate()) {
    context.error().setError(kAIInvalidInput, std::string(kAIMessageInvalidAuthenticationDelegate));
  } else if (context.boolOption(kAIOptionReturnAuthorizationCode)) {
    validateCodeChallenge(context);
  }
}

void AIMobileLibHelper::validateCodeChallenge(AICallContext& context) {
  if (!context.stringOption(kAIOptionCodeChallenge)) {
    context.error().setError(kAIInvalidInput, std::string(kAIMessageMissingCodeChallenge));
  }
}

void AIMobileLibHelper::validateAPIKey(AIError& error, const AIUtils& utils) {
  const auto key = utils.getAPIKey();
  const auto package = utils.getAppPackageName();
  if (!AIAppIdentifier::appIdentifier()->isAPIKey(key, package, utils.apiKeyHelper())) {
    error.setError(kAIInvalidInput, std::string(kAIMessageInvalidAPIKey));
  }
}

void AIMobileLibHelper::initializeAndValidateParamsForGetAuthToken(AICallContext& context,
                                                                   const AITokenManager& tokens) {
  commonValidations(context);
  if (context.error().hasErrorOccured()) return;
  const auto forceRefresh = json::string(context.overrideParams(), kAIOverrideForceRefresh);
  if (forceRefresh && equalsIgnoringAsciiCase(*forceRefresh, "YES")) {
    tokens.deleteTokenFromStorageOfType(kTokenTypeAccessToken, context.error());
  }
}

void AIMobileLibHelper::updateRequestedScopes(std::vector<std::string>& requested,
                                              const std::vector<std::string>& current) {
  for (const auto& scope : current) {
    if (std::ranges::find(requested, scope) == requested.end()) requested.push_back(scope);
  }
}

void AIMobileLibHelper::checkForErrorsInRedirectURL(const std::map<std::string, std::string>& parameters,
                                                    AIError& error) {
  const auto found = parameters.find("error");
  if (found == parameters.end()) return;
  const auto description = parameters.find("error_description");
  error.setErrorForErrorString(found->second, description == parameters.end()
                                                  ? std::nullopt
                                                  : std::optional<std::string_view>(description->second));
}

}  // namespace applogic::signin
