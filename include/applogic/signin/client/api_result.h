#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "applogic/export.h"
#include "applogic/signin/client/ai_error.h"
#include "applogic/support/json.h"

namespace applogic::signin {

/// Operation numbers: which operation an `APIResult` or `APIError` answers (`api`).
enum AIAPIOperation : std::uint32_t {
  kAPIAuthorizeUser = 1,            ///< `authorizeUserForScopes`; no result
  kAPIGetAccessToken = 2,           ///< `getAccessTokenForScopes`; the access token string
  kAPIClearAuthorizationState = 3,  ///< `clearAuthorizationState`; no result
  kAPIGetProfile = 4,               ///< `getProfile`; the profile object as the server returned it
  kAPIAuthorizationCode = 5,        ///< a sign-in asked to hand back its code; the code string
};

/// A successful answer: the operation and its result. The result is a JSON value: null for
/// "none", a string for a token or a code, an object for a profile. Plain value.
class APPLOGIC_EXPORT APIResult {
 public:
  /// `initResultForAPI:andResult:`.
  APIResult(std::uint32_t api, Json result) : api_(api), result_(std::move(result)) {}

  std::uint32_t api() const noexcept { return api_; }
  const Json& result() const noexcept { return result_; }
  /// The result when it is a string (a token, a code); absent otherwise.
  std::optional<std::string_view> resultString() const noexcept { return json::string(result_); }
  /// The result when it is an object (a profile); null otherwise.
  const JsonObject* resultObject() const noexcept { return json::object(result_); }

 private:
  std::uint32_t api_;
  Json result_;
};

/// A failed answer: the operation and the call's error as it stood when the answer was given.
/// Plain value.
class APPLOGIC_EXPORT APIError {
 public:
  /// `initErrorForAPI:andError:`.
  APIError(std::uint32_t api, AIError error) : api_(api), error_(std::move(error)) {}

  std::uint32_t api() const noexcept { return api_; }
  const AIError& error() const noexcept { return error_; }

 private:
  std::uint32_t api_;
  AIError error_;
};

/// How every operation of the sign-in client answers: exactly once per call, by one of the two.
///
/// Thread contract: called on the main thread. An implementation may start new sign-in calls
/// from inside either method.
class APPLOGIC_EXPORT AIAuthenticationDelegate {
 public:
  virtual ~AIAuthenticationDelegate() = default;
  virtual void requestDidSucceed(const APIResult& result) = 0;
  virtual void requestDidFail(const APIError& error) = 0;
};

}  // namespace applogic::signin
