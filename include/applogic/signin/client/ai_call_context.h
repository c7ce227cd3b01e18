#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/signin/client/ai_error.h"
#include "applogic/signin/client/api_result.h"
#include "applogic/support/json.h"

namespace applogic::signin {

/// Keys of a call's `options` (`authorizeUserForScopes`, `getProfile`).
inline constexpr std::string_view kAIOptionReturnAuthorizationCode = "return_authorization_code";  ///< boolean (`boolOption`)
inline constexpr std::string_view kAIOptionCodeChallenge = "code_challenge";                       ///< string
inline constexpr std::string_view kAIOptionCodeChallengeMethod = "code_challenge_method";          ///< string
inline constexpr std::string_view kAIOptionSandboxMode = "sandbox_mode";                           ///< boolean (`boolOption`)
inline constexpr std::string_view kAIOptionScopeData = "scope_data";                               ///< string
/// The override parameter of `getAccessTokenForScopes` ("YES" in any letter case forces a refresh).
inline constexpr std::string_view kAIOverrideForceRefresh = "force_refresh";

/// Which operation a call context belongs to (the tag is compared, never called).
enum class AICallMethod {
  authorizeUser,
  getAccessToken,
  getProfile,
  logout,
};

/// One pending call of the sign-in client: its operation, the caller's delegate, its parameters,
/// its error object (shared by every step of the call, and by the contexts made on its behalf)
/// and its state string `UID`.
///
/// Held by `std::shared_ptr`: the coordinator's lists and the exchanges keep the contexts that
/// wait on them.
///
/// Thread contract: main thread.
class APPLOGIC_EXPORT AICallContext {
 public:
  /// `initWithSelector:withAuthenticationDelegate:withOverrideParams:withOptions:withErrorObject:andScopes:`.
  /// `error` null gets a new "No error" object. `UID` is the call's fresh UUID string
  /// (`AIUtils::getUUID()`); it becomes the state of a sign-in request.
  AICallContext(AICallMethod method, std::shared_ptr<AIAuthenticationDelegate> authenticationDelegate,
                JsonObject overrideParams, JsonObject options, std::shared_ptr<AIError> error,
                std::vector<std::string> scopes, std::string UID);

  AICallMethod method() const noexcept { return method_; }
  /// The caller's delegate (a strong reference); null when the caller gave none.
  const std::shared_ptr<AIAuthenticationDelegate>& authenticationDelegate() const noexcept { return delegate_; }
  const JsonObject& overrideParams() const noexcept { return overrideParams_; }
  const JsonObject& options() const noexcept { return options_; }
  /// The call's error object (never null). Steps write into it; it may be shared with other
  /// contexts.
  AIError& error() const noexcept { return *error_; }
  const std::shared_ptr<AIError>& errorObject() const noexcept { return error_; }
  const std::string& UID() const noexcept { return UID_; }
  const std::vector<std::string>& scopes() const noexcept { return scopes_; }
  void setScopes(std::vector<std::string> scopes) { scopes_ = std::move(scopes); }

  /// The boolean option `key`: true for a JSON true, and for a text the platform reads as true
  /// (after blanks, an optional sign and zeros, "Y", "y", "T", "t" or a digit 1-9: "YES",
  /// "true", "1"); false for anything else, missing included.
  bool boolOption(std::string_view key) const noexcept;
  /// The string option `key`; absent when missing or not a string.
  std::optional<std::string_view> stringOption(std::string_view key) const noexcept;
  /// Whether "sandbox_mode" is true.
  bool isSandbox() const noexcept { return boolOption(kAIOptionSandboxMode); }

  /// Answers `requestDidSucceed` / `requestDidFail` on the delegate, when there is one.
  void succeed(std::uint32_t api, Json result) const;
  void fail(std::uint32_t api) const;

  /// `copyErrorMessagesFrom:toCallContexts:`: when `source` is not null and `contexts` holds at
  /// least two contexts, writes the code and message of `source`'s error into the error of every
  /// context of the list (the source's own included, which changes nothing).
  static void copyErrorMessagesFrom(const AICallContext* source,
                                    const std::vector<std::shared_ptr<AICallContext>>& contexts);

 private:
  AICallMethod method_;
  std::shared_ptr<AIAuthenticationDelegate> delegate_;
  JsonObject overrideParams_;
  JsonObject options_;
  std::shared_ptr<AIError> error_;
  std::string UID_;
  std::vector<std::string> scopes_;
};

/// The coordinator's sign-in requests in progress: state (`AICallContext::UID`) to context.
using AIOpenIdRequestStates = std::map<std::string, std::shared_ptr<AICallContext>, std::less<>>;

}  // namespace applogic::signin
