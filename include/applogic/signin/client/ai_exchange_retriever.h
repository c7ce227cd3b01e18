#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/platform/http_client.h"
#include "applogic/signin/client/ai_auth_portal_request.h"
#include "applogic/signin/client/ai_call_context.h"
#include "applogic/signin/client/ai_client_services.h"
#include "applogic/signin/client/ai_exchange_response.h"

namespace applogic::signin {

/// What a finished answer leads to (`nextExchangeStep`).
enum class AIExchangeStep {
  retry,         ///< send the same request again
  invalidToken,  ///< the token spent was refused: the exchange's invalid-token handling
  report,        ///< answer the waiting calls
};

/// How many times an answer with status 500 and an error is retried before it is reported.
inline constexpr int kAIExchangeMaxRetries = 3;

/// The decision after an answer, in this order: status 500 with an error and fewer than 3 retries
/// made: retry; the server's error string equal to `invalidTokenWord` but for ASCII case:
/// invalidToken; otherwise report. Pure.
APPLOGIC_EXPORT AIExchangeStep nextExchangeStep(int status, bool hasError, const std::optional<std::string>& errorCode,
                                int retriesMade, std::string_view invalidTokenWord);

/// One of the client's three server exchanges: sends a prepared request through the platform's
/// `HttpClient` and answers every call context that waits on it.
///
/// Calls that arrive while the exchange is running join it (`callContexts`) and receive the same
/// answer: one request goes out, however many wait. An answer with status 500 and an error is
/// retried up to three times with the same request; the fourth is reported. A connection
/// failure is code 7 with the failure's description. Every waiting context is answered exactly
/// once, with the exchange's operation number, through its delegate; the list is taken out
/// before the answers are given, so a delegate that starts a new call starts a new exchange.
///
/// Made by `std::make_shared` (its connections and delegate roles refer back to it). Destroying it
/// cancels the running request; nobody is answered then.
///
/// Thread contract: main thread only (checked in debug builds); the HTTP client delivers there.
class APPLOGIC_EXPORT AIExchangeRetriever : public std::enable_shared_from_this<AIExchangeRetriever> {
 public:
  explicit AIExchangeRetriever(std::shared_ptr<const AIClientServices> services);
  virtual ~AIExchangeRetriever();
  AIExchangeRetriever(const AIExchangeRetriever&) = delete;
  AIExchangeRetriever& operator=(const AIExchangeRetriever&) = delete;

  /// Adds `context` to the waiting calls and, unless a request is already running, prepares
  /// `request` (`AIExchangeRequest::makeUrlRequest`) and sends it. When nothing can be sent
  /// (the request cannot be built, or the platform has no HTTP client: code 7 "Network error
  /// encountered."), the error is in `context`, which is taken off the list again and not
  /// answered here: the caller answers it. A `context` with a delegate whose error is already set
  /// joins nothing and sends nothing: its caller answers it from that error, exactly once.
  void doExchangeWithRequest(const AIExchangeRequest& request, std::shared_ptr<AICallContext> context, bool isPost);

  /// Whether an exchange is running (new calls join it).
  virtual bool isBusy() const noexcept { return connection_ != nullptr; }
  /// The calls waiting on this exchange, first one first.
  const std::vector<std::shared_ptr<AICallContext>>& callContexts() const noexcept { return callContexts_; }
  /// Retries made of the current request.
  int nRetry() const noexcept { return nRetry_; }
  /// The HTTP status of the last answer (0 before any).
  int responseStatusCode() const noexcept { return responseStatusCode_; }

  /// The operation number this exchange answers with.
  virtual std::uint32_t operation() const = 0;

 protected:
  /// The error string that means the token spent was refused, upper-case.
  virtual std::string_view invalidTokenWord() const = 0;
  /// The response for `body`, parsed against `first` (which receives any failure).
  virtual std::unique_ptr<AIExchangeResponse> makeResponse(std::string body, const AICallContext& first) = 0;
  /// Saves what the answer carries and answers every waiting call with success.
  virtual void answerSuccess(AIExchangeResponse& response) = 0;
  /// The server refused the token spent.
  virtual void handleInvalidRequestToken(AIExchangeResponse& response) = 0;
  /// Called when an answer is about to be reported, before success or failure is chosen.
  virtual void willReport(AIExchangeResponse& response);
  /// Answers every waiting call with failure: the first one's error is copied into all, each
  /// is answered `requestDidFail` with `operation()`, and the list is emptied.
  virtual void invokeAuthenticationDelegatesOnFailure();

  /// Takes the waiting list out (the retriever is idle for new calls from here on) after copying
  /// the first context's error into every one.
  std::vector<std::shared_ptr<AICallContext>> takeCallContextsWithFirstError();
  /// Sends `originalRequest_` again (or for the first time).
  void sendExchangeRequest();
  void checkThread() const;

  std::shared_ptr<const AIClientServices> services_;
  std::vector<std::shared_ptr<AICallContext>> callContexts_;
  std::optional<platform::HttpRequest> originalRequest_;
  int nRetry_ = 0;
  /// Whether a reported answer resets `nRetry_` (the profile exchange keeps its count).
  bool resetsRetryCountOnReport_ = true;

 private:
  void connectionDidReceiveResponse(const platform::HttpResponse& response);
  void connectionDidReceiveData(std::string_view data);
  void connectionDidFail(const Error& error);
  void connectionDidFinishLoading();

  std::string receivedData_;
  int responseStatusCode_ = 0;
  // Declared last, so it is destroyed first: the handlers it holds refer to this object.
  std::unique_ptr<platform::HttpConnection> connection_;
};

/// What the code exchange asks of the sign-in in progress (the coordinator fills them in; an
/// empty one is skipped).
struct APPLOGIC_EXPORT AISignInHooks {
  /// Removes the sign-in view (before a failed sign-in is answered).
  std::function<void()> removeSignInView;
  /// Forgets every sign-in request in progress (`openIdRequestStates`).
  std::function<void()> clearOpenIdRequestStates;
};

/// Exchanges the authorization code for a refresh and an access token (operation 1). On success
/// saves the refresh token, then the access token, and answers with no result; "invalid_grant"
/// deletes the code and every stored kind after it. A failure removes the sign-in view; both
/// outcomes forget the sign-in requests before answering (so a delegate that signs in again from
/// its answer keeps its new state).
class APPLOGIC_EXPORT AICodeExchangeRetriever final : public AIExchangeRetriever {
 public:
  AICodeExchangeRetriever(std::shared_ptr<const AIClientServices> services, AISignInHooks hooks)
      : AIExchangeRetriever(std::move(services)), hooks_(std::move(hooks)) {}

  /// Exchanges the stored code (type 3) for `context` (`getRefreshTokenForAuthCode:`). False when
  /// nothing was sent and the context's error says why; the caller then ends the sign-in.
  bool getRefreshTokenForAuthCode(const std::shared_ptr<AICallContext>& context);

  std::uint32_t operation() const override { return kAPIAuthorizeUser; }

 protected:
  std::string_view invalidTokenWord() const override { return "INVALID_GRANT"; }
  std::unique_ptr<AIExchangeResponse> makeResponse(std::string body, const AICallContext& first) override;
  void answerSuccess(AIExchangeResponse& response) override;
  void handleInvalidRequestToken(AIExchangeResponse& response) override;
  void invokeAuthenticationDelegatesOnFailure() override;

 private:
  AISignInHooks hooks_;
};

/// Refreshes the access token with the stored refresh token (operation 2). On success saves the
/// access token, then the refresh token when the answer carried one, and answers the access
/// token's string; "invalid_grant" deletes every stored kind.
class APPLOGIC_EXPORT AIAccessTokenRetriever final : public AIExchangeRetriever {
 public:
  using AIExchangeRetriever::AIExchangeRetriever;

  /// Refreshes for `context` (`getAccessToken:`): reads the stored refresh token and runs the
  /// refresh. Without a usable refresh token, code 1 "The refresh token is invalid, expired or
  /// revoked."; when nothing could be sent, `context` is answered `requestDidFail` at once.
  void getAccessToken(const std::shared_ptr<AICallContext>& context);

  std::uint32_t operation() const override { return kAPIGetAccessToken; }

 protected:
  std::string_view invalidTokenWord() const override { return "INVALID_GRANT"; }
  std::unique_ptr<AIExchangeResponse> makeResponse(std::string body, const AICallContext& first) override;
  void answerSuccess(AIExchangeResponse& response) override;
  void handleInvalidRequestToken(AIExchangeResponse& response) override;
};

/// Fetches the profile with the stored access token (operation 4). On success stores it as
/// `AIProfileData` and answers the profile object.
///
/// "INVALID_TOKEN": the access token is refreshed once (through `accessTokenRetriever`, for a
/// call of its own that shares the first waiting call's error object), then the profile call is
/// repeated for every waiting call; a failed refresh fails them all. A second "INVALID_TOKEN"
/// after that refresh is reported. "INSUFFICIENT_SCOPE" whose description contains "scope
/// required profile" (ignoring case) removes the scope "profile" from the stored refresh token.
/// The retry count is never reset by a reported answer.
class APPLOGIC_EXPORT AIProfileExchangerRetriever final : public AIExchangeRetriever, public AIAuthenticationDelegate {
 public:
  AIProfileExchangerRetriever(std::shared_ptr<const AIClientServices> services,
                              std::weak_ptr<AIAccessTokenRetriever> accessTokenRetriever);

  /// Fetches the profile for `context` (`getProfile:`) with the stored access token; when nothing
  /// could be sent, `context` is answered `requestDidFail` at once.
  void getProfile(const std::shared_ptr<AICallContext>& context);

  std::uint32_t operation() const override { return kAPIGetProfile; }

  /// The answers of the refresh started for "INVALID_TOKEN".
  void requestDidSucceed(const APIResult& result) override;
  void requestDidFail(const APIError& error) override;

  /// Also while the refresh for "INVALID_TOKEN" runs.
  bool isBusy() const noexcept override { return AIExchangeRetriever::isBusy() || refreshing_; }

 protected:
  std::string_view invalidTokenWord() const override { return "INVALID_TOKEN"; }
  std::unique_ptr<AIExchangeResponse> makeResponse(std::string body, const AICallContext& first) override;
  void answerSuccess(AIExchangeResponse& response) override;
  void handleInvalidRequestToken(AIExchangeResponse& response) override;
  void willReport(AIExchangeResponse& response) override;
  void invokeAuthenticationDelegatesOnFailure() override;

 private:
  std::weak_ptr<AIAccessTokenRetriever> accessTokenRetriever_;
  bool refreshing_ = false;
  bool refreshedOnce_ = false;
};

}  // namespace applogic::signin
