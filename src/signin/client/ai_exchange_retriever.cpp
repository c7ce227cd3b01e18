#include "applogic/signin/client/ai_exchange_retriever.h"

#include <algorithm>
#include <cassert>

#include "applogic/signin/client/ai_token_manager.h"
#include "applogic/support/strings.h"

namespace applogic::signin {
namespace {

constexpr int kStatusServerError = 500;

}  // namespace

AIExchangeStep nextExchangeStep(int status, bool hasError, const std::optional<std::string>& errorCode,
                                int retriesMade, std::string_view invalidTokenWord) {
  if (hasError && status == kStatusServerError && retriesMade < kAIExchangeMaxRetries) return AIExchangeStep::retry;
  if (errorCode && equalsIgnoringAsciiCase(*errorCode, invalidTokenWord)) return AIExchangeStep::invalidToken;
  return AIExchangeStep::report;
}

// --- the shared exchange --------------------------------------------------------------------------

AIExchangeRetriever::AIExchangeRetriever(std::shared_ptr<const AIClientServices> services)
    : services_(std::move(services)) {}

AIExchangeRetriever::~AIExchangeRetriever() = default;

void AIExchangeRetriever::checkThread() const {
#ifndef NDEBUG
  const auto& mainThread = services_->platform().mainThread;
  assert(!mainThread || mainThread->isMainThread());
#endif
}

void AIExchangeRetriever::doExchangeWithRequest(const AIExchangeRequest& request,
                                                std::shared_ptr<AICallContext> context, bool isPost) {
  // No thread check of its own: every caller has made it.
  // A call that has already failed (a store read that failed on its way here) is answered by its
  // caller from that error; sending it, or queueing it on an exchange in flight, would answer it a
  // second time when the exchange ends. A call without a delegate answers nobody, so it goes on.
  if (!context || (context->error().hasErrorOccured() && context->authenticationDelegate())) return;
  callContexts_.push_back(context);
  if (isBusy()) return;
  auto prepared = request.makeUrlRequest(*context, isPost);
  if (prepared) {
    originalRequest_ = std::move(prepared);
    sendExchangeRequest();
  }
  if (!connection_) {
    // Nothing went out: the call leaves the list as it came, and its caller answers it from the
    // error, so it is never answered twice.
    originalRequest_.reset();
    std::erase(callContexts_, context);
  }
}

void AIExchangeRetriever::sendExchangeRequest() {
  const auto& client = services_->platform().httpClient;
  if (!client || !originalRequest_) {
    if (!callContexts_.empty()) {
      callContexts_.front()->error().setError(kAINetworkError, std::string(kAIMessageNetworkErrorGeneral));
    }
    return;
  }
  receivedData_.clear();
  responseStatusCode_ = 0;
  // The connection is a member, destroyed before this object, and no handler runs once it is
  // destroyed: `this` outlives every call below.
  platform::HttpHandlers handlers;
  handlers.onResponse = [this](const platform::HttpResponse& response) { connectionDidReceiveResponse(response); };
  handlers.onData = [this](std::string_view data) { connectionDidReceiveData(data); };
  handlers.onFailure = [this](const Error& error) { connectionDidFail(error); };
  handlers.onFinish = [this] { connectionDidFinishLoading(); };
  connection_ = client->start(*originalRequest_, std::move(handlers));
}

void AIExchangeRetriever::connectionDidReceiveResponse(const platform::HttpResponse& response) {
  responseStatusCode_ = response.statusCode;
}

void AIExchangeRetriever::connectionDidReceiveData(std::string_view data) { receivedData_.append(data); }

void AIExchangeRetriever::connectionDidFail(const Error& error) {
  const auto keepAlive = shared_from_this();
  connection_.reset();
  receivedData_.clear();
  if (callContexts_.empty()) return;
  std::string description = platform::httpErrorDescription(error);
  if (description.empty()) description = kAIMessageNetworkErrorGeneral;
  callContexts_.front()->error().setError(kAINetworkError, std::move(description));
  invokeAuthenticationDelegatesOnFailure();
}

void AIExchangeRetriever::connectionDidFinishLoading() {
  const auto keepAlive = shared_from_this();
  connection_.reset();
  std::string body = std::exchange(receivedData_, {});
  if (callContexts_.empty()) return;
  const auto first = callContexts_.front();
  const auto response = makeResponse(std::move(body), *first);
  switch (nextExchangeStep(responseStatusCode_, response->hasError(), response->errorCode(), nRetry_,
                           invalidTokenWord())) {
    case AIExchangeStep::retry:
      ++nRetry_;
      first->error().setError(kAINoError, std::string(kAIMessageNoError));
      sendExchangeRequest();
      if (!connection_) invokeAuthenticationDelegatesOnFailure();
      return;
    case AIExchangeStep::invalidToken:
      handleInvalidRequestToken(*response);
      return;
    case AIExchangeStep::report:
      break;
  }
  originalRequest_.reset();
  if (resetsRetryCountOnReport_) nRetry_ = 0;
  willReport(*response);
  if (response->hasError() || first->error().hasErrorOccured()) {
    invokeAuthenticationDelegatesOnFailure();
  } else {
    answerSuccess(*response);
  }
}

void AIExchangeRetriever::willReport(AIExchangeResponse&) {}

std::vector<std::shared_ptr<AICallContext>> AIExchangeRetriever::takeCallContextsWithFirstError() {
  auto contexts = std::exchange(callContexts_, {});
  if (!contexts.empty()) AICallContext::copyErrorMessagesFrom(contexts.front().get(), contexts);
  return contexts;
}

void AIExchangeRetriever::invokeAuthenticationDelegatesOnFailure() {
  for (const auto& context : takeCallContextsWithFirstError()) context->fail(operation());
}

// --- code exchange -------------------------------------------------------------------------------

bool AICodeExchangeRetriever::getRefreshTokenForAuthCode(const std::shared_ptr<AICallContext>& context) {
  checkThread();
  const auto tokenManager = services_->tokenManager();
  std::shared_ptr<const AIToken> code = tokenManager.getTokenFromStorage(kTokenTypeCode, context->error());
  const AICodeExchangeRequest request(services_, std::move(code));
  if (!context->error().hasErrorOccured()) doExchangeWithRequest(request, context, true);
  return !context->error().hasErrorOccured();
}

std::unique_ptr<AIExchangeResponse> AICodeExchangeRetriever::makeResponse(std::string body, const AICallContext& first) {
  auto response = std::make_unique<AICodeExchangeResponse>(std::move(body), services_->platform().clock);
  response->parseServerResponse(first);
  return response;
}

void AICodeExchangeRetriever::answerSuccess(AIExchangeResponse& answer) {
  auto& response = static_cast<AICodeExchangeResponse&>(answer);
  const auto tokenManager = services_->tokenManager();
  AIError& error = callContexts_.front()->error();
  tokenManager.saveTokenToStorage(*response.refreshToken(), kTokenTypeRefreshToken, error);
  tokenManager.saveTokenToStorage(*response.accessToken(), kTokenTypeAccessToken, error);
  // The states are forgotten before the answers, so a delegate that signs in again from its
  // answer keeps the state of its new sign-in.
  const auto contexts = takeCallContextsWithFirstError();
  if (hooks_.clearOpenIdRequestStates) hooks_.clearOpenIdRequestStates();
  for (const auto& context : contexts) context->succeed(operation(), nullptr);
}

void AICodeExchangeRetriever::handleInvalidRequestToken(AIExchangeResponse&) {
  const auto first = callContexts_.front();
  AICallContext::copyErrorMessagesFrom(first.get(), callContexts_);
  services_->tokenManager().deleteAlldependentTokenFromStorageToType(kTokenTypeCode, first->error());
  invokeAuthenticationDelegatesOnFailure();
}

void AICodeExchangeRetriever::invokeAuthenticationDelegatesOnFailure() {
  if (hooks_.removeSignInView) hooks_.removeSignInView();
  if (hooks_.clearOpenIdRequestStates) hooks_.clearOpenIdRequestStates();
  AIExchangeRetriever::invokeAuthenticationDelegatesOnFailure();
}

// --- access-token refresh ------------------------------------------------------------------------

void AIAccessTokenRetriever::getAccessToken(const std::shared_ptr<AICallContext>& context) {
  checkThread();
  const auto tokenManager = services_->tokenManager();
  std::shared_ptr<const AIToken> refreshToken =
      tokenManager.getTokenFromStorage(kTokenTypeRefreshToken, context->error());
  if (!refreshToken || !refreshToken->isValid(*services_->platform().clock)) {
    if (!context->error().hasErrorOccured()) {
      context->error().setError(kAIApplicationNotAuthorized, std::string(kAIMessageApplicationNotAuthorized));
    }
  } else {
    doExchangeWithRequest(AIAccessTokenRequest(services_, std::move(refreshToken)), context, true);
  }
  if (context->error().hasErrorOccured()) context->fail(operation());
}

std::unique_ptr<AIExchangeResponse> AIAccessTokenRetriever::makeResponse(std::string body, const AICallContext& first) {
  // The refresh token an answer brings keeps the scopes of the one it replaces. A failing read
  // leaves them empty; it is not the refresh's failure.
  AIError readError;
  const auto stored = services_->tokenManager().getTokenFromStorage(kTokenTypeRefreshToken, readError);
  const auto* storedRefresh = dynamic_cast<const AIRefreshToken*>(stored.get());
  auto response = std::make_unique<AIAccessTokenResponse>(
      std::move(body), services_->platform().clock,
      storedRefresh ? storedRefresh->scopes() : std::vector<std::string>{});
  response->parseServerResponse(first);
  return response;
}

void AIAccessTokenRetriever::answerSuccess(AIExchangeResponse& answer) {
  auto& response = static_cast<AIAccessTokenResponse&>(answer);
  const auto tokenManager = services_->tokenManager();
  AIError& error = callContexts_.front()->error();
  tokenManager.saveTokenToStorage(*response.accessToken(), kTokenTypeAccessToken, error);
  if (response.refreshToken()) tokenManager.saveTokenToStorage(*response.refreshToken(), kTokenTypeRefreshToken, error);
  const std::string token = response.accessToken()->token().value_or("");
  for (const auto& context : takeCallContextsWithFirstError()) context->succeed(operation(), Json(token));
}

void AIAccessTokenRetriever::handleInvalidRequestToken(AIExchangeResponse&) {
  const auto first = callContexts_.front();
  AICallContext::copyErrorMessagesFrom(first.get(), callContexts_);
  services_->tokenManager().deleteAlldependentTokenFromStorageToType(kTokenTypeCode, first->error());
  invokeAuthenticationDelegatesOnFailure();
}

// --- profile --------------------------------------------------------------------------------------

AIProfileExchangerRetriever::AIProfileExchangerRetriever(std::shared_ptr<const AIClientServices> services,
                                                         std::weak_ptr<AIAccessTokenRetriever> accessTokenRetriever)
    : AIExchangeRetriever(std::move(services)), accessTokenRetriever_(std::move(accessTokenRetriever)) {
  resetsRetryCountOnReport_ = false;
}

void AIProfileExchangerRetriever::getProfile(const std::shared_ptr<AICallContext>& context) {
  checkThread();
  std::shared_ptr<const AIToken> accessToken =
      services_->tokenManager().getTokenFromStorage(kTokenTypeAccessToken, context->error());
  doExchangeWithRequest(AIProfileExchangerRequest(services_, std::move(accessToken)), context, false);
  if (context->error().hasErrorOccured()) context->fail(operation());
}

std::unique_ptr<AIExchangeResponse> AIProfileExchangerRetriever::makeResponse(std::string body,
                                                                              const AICallContext& first) {
  auto response = std::make_unique<AIProfileExchangerResponse>(std::move(body));
  response->parseServerResponse(first);
  return response;
}

void AIProfileExchangerRetriever::answerSuccess(AIExchangeResponse& answer) {
  auto& response = static_cast<AIProfileExchangerResponse&>(answer);
  refreshedOnce_ = false;
  AIError& error = callContexts_.front()->error();
  services_->tokenManager().saveTokenToStorage(AIProfileData(response.profile(), *services_->platform().clock),
                                               kTokenTypeProfileData, error);
  const Json profile(*response.profile());
  for (const auto& context : takeCallContextsWithFirstError()) context->succeed(operation(), profile);
}

void AIProfileExchangerRetriever::handleInvalidRequestToken(AIExchangeResponse& response) {
  const auto refresher = accessTokenRetriever_.lock();
  if (refreshedOnce_ || !refresher) {
    // A token refused again right after a refresh is not refreshed a second time: a server that
    // keeps refusing fresh tokens would otherwise be asked forever.
    willReport(response);
    invokeAuthenticationDelegatesOnFailure();
    return;
  }
  const auto first = callContexts_.front();
  first->error().setError(kAINoError, std::string(kAIMessageNoError));
  refreshing_ = true;
  refreshedOnce_ = true;
  const auto self = std::static_pointer_cast<AIProfileExchangerRetriever>(shared_from_this());
  auto refreshContext = std::make_shared<AICallContext>(
      AICallMethod::getAccessToken, std::shared_ptr<AIAuthenticationDelegate>(self, self.get()), JsonObject{},
      JsonObject{}, first->errorObject(), std::vector<std::string>{"profile"},
      services_->utils().getUUID().value_or(""));
  refresher->getAccessToken(refreshContext);
}

void AIProfileExchangerRetriever::requestDidSucceed(const APIResult&) {
  const auto keepAlive = shared_from_this();
  refreshing_ = false;
  if (callContexts_.empty()) return;
  const auto first = callContexts_.front();
  std::shared_ptr<const AIToken> accessToken =
      services_->tokenManager().getTokenFromStorage(kTokenTypeAccessToken, first->error());
  if (auto prepared = AIProfileExchangerRequest(services_, std::move(accessToken)).makeUrlRequest(*first, false)) {
    originalRequest_ = std::move(prepared);
    sendExchangeRequest();
  }
  if (!isBusy()) invokeAuthenticationDelegatesOnFailure();
}

void AIProfileExchangerRetriever::requestDidFail(const APIError&) {
  const auto keepAlive = shared_from_this();
  refreshing_ = false;
  invokeAuthenticationDelegatesOnFailure();
}

void AIProfileExchangerRetriever::willReport(AIExchangeResponse& response) {
  if (!response.errorCode() || !equalsIgnoringAsciiCase(*response.errorCode(), "insufficient_scope")) return;
  if (asciiLowercase(response.errorMessage().value_or("")).find("scope required profile") == std::string::npos) return;
  const auto tokenManager = services_->tokenManager();
  AIError& error = callContexts_.front()->error();
  const auto stored = tokenManager.getTokenFromStorage(kTokenTypeRefreshToken, error);
  const auto* refreshToken = dynamic_cast<const AIRefreshToken*>(stored.get());
  if (!refreshToken) return;
  std::vector<std::string> scopes = refreshToken->scopes();
  std::erase(scopes, std::string("profile"));
  tokenManager.saveTokenToStorage(AIRefreshToken(refreshToken->token(), std::move(scopes), *services_->platform().clock),
                                  kTokenTypeRefreshToken, error);
}

void AIProfileExchangerRetriever::invokeAuthenticationDelegatesOnFailure() {
  refreshedOnce_ = false;
  AIExchangeRetriever::invokeAuthenticationDelegatesOnFailure();
}

}  // namespace applogic::signin
