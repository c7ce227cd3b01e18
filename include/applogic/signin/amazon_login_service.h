#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "applogic/export.h"
#include "applogic/signin/client/ai_mobile_lib.h"
#include "applogic/signin/client/api_result.h"
#include "applogic/support/error.h"
#include "applogic/support/json.h"
#include "applogic/support/result.h"

namespace applogic::signin {

/// What a successful sign-in hands the app. Plain value; equal field by field.
struct APPLOGIC_EXPORT AmazonLoginInfo {
  std::string email;
  std::string userID;
  std::string accessToken;

  friend bool operator==(const AmazonLoginInfo&, const AmazonLoginInfo&) = default;
};

/// The domain of the errors the login service reports; the code is the sign-in client's
/// (`AIError` codes) and the user information holds its text under "message".
inline constexpr const char* kAmazonLoginErrorDomain = "AmazonLogin";

/// What the three adapters below share: the two closures, and a failure always passed on as
/// `failure(error)` (the error is always present here). Main thread, like the client.
template <class SuccessSignature>
class AmazonLoginServiceDelegate : public AIAuthenticationDelegate {
 public:
  using Success = std::function<SuccessSignature>;
  using Failure = std::function<void(std::optional<APIError>)>;
  AmazonLoginServiceDelegate(Success success, Failure failure)
      : success_(std::move(success)), failure_(std::move(failure)) {}

  void requestDidFail(const APIError& error) final {
    if (failure_) failure_(error);
  }

 protected:
  Success success_;
  Failure failure_;
};

/// Turns the sign-in client's answer to `authorizeUserForScopes` into closures: `success()` for
/// any result (the result is ignored).
class APPLOGIC_EXPORT AmazonLoginServiceAuthDelegate final : public AmazonLoginServiceDelegate<void()> {
 public:
  using AmazonLoginServiceDelegate::AmazonLoginServiceDelegate;
  void requestDidSucceed(const APIResult& result) override;
};

/// Turns the answer to `getAccessTokenForScopes` into closures: a string result goes to
/// `success(token)`; any other non-null result to `failure` with no error. A null result is a
/// programming error of the client (`fatalError`).
class APPLOGIC_EXPORT AmazonLoginServiceGetAccessTokenDelegate final : public AmazonLoginServiceDelegate<void(std::string)> {
 public:
  using AmazonLoginServiceDelegate::AmazonLoginServiceDelegate;
  void requestDidSucceed(const APIResult& result) override;
};

/// Turns the answer to `getProfile` into closures: an object result goes to `success(profile)`
/// (a JSON object: keys are always strings); a null or non-object result is a programming error
/// of the client (`fatalError`).
class APPLOGIC_EXPORT AmazonLoginServiceGetProfileDelegate final : public AmazonLoginServiceDelegate<void(JsonObject)> {
 public:
  using AmazonLoginServiceDelegate::AmazonLoginServiceDelegate;
  void requestDidSucceed(const APIResult& result) override;
};

/// The app's entry to Amazon sign-in: signs the user in for the scope "profile" through the
/// sign-in client, then asks for the access token and the profile in parallel and reports the
/// e-mail, the user id and the access token, or an error.
///
/// Made by `make` and owned by the app through the `shared_ptr` it returns. Every closure given to
/// the client refers to the service weakly: when the app releases the service during a sign-in,
/// the steps still to come are skipped and nothing is reported.
///
/// Completions run at most once per call, and in some cases never (see `login`); a caller must
/// not wait for exactly one. Errors have the domain "AmazonLogin", the client's `AIError` code
/// and {"message": the client's message}.
///
/// Thread contract: main thread only, like the sign-in client. Failures of the sign-in, of the
/// token and of the profile are reported from inside the client's answer, on the main thread;
/// a success is posted to the client's `MainThread` once both requests have answered.
class APPLOGIC_EXPORT AmazonLoginService : public std::enable_shared_from_this<AmazonLoginService> {
 public:
  using LoginCompletion = std::function<void(Result<AmazonLoginInfo>)>;
  /// (access token, e-mail, error): (token, email, absent) on success, (absent, absent, error) on
  /// failure.
  using SandboxLoginCompletion =
      std::function<void(std::optional<std::string>, std::optional<std::string>, std::optional<Error>)>;

  /// A service that drives `client`. The client's platform must have a `MainThread` (a
  /// programming error otherwise: `fatalError`).
  static std::shared_ptr<AmazonLoginService> make(AIMobileLib client);

  /// Signs in (options {"sandbox_mode": "YES" or "NO"} on every call to the client), then asks
  /// for the access token and the profile with the same options. Reports:
  /// - the sign-in's failure, the token's or the profile's: the error (when both of the latter
  ///   fail, the one that answered last);
  /// - success when the profile is a non-empty object whose "email" and "user_id" are strings
  ///   and a token arrived; other profile keys are ignored.
  /// Nothing is reported when the service was released before a step was due, when the token
  /// result is not a string, or when the profile lacks a string "email" or "user_id" and no
  /// error was stored.
  void login(bool sandbox, LoginCompletion completion);
  /// `login`, reported as (access token, e-mail, absent) or (absent, absent, error); the user id
  /// is not passed on.
  void loginWithSandbox(bool sandbox, SandboxLoginCompletion completion);
  /// Signs out through the client (`clearAuthorizationState` with no delegate): nothing is
  /// reported.
  void logOut();

  /// The client's failure as a platform error: domain "AmazonLogin", the code, {"message":
  /// message}. A negative code is a programming error of the client (`fatalError`).
  static Error convertErrorType(const APIError& apiError);

 private:
  explicit AmazonLoginService(AIMobileLib client);

  void getAuthToken(const JsonObject& options, std::function<void(Result<std::string>)> completion);
  void getUserInfo(const JsonObject& options, std::function<void(Result<JsonObject>)> completion);

  AIMobileLib client_;
  std::shared_ptr<platform::MainThread> mainThread_;
  std::vector<std::string> requestScopes_{"profile"};
};

}  // namespace applogic::signin
