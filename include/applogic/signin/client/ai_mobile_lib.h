#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/platform/platform.h"
#include "applogic/signin/client/ai_auth_portal_proxy.h"
#include "applogic/signin/client/ai_call_context.h"
#include "applogic/signin/client/ai_sign_in_view_manager.h"
#include "applogic/signin/client/api_result.h"
#include "applogic/signin/client/client_configuration.h"

namespace applogic::signin {

/// The entry points of the account sign-in client.
///
/// Every operation answers exactly once, later or at once, by `requestDidSucceed` or
/// `requestDidFail` on the delegate it was given, with the operation's number (`AIAPIOperation`);
/// with no delegate nothing is answered. Only `handleOpenURL`, `getClientId` and `getRedirectUri`
/// return a value.
///
/// A light handle over the process's coordinator (`AIAuthPortalProxy::authPortalProxy`): made
/// from a `Platform` and a `ClientConfiguration`, it shares the coordinator that the first handle
/// of the process made from its own; every handle works with that coordinator's services.
///
/// Thread contract: main thread only (checked in debug builds); answers arrive there.
class APPLOGIC_EXPORT AIMobileLib {
 public:
  AIMobileLib(platform::Platform platform, ClientConfiguration configuration);
  explicit AIMobileLib(std::shared_ptr<AIAuthPortalProxy> proxy) : proxy_(std::move(proxy)) {}

  /// Signs the user in for `scopes` (operation 1; operation 5 with the code when the option
  /// "return_authorization_code" is true). A stored refresh token valid for the scopes succeeds at
  /// once, with no sign-in page and no code. Otherwise the sign-in page is shown for the
  /// requested scopes followed by the stored refresh token's other scopes, and the call is
  /// answered when the sign-in ends (`handleOpenURL`, a cancel: code 3). Invalid API key, no
  /// delegate or a missing "code_challenge": code 6 (no answer without a delegate).
  void authorizeUserForScopes(const std::vector<std::string>& scopes,
                              const std::shared_ptr<AIAuthenticationDelegate>& delegate,
                              const JsonObject& options = {}) const;
  /// Answers a valid access token for `scopes` (operation 2): the stored one while it is valid,
  /// otherwise a refreshed one; without a refresh token valid for the scopes, code 1 "The refresh
  /// token is invalid, expired or revoked.". "force_refresh" = "YES" (any letter case) deletes the
  /// stored access token first.
  void getAccessTokenForScopes(const std::vector<std::string>& scopes, const JsonObject& overrideParams,
                               const std::shared_ptr<AIAuthenticationDelegate>& delegate) const;
  /// Answers the user's profile object (operation 4): the stored one for an hour after it was
  /// fetched, otherwise fetched with the stored access token.
  void getProfile(const std::shared_ptr<AIAuthenticationDelegate>& delegate, const JsonObject& options = {}) const;
  /// Signs out (operation 3): deletes the four stored kinds and the sign-in site's cookies.
  void clearAuthorizationState(const std::shared_ptr<AIAuthenticationDelegate>& delegate) const;

  /// The app hands in every address its URL scheme was opened with (`sourceApplication` is not
  /// used). False for an address without "methodName=signin" or whose "state" names no sign-in
  /// in progress; those change nothing. Otherwise the sign-in ends: a "code" continues it (the
  /// code exchange, or operation 5 with the code) and answers true; "version_denied" starts the
  /// sign-in again once, later on the main thread, with the default view in place of the primary
  /// one, and answers false; another error (or no code) fails every waiting sign-in with it and
  /// answers false. The sign-in view is removed in every case.
  bool handleOpenURL(std::string_view url, std::string_view sourceApplication = {}) const;

  /// The client id of the app's API key; absent when the key is not valid.
  std::optional<std::string> getClientId() const;
  /// The redirect address the sign-in requests name ("amzn-<bundle id>://?methodName=signin").
  std::optional<std::string> getRedirectUri() const;

  const std::shared_ptr<AIAuthPortalProxy>& proxy() const noexcept { return proxy_; }

 private:
  std::shared_ptr<AIAuthPortalProxy> proxy_;
};

/// The client's internal settings, over the same coordinator as `AIMobileLib`. Main thread.
class APPLOGIC_EXPORT AIMobileLibInternal {
 public:
  AIMobileLibInternal(platform::Platform platform, ClientConfiguration configuration);
  explicit AIMobileLibInternal(std::shared_ptr<AIAuthPortalProxy> proxy) : proxy_(std::move(proxy)) {}

  /// The sign-in view manager's default mode.
  void setDefaultSignInViewMode(AISignInViewMode mode) const;
  /// The sign-in view manager's primary mode; logs "setPriSignInViewMode called." and "Mode is
  /// set to:<mode>".
  void setPrimarySigninViewMode(AISignInViewMode mode) const;
  /// The app id of the current package from the process's register of verified keys; when there
  /// is none yet, the app's key is checked (`AIAppIdentifier::isAPIKeyValid`) and the register
  /// asked again. Absent when the key is not valid.
  std::optional<std::string> getAppId() const;

 private:
  std::shared_ptr<AIAuthPortalProxy> proxy_;
};

/// The entry points' checks. Each writes into the error it is given and returns nothing. Pure
/// apart from `validateAPIKey` (the register of verified keys) and
/// `initializeAndValidateParamsForGetAuthToken` (which may delete the stored access token).
struct APPLOGIC_EXPORT AIMobileLibHelper {
  /// No delegate: code 6 "Application should implement authentication delegate.". Otherwise,
  /// when "return_authorization_code" is true, `validateCodeChallenge`.
  static void commonValidations(AICallContext& context);
  /// No string option "code_challenge": code 6 "A code challenge is required when requesting
  /// authorization code in return.".
  static void validateCodeChallenge(AICallContext& context);
  /// The bundle's "APIKey" not valid for the bundle identifier: code 6 "APIKey for the
  /// Application is invalid.".
  static void validateAPIKey(AIError& error, const AIUtils& utils);
  static void initializeAndValidateParamsForAuthorizeUser(AICallContext& context) { commonValidations(context); }
  static void initializeAndValidateParamsForGetProfile(AICallContext& context) { commonValidations(context); }
  static void initializeAndValidateParamsForClearAuthorizationState(AICallContext& context) {
    commonValidations(context);
  }
  /// `commonValidations`; then, with no error and the override "force_refresh" equal to "YES" in
  /// any letter case, deletes the stored access token.
  static void initializeAndValidateParamsForGetAuthToken(AICallContext& context, const AITokenManager& tokens);
  /// Appends to `requested` every scope of `current` it does not hold yet, in `current`'s order.
  static void updateRequestedScopes(std::vector<std::string>& requested, const std::vector<std::string>& current);
  /// When `parameters` hold "error": the error from it and "error_description"
  /// (`AIError::setErrorForErrorString`).
  static void checkForErrorsInRedirectURL(const std::map<std::string, std::string>& parameters, AIError& error);
};

}  // namespace applogic::signin
