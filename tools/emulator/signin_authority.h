#pragma once

// The OAuth 2 authorization server behind the HTTP shell: sign-in requests, codes, grants and
// tokens, as synchronous functions from request parameters to answers. Not thread-safe: the
// server calls it under its lock.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "emulator/signin_server.h"

namespace applogic::emulator::detail {

using TimePoint = std::chrono::system_clock::time_point;

struct Answer {
  int status = 200;
  std::string contentType;
  std::string body;
  Pairs headers;
};

/// Where a sign-in request goes back to.
struct RedirectTarget {
  std::string redirectUri;
  std::optional<std::string> state;
};

Answer oauthJsonError(int status, std::string_view error, std::string_view description);
Answer htmlPage(int status, std::string_view title, std::string_view bodyHtml);
Answer redirectWithError(const RedirectTarget& target, std::string_view error, std::string_view description);
/// The answer of an injected fault: the JSON error of the token and profile endpoints, or the
/// redirect of the sign-in page to `target`.
Answer faultAnswer(Fault fault, const RedirectTarget& target);

class SignInAuthority {
 public:
  explicit SignInAuthority(const SignInServerOptions& options);

  /// GET /ap/oa.
  Answer signInPage(const Pairs& query, TimePoint now);
  /// POST /ap/oa (the form of the page).
  Answer submitSignIn(const Pairs& form, TimePoint now);
  /// POST /auth/o2/token; `isForm`: the body was declared application/x-www-form-urlencoded.
  Answer token(const Pairs& form, bool isForm, TimePoint now);
  /// GET /user/profile with the Authorization header's value.
  Answer profile(std::optional<std::string_view> authorization, TimePoint now);

  /// Where a sign-in page request would be redirected, when it names a usable target: for a
  /// GET its client id and redirect address; for a POST its pending sign-in, which is consumed.
  std::optional<RedirectTarget> takeRedirectTarget(bool isPost, const Pairs& params, TimePoint now);

  /// The token's user, scopes and expiry; absent when unknown, revoked or expired at `now`.
  std::optional<AccessTokenInfo> checkAccessToken(std::string_view token, TimePoint now) const;

  void setAccessTokenLifetime(std::chrono::seconds lifetime) { accessTokenLifetime_ = lifetime; }
  /// Forgets every sign-in, code, grant and token.
  void reset();

 private:
  struct SignInRequest {
    std::string clientId;
    RedirectTarget target;
    std::vector<std::string> scopes;
    std::string challenge;
    TimePoint expiresAt;
  };
  struct Code {
    std::uint64_t grant = 0;
    std::string clientId;
    std::string redirectUri;
    std::string challenge;
    TimePoint expiresAt;
    bool spent = false;
  };
  struct Grant {
    std::string clientId;
    std::vector<std::string> scopes;
    bool revoked = false;
  };
  struct RefreshToken {
    std::uint64_t grant = 0;
    bool current = true;
  };
  struct AccessToken {
    std::uint64_t grant = 0;
    std::vector<std::string> scopes;
    TimePoint expiresAt;
  };

  // A usable client id and redirect address, or the 400 page that says why not.
  std::variant<RedirectTarget, Answer> checkClientAndRedirect(const Pairs& query) const;
  Answer codeGrant(const Pairs& form, TimePoint now);
  Answer refreshGrant(const Pairs& form, TimePoint now);
  Answer issueTokens(std::uint64_t grant, std::vector<std::string> scopes, TimePoint now);
  void revoke(std::uint64_t grant);

  SignInServerOptions options_;
  std::chrono::seconds accessTokenLifetime_;
  std::uint64_t nextGrant_ = 1;
  std::map<std::string, SignInRequest, std::less<>> signIns_;
  std::map<std::string, Code, std::less<>> codes_;
  std::map<std::uint64_t, Grant> grants_;
  std::map<std::string, RefreshToken, std::less<>> refreshTokens_;
  std::map<std::string, AccessToken, std::less<>> accessTokens_;
};

}  // namespace applogic::emulator::detail
