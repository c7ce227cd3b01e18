#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "applogic/export.h"
#include "applogic/platform/http_client.h"
#include "applogic/signin/client/ai_call_context.h"
#include "applogic/signin/client/ai_client_services.h"
#include "applogic/signin/client/ai_token.h"

namespace applogic::signin {

/// The client's version, sent as "di.sdk.version" and in the User-Agent.
inline constexpr std::string_view kAISDKVersion = "2.1.1";
/// The client's product token in the User-Agent.
inline constexpr std::string_view kAIUserAgentProduct = "LWA";

/// A request's parameters, name to value. Encoded lists follow this map's (sorted) order.
using AIParameters = std::map<std::string, std::string, std::less<>>;

/// The common part of every request the client sends: the device parameters, the headers and
/// the encoding of parameter lists.
///
/// Requests are built from `AIClientServices` (the device information, the app's identity and
/// configuration). A request without a `DeviceInfo` in the platform leaves out the three device
/// parameters and writes empty device fields into the User-Agent.
///
/// Thread contract: main thread.
class APPLOGIC_EXPORT AIAuthPortalRequest {
 public:
  explicit AIAuthPortalRequest(std::shared_ptr<const AIClientServices> services);
  virtual ~AIAuthPortalRequest() = default;

  /// The request's parameters. The base gives "di.hw.name", "di.os.name", "di.os.version" (the
  /// device's model, system name and version), "di.sdk.version" ("2.1.1"), "sandbox" ("true",
  /// only when the option "sandbox_mode" is true), "appIdentifier" (`AIUtils::getAppId`, when the
  /// app has one) and "scope_data" (the option, when it is a string). Subclasses add theirs and
  /// may write a failure into the context's error (they then answer an empty map).
  virtual AIParameters getParameters(const AICallContext& context) const;

  /// "name=value" pairs joined by "&", in the map's order. With `encode`, each value (never the
  /// name) is escaped by `escapeForUrl`.
  static std::string buildParamList(const AIParameters& parameters, bool encode);
  /// Escapes, as "%" and two upper-case hex digits of each UTF-8 byte, every character but ASCII
  /// letters and digits and "!$&'()*+,-./:;=@_~". The reserved characters "&", "=", "+", "/",
  /// ":" and "@" therefore stay; "?", "%" and "#" are escaped, so a value escaped beforehand is
  /// escaped again.
  static std::string escapeForUrl(std::string_view value);

  /// Appends the client's headers, in this order: "Accept-Encoding", "Accept-Language",
  /// "Accept", "Accept-Charset", "User-Agent" (`userAgent()`).
  void setHeader(platform::HttpHeaders& headers) const;
  /// "LWA/2.1.1/iOS/<system name>-<system version>/<device model>".
  std::string userAgent() const;

  /// The sign-in page address (`AIUtils::getAuthzHost`); absent without app information.
  virtual std::optional<std::string> getEndPointWithOption(const AICallContext& context) const;
  /// The address requests are sent to: by default the end point.
  virtual std::optional<std::string> getBaseUrlWithOption(const AICallContext& context) const;

  const AIClientServices& services() const noexcept { return *services_; }

 protected:
  std::shared_ptr<const AIClientServices> services_;
};

/// The sign-in page request: the base parameters with `mParams` over them. Made only by
/// `initWithCallContext` and `initWithCallContextSSO`.
class APPLOGIC_EXPORT AI3POpenIdRequest final : public AIAuthPortalRequest {
 public:
  /// The ordinary request. Without a redirect address (`AIUtils::getRedirectToUrl`), writes code
  /// 6 "Redirect to uri is invalid." into the context's error and answers null; without a client
  /// id, code 6 "Client id is invalid." and null. Otherwise `mParams` holds "response_type" =
  /// "code", "scope" (the context's scopes joined by single blanks, trimmed), "client_id",
  /// "redirect_uri", "state" (the context's `UID`) and, unless the option "sandbox_mode" is true,
  /// "amzn_respectRmrMeAuthState", "amzn_showRmrMe" and "amzn_rmrMeDefaultSelected" = "1"; the
  /// context is registered in `openIdRequestStates` (when given) under its state.
  static std::unique_ptr<AI3POpenIdRequest> initWithCallContext(std::shared_ptr<const AIClientServices> services,
                                                                const std::shared_ptr<AICallContext>& context,
                                                                AIOpenIdRequestStates* openIdRequestStates);
  /// The single-sign-on request: the same five parameters, then "sso.version" = "2.0" and
  /// "skipSignIn" = "1", never the three "amzn_" ones. Failures and registration as above.
  static std::unique_ptr<AI3POpenIdRequest> initWithCallContextSSO(std::shared_ptr<const AIClientServices> services,
                                                                   const std::shared_ptr<AICallContext>& context,
                                                                   AIOpenIdRequestStates* openIdRequestStates);

  /// The sign-in parameters; the sign-in view adds the proof-key challenge here.
  AIParameters& mParams() noexcept { return mParams_; }
  const AIParameters& mParams() const noexcept { return mParams_; }

  /// The base parameters with `mParams` added over them.
  AIParameters getParameters(const AICallContext& context) const override;

 private:
  explicit AI3POpenIdRequest(std::shared_ptr<const AIClientServices> services) : AIAuthPortalRequest(std::move(services)) {}
  static std::unique_ptr<AI3POpenIdRequest> make(std::shared_ptr<const AIClientServices> services,
                                                 const std::shared_ptr<AICallContext>& context,
                                                 AIOpenIdRequestStates* openIdRequestStates, bool sso);

  AIParameters mParams_;
};

/// A request that spends a token at the server (`requestToken`): the base parameters plus
/// "code_verifier" (the shared proof key's verifier, when it has one).
class APPLOGIC_EXPORT AIExchangeRequest : public AIAuthPortalRequest {
 public:
  AIExchangeRequest(std::shared_ptr<const AIClientServices> services, std::shared_ptr<const AIToken> requestToken);

  const std::shared_ptr<const AIToken>& requestToken() const noexcept { return requestToken_; }

  AIParameters getParameters(const AICallContext& context) const override;
  /// Appends the exchange's own headers after the client's (`setHeader`).
  virtual void addHeaders(platform::HttpHeaders& headers) const;

  /// The request to send: for POST, the base address with the encoded list as its UTF-8 body;
  /// for GET, "<base address>?<encoded list>" and no body; the client's headers, then the
  /// exchange's. When the parameters come back empty or there is no base address, writes code 9
  /// "SDK incountered internal Error." into the context's error (unless an error is already set)
  /// and answers absent.
  std::optional<platform::HttpRequest> makeUrlRequest(const AICallContext& context, bool isPost) const;

 protected:
  /// The request token's string; absent when there is no token or it has no string.
  std::optional<std::string> tokenString() const;

  std::shared_ptr<const AIToken> requestToken_;
};

/// Exchanges the authorization code for tokens at the token endpoint (`tokenExchange`), POST.
/// Adds "client_id", "code", "grant_type" = "authorization_code" and "redirect_uri", and the
/// header "Content-Type: application/x-www-form-urlencoded". Without a client id: code 6 "Client
/// id is invalid." and no parameters; without a code: no parameters.
class APPLOGIC_EXPORT AICodeExchangeRequest final : public AIExchangeRequest {
 public:
  using AIExchangeRequest::AIExchangeRequest;
  AIParameters getParameters(const AICallContext& context) const override;
  void addHeaders(platform::HttpHeaders& headers) const override;
  std::optional<std::string> getBaseUrlWithOption(const AICallContext& context) const override;
};

/// Refreshes the access token at the token endpoint, POST. Adds "scope" (the refresh token's
/// scopes joined by single blanks, trimmed), "grant_type" = "refresh_token", "client_id" and
/// "refresh_token"; no header of its own (the form content type comes from the HTTP client).
/// Without a client id: code 6 "Client id is invalid." and no parameters; without a token: no
/// parameters.
class APPLOGIC_EXPORT AIAccessTokenRequest final : public AIExchangeRequest {
 public:
  using AIExchangeRequest::AIExchangeRequest;
  AIParameters getParameters(const AICallContext& context) const override;
  std::optional<std::string> getBaseUrlWithOption(const AICallContext& context) const override;
};

/// Fetches the profile, GET, with the base parameters and "code_verifier" as the query and the
/// header "Authorization: Bearer <access token>". The address is `profileEndpoint` of the
/// context's sandbox option and the sign-in page address.
class APPLOGIC_EXPORT AIProfileExchangerRequest final : public AIExchangeRequest {
 public:
  using AIExchangeRequest::AIExchangeRequest;
  void addHeaders(platform::HttpHeaders& headers) const override;
  std::optional<std::string> getBaseUrlWithOption(const AICallContext& context) const override;

  /// The profile endpoint variant: integration when `authz` contains "development", production
  /// otherwise; the sandbox address of either when `sandbox`. Pure.
  static const std::string& profileEndpoint(const ClientConfiguration& configuration, bool sandbox,
                                            std::string_view authz);
};

}  // namespace applogic::signin
