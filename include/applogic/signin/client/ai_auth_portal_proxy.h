#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "applogic/export.h"
#include "applogic/signin/client/ai_call_context.h"
#include "applogic/signin/client/ai_client_services.h"
#include "applogic/signin/client/ai_exchange_retriever.h"
#include "applogic/signin/client/ai_sign_in_view_manager.h"

namespace applogic::signin {

/// The process's coordinator of the sign-in client: it owns the calls that wait for the sign-in
/// page (`callContexts`), the sign-in requests in progress by state (`openIdRequestStates`), the
/// three exchanges and the sign-in view manager. `AIMobileLib`'s entry points drive it.
///
/// There is one per process (`authPortalProxy`), made on first use from the services given then
/// and never released; `resetSharedInstance()` forgets it for tests.
///
/// Every call that reaches the coordinator is answered exactly once on its delegate: a context
/// leaves `callContexts` (and its state leaves `openIdRequestStates`) before it is answered, and
/// waiting lists are taken out before their answers are given, so a delegate that starts a new
/// call from its answer starts afresh.
///
/// Thread contract: main thread only (checked in debug builds), apart from `authPortalProxy` and
/// `resetSharedInstance`, which any thread may call.
class APPLOGIC_EXPORT AIAuthPortalProxy : public std::enable_shared_from_this<AIAuthPortalProxy> {
 public:
  /// The shared instance; made from `services` when there is none (later calls ignore the
  /// argument). Thread-safe.
  static std::shared_ptr<AIAuthPortalProxy> authPortalProxy(std::shared_ptr<const AIClientServices> services);
  /// Forgets the shared instance, so that the next `authPortalProxy` makes a new one: for tests
  /// that must start from a clean process. Holders of the old instance keep it. Thread-safe.
  static void resetSharedInstance();
  /// A coordinator of its own, not the shared one (tests, hosts with several clients).
  static std::shared_ptr<AIAuthPortalProxy> make(std::shared_ptr<const AIClientServices> services);

  ~AIAuthPortalProxy();
  AIAuthPortalProxy(const AIAuthPortalProxy&) = delete;
  AIAuthPortalProxy& operator=(const AIAuthPortalProxy&) = delete;

  /// Refreshes the access token for `context`; the access-token exchange answers it (operation 2).
  void getAccessToken(const std::shared_ptr<AICallContext>& context);
  /// Exchanges the stored code for `context`; when nothing could be sent, the call ends through
  /// `processCallContext(context, false)`.
  void getRefreshTokenForAuthCode(const std::shared_ptr<AICallContext>& context);
  /// Fetches the profile for `context`; the profile exchange answers it (operation 4).
  void getProfile(const std::shared_ptr<AICallContext>& context);
  /// Deletes the code and every kind depending on it (code, refresh token, profile, access
  /// token); with no error, deletes the cookies that `https://www.<cookie domain>` would be sent
  /// and answers success (operation 3, no result); otherwise failure.
  void logout(const std::shared_ptr<AICallContext>& context);
  /// Hands `context` (already in `callContexts`) to the sign-in view manager, which builds the
  /// sign-in address (registering the context under its state) and shows it. A failure is left
  /// in the context's error; the caller answers it. A cancel of the page ends every waiting call
  /// with code 3 (`processCallContextsFor(context, false)`).
  void showSignInPage(const std::shared_ptr<AICallContext>& context);

  /// The sign-in page ended (a redirect, a cancel): takes every waiting context out of
  /// `callContexts`, copies `context`'s error into them, removes the sign-in view when the
  /// sign-in failed, and processes them last in, first out.
  void processCallContextsFor(const std::shared_ptr<AICallContext>& context, bool isSigninSuccess);
  /// One waiting context: `getAccessToken:` continues with a refresh on success and fails with
  /// operation 2 otherwise; `authorizeUser:` continues with the code exchange on success, and
  /// otherwise forgets every sign-in state and fails with operation 1. Other tags: nothing. The
  /// context leaves `callContexts`.
  void processCallContext(const std::shared_ptr<AICallContext>& context, bool SignInSuccessful);

  /// Takes `context` off the waiting list and forgets its state, without answering it.
  void forgetCallContext(const std::shared_ptr<AICallContext>& context);

  const std::shared_ptr<AIAccessTokenRetriever>& getAccessTokenRetriever() const noexcept { return accessTokenRetriever_; }
  const std::shared_ptr<AICodeExchangeRetriever>& getRefreshTokenForAuthCodeRetriever() const noexcept {
    return codeExchanger_;
  }
  const std::shared_ptr<AIProfileExchangerRetriever>& getProfileExchangeRetreiver() const noexcept {
    return profileRetriever_;
  }
  /// The calls waiting for the sign-in page, oldest first.
  const std::vector<std::shared_ptr<AICallContext>>& callContexts() const noexcept { return callContexts_; }
  std::vector<std::shared_ptr<AICallContext>>& callContexts() noexcept { return callContexts_; }
  AISignInViewManager& signInViewManager() noexcept { return *signInViewManager_; }
  AIOpenIdRequestStates& openIdRequestStates() noexcept { return openIdRequestStates_; }
  const std::shared_ptr<const AIClientServices>& services() const noexcept { return services_; }

 private:
  explicit AIAuthPortalProxy(std::shared_ptr<const AIClientServices> services);
  void checkThread() const;

  std::shared_ptr<const AIClientServices> services_;
  std::vector<std::shared_ptr<AICallContext>> callContexts_;
  std::shared_ptr<AIAccessTokenRetriever> accessTokenRetriever_;
  std::shared_ptr<AICodeExchangeRetriever> codeExchanger_;
  std::shared_ptr<AIProfileExchangerRetriever> profileRetriever_;
  // Before the view manager, which registers sign-in requests in it, so that it outlives it.
  AIOpenIdRequestStates openIdRequestStates_;
  std::unique_ptr<AISignInViewManager> signInViewManager_;
};

}  // namespace applogic::signin
