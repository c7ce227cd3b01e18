#include "applogic/signin/client/ai_auth_portal_proxy.h"

#include <algorithm>
#include <cassert>
#include <mutex>

#include "applogic/signin/client/ai_mobile_lib.h"

namespace applogic::signin {
namespace {

std::mutex& sharedMutex() {
  static std::mutex mutex;
  return mutex;
}

std::shared_ptr<AIAuthPortalProxy>& sharedSlot() {
  static std::shared_ptr<AIAuthPortalProxy> slot;
  return slot;
}

}  // namespace

std::shared_ptr<AIAuthPortalProxy> AIAuthPortalProxy::authPortalProxy(std::shared_ptr<const AIClientServices> services) {
  std::lock_guard lock(sharedMutex());
  auto& slot = sharedSlot();
  if (!slot) slot = make(std::move(services));
  return slot;
}

void AIAuthPortalProxy::resetSharedInstance() {
  std::shared_ptr<AIAuthPortalProxy> old;
  {
    std::lock_guard lock(sharedMutex());
    old = std::exchange(sharedSlot(), nullptr);
  }
  // `old` is released outside the lock: its destruction cancels requests and may run handlers.
}

AIAuthPortalProxy::AIAuthPortalProxy(std::shared_ptr<const AIClientServices> services) : services_(std::move(services)) {}

AIAuthPortalProxy::~AIAuthPortalProxy() = default;

std::shared_ptr<AIAuthPortalProxy> AIAuthPortalProxy::make(std::shared_ptr<const AIClientServices> services) {
  std::shared_ptr<AIAuthPortalProxy> proxy(new AIAuthPortalProxy(std::move(services)));
  // The exchanges and the views outlive nothing of the coordinator's, but they may be held by
  // others (a test, a running request's keep-alive): they reach it weakly.
  const std::weak_ptr<AIAuthPortalProxy> weak = proxy;
  const auto& services_ = proxy->services_;
  proxy->accessTokenRetriever_ = std::make_shared<AIAccessTokenRetriever>(services_);
  proxy->codeExchanger_ = std::make_shared<AICodeExchangeRetriever>(
      services_, AISignInHooks{[weak] {
                                 if (auto self = weak.lock()) self->signInViewManager_->removeSignInView();
                               },
                               [weak] {
                                 if (auto self = weak.lock()) self->openIdRequestStates_.clear();
                               }});
  proxy->profileRetriever_ = std::make_shared<AIProfileExchangerRetriever>(services_, proxy->accessTokenRetriever_);
  // The embedded web view hands its redirect in exactly as the app hands in its URL scheme.
  proxy->signInViewManager_ = std::make_unique<AISignInViewManager>(
      services_, &proxy->openIdRequestStates_, [weak](const std::string& url) {
        if (auto self = weak.lock()) AIMobileLib(self).handleOpenURL(url);
      });
  // A cancelled page ends every call waiting for it, not only the one it was shown for.
  proxy->signInViewManager_->setOnSignInCancelled([weak](const std::shared_ptr<AICallContext>& context) {
    if (auto self = weak.lock()) self->processCallContextsFor(context, false);
  });
  return proxy;
}

void AIAuthPortalProxy::checkThread() const {
#ifndef NDEBUG
  const auto& mainThread = services_->platform().mainThread;
  assert(!mainThread || mainThread->isMainThread());
#endif
}

void AIAuthPortalProxy::getAccessToken(const std::shared_ptr<AICallContext>& context) {
  checkThread();
  // The exchange answers the call, also when nothing could be sent.
  accessTokenRetriever_->getAccessToken(context);
}

void AIAuthPortalProxy::getRefreshTokenForAuthCode(const std::shared_ptr<AICallContext>& context) {
  checkThread();
  if (!codeExchanger_->getRefreshTokenForAuthCode(context)) processCallContext(context, false);
}

void AIAuthPortalProxy::getProfile(const std::shared_ptr<AICallContext>& context) {
  checkThread();
  profileRetriever_->getProfile(context);
}

void AIAuthPortalProxy::logout(const std::shared_ptr<AICallContext>& context) {
  checkThread();
  services_->tokenManager().deleteAlldependentTokenFromStorageToType(kTokenTypeCode, context->error());
  if (context->error().hasErrorOccured()) {
    context->fail(kAPIClearAuthorizationState);
    return;
  }
  if (const auto& http = services_->platform().httpClient) {
    http->cookies().deleteCookiesForUrl("https://www." + services_->utils().getEndPoint());
  }
  context->succeed(kAPIClearAuthorizationState, nullptr);
}

void AIAuthPortalProxy::showSignInPage(const std::shared_ptr<AICallContext>& context) {
  checkThread();
  signInViewManager_->initializeSignIn(context);
}

void AIAuthPortalProxy::forgetCallContext(const std::shared_ptr<AICallContext>& context) {
  std::erase(callContexts_, context);
  std::erase_if(openIdRequestStates_, [&](const auto& entry) { return entry.second == context; });
}

void AIAuthPortalProxy::processCallContextsFor(const std::shared_ptr<AICallContext>& context, bool isSigninSuccess) {
  checkThread();
  const auto keepAlive = shared_from_this();
  // The list is taken out before anyone is answered: a delegate that signs in again from its
  // answer adds a new context that waits for its own page instead of being served here.
  auto contexts = std::exchange(callContexts_, {});
  AICallContext::copyErrorMessagesFrom(context.get(), contexts);
  // Removed once, before the answers, so that a page a delegate opens again from its answer
  // stays.
  if (!isSigninSuccess) signInViewManager_->removeSignInView();
  while (!contexts.empty()) {
    const auto last = std::move(contexts.back());
    contexts.pop_back();
    processCallContext(last, isSigninSuccess);
  }
}

void AIAuthPortalProxy::processCallContext(const std::shared_ptr<AICallContext>& context, bool SignInSuccessful) {
  checkThread();
  const auto keepAlive = shared_from_this();
  std::erase(callContexts_, context);
  switch (context->method()) {
    case AICallMethod::getAccessToken:
      if (SignInSuccessful) {
        getAccessToken(context);
      } else {
        context->fail(kAPIGetAccessToken);
      }
      break;
    case AICallMethod::authorizeUser:
      if (SignInSuccessful) {
        getRefreshTokenForAuthCode(context);
      } else {
        openIdRequestStates_.clear();
        context->fail(kAPIAuthorizeUser);
      }
      break;
    case AICallMethod::getProfile:
    case AICallMethod::logout:
      break;
  }
}

}  // namespace applogic::signin
