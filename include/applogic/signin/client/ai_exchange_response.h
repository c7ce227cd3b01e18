#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/platform/clock.h"
#include "applogic/signin/client/ai_call_context.h"
#include "applogic/signin/client/ai_token.h"
#include "applogic/support/json.h"

namespace applogic::signin {

/// The server's answer to an exchange, parsed. Plain object, main thread.
///
/// Parsing (`parseServerResponse`) writes any failure into the call context's error: an empty
/// body or one that is not a JSON object gives code 2 "Could not parse response from the
/// server."; an object with a string "error" keeps it (`errorCode`) and its "error_description"
/// (`errorMessage`) and maps them (`AIError::setErrorForErrorString`). Members the client does
/// not know (such as "iss") are ignored.
class APPLOGIC_EXPORT AIExchangeResponse {
 public:
  explicit AIExchangeResponse(std::string body) : jsonData_(std::move(body)) {}
  virtual ~AIExchangeResponse() = default;

  /// The body as received.
  const std::string& jsonData() const noexcept { return jsonData_; }
  /// True until a parse found a usable answer.
  bool hasError() const noexcept { return hasError_; }
  /// The server's "error" and "error_description", when it sent an error object.
  const std::optional<std::string>& errorCode() const noexcept { return errorCode_; }
  const std::optional<std::string>& errorMessage() const noexcept { return errorMessage_; }

  /// Parses the body into this response, writing failures into `context`'s error.
  virtual void parseServerResponse(const AICallContext& context) = 0;

 protected:
  /// The body's JSON object when it is one without an "error"; otherwise records the failure in
  /// this response and in `error` and answers absent. Clears `hasError` on success.
  std::optional<JsonObject> getResponseDictionaryFromJSON(AIError& error);
  /// Marks the response failed with code 2 "Received invalid response from the server.".
  void invalidResponse(AIError& error);

 private:
  std::string jsonData_;
  bool hasError_ = true;
  std::optional<std::string> errorCode_;
  std::optional<std::string> errorMessage_;
};

/// The answer to a code exchange: "access_token" with the context's scopes, expiring "expires_in"
/// seconds from now, and "refresh_token" with the context's scopes. A missing "expires_in",
/// a missing refresh token, or an access token that is absent or not valid gives code 2
/// "Received invalid response from the server.".
class APPLOGIC_EXPORT AICodeExchangeResponse final : public AIExchangeResponse {
 public:
  AICodeExchangeResponse(std::string body, std::shared_ptr<const platform::Clock> clock)
      : AIExchangeResponse(std::move(body)), clock_(std::move(clock)) {}
  void parseServerResponse(const AICallContext& context) override;

  const std::shared_ptr<AIAccessToken>& accessToken() const noexcept { return accessToken_; }
  const std::shared_ptr<AIRefreshToken>& refreshToken() const noexcept { return refreshToken_; }

 private:
  std::shared_ptr<const platform::Clock> clock_;
  std::shared_ptr<AIAccessToken> accessToken_;
  std::shared_ptr<AIRefreshToken> refreshToken_;
};

/// The answer to a refresh: "access_token" with the scopes that "scope" lists (split at single
/// blanks), expiring "expires_in" seconds from now; "refresh_token", when present, with
/// `storedRefreshScopes` (the scopes of the refresh token that was spent). An access token that
/// is absent or not valid, or a refresh token that is not valid, gives code 2 "Received invalid
/// response from the server."; a missing refresh token is no failure.
class APPLOGIC_EXPORT AIAccessTokenResponse final : public AIExchangeResponse {
 public:
  AIAccessTokenResponse(std::string body, std::shared_ptr<const platform::Clock> clock,
                        std::vector<std::string> storedRefreshScopes)
      : AIExchangeResponse(std::move(body)), clock_(std::move(clock)), storedRefreshScopes_(std::move(storedRefreshScopes)) {}
  void parseServerResponse(const AICallContext& context) override;

  const std::shared_ptr<AIAccessToken>& accessToken() const noexcept { return accessToken_; }
  /// Absent when the answer carried none.
  const std::shared_ptr<AIRefreshToken>& refreshToken() const noexcept { return refreshToken_; }

 private:
  std::shared_ptr<const platform::Clock> clock_;
  std::vector<std::string> storedRefreshScopes_;
  std::shared_ptr<AIAccessToken> accessToken_;
  std::shared_ptr<AIRefreshToken> refreshToken_;
};

/// The answer to a profile call: the whole JSON object is the profile.
class APPLOGIC_EXPORT AIProfileExchangerResponse final : public AIExchangeResponse {
 public:
  using AIExchangeResponse::AIExchangeResponse;
  void parseServerResponse(const AICallContext& context) override;

  const std::optional<JsonObject>& profile() const noexcept { return profile_; }

 private:
  std::optional<JsonObject> profile_;
};

}  // namespace applogic::signin
