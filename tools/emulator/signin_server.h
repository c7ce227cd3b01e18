#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "applogic/platform/clock.h"
#include "applogic/support/result.h"

namespace applogic::emulator {

/// The error domain of `SignInServer::start`, its codes, and the user-information key of its text.
inline constexpr const char* kSignInServerErrorDomain = "SignInServer";
inline constexpr std::int64_t kSignInServerCertificateError = 1;  ///< the certificates cannot be made
inline constexpr std::int64_t kSignInServerCaFileError = 2;       ///< the CA file cannot be written
inline constexpr std::int64_t kSignInServerPortError = 3;         ///< the port cannot be bound
inline constexpr const char* kSignInServerErrorMessageKey = "message";

namespace detail {
struct TlsIdentity;
}

/// A server's TLS identity (its CA and certificate) and the file its CA was written to. Servers of
/// one process that share it are trusted through one CA file.
struct SharedTls {
  std::shared_ptr<const detail::TlsIdentity> identity;
  std::filesystem::path caPath;
};

/// What the sign-in server knows of a valid access token.
struct AccessTokenInfo {
  std::string userId;
  std::vector<std::string> scopes;
  std::chrono::system_clock::time_point expiresAt;
};

/// Ordered name/value pairs, as they arrived (duplicates kept).
using Pairs = std::vector<std::pair<std::string, std::string>>;

/// The three services of the sign-in server.
enum class Endpoint {
  signInPage,  ///< "/ap/oa", GET (the page) and POST (the form)
  token,       ///< "/auth/o2/token"
  profile,     ///< "/user/profile"
};

/// OAuth refusals that a test can make the next request of an endpoint answer with.
enum class Fault {
  invalidGrant,       ///< token endpoint: 400 {"error": "invalid_grant"}
  invalidToken,       ///< profile: 401 {"error": "invalid_token"}
  insufficientScope,  ///< profile: 403 {"error": "insufficient_scope"}, description naming "scope required profile"
  versionDenied,      ///< sign-in page: redirect with error=version_denied
  refusal,            ///< sign-in page: redirect with error=access_denied
};

/// The endpoint a fault answers on.
Endpoint endpointOf(Fault fault);

/// A request the server received, as it arrived: query and form parameters percent-decoded
/// (a "+" is a blank), headers in the server's order (grouped by name), the body as bytes.
struct RecordedRequest {
  std::string method;
  std::string path;
  Pairs headers;
  Pairs query;
  /// The body's parameters when it is `application/x-www-form-urlencoded`, otherwise empty.
  Pairs form;
  std::string body;
};

struct SignInServerOptions {
  /// The port on 127.0.0.1; 0 picks any free one (read it back with `port()`).
  std::uint16_t port = 0;
  /// Where the CA certificate (PEM) is written. Empty: `ca.pem` in a new directory under the
  /// system's temporary directory, removed with the server. A given path is overwritten and left
  /// in place.
  std::filesystem::path caOut;
  /// The one test account of the sign-in page. The e-mail address is matched ignoring ASCII case,
  /// the password exactly.
  std::string email = "listener@tunevo.test";
  std::string password = "tunevo-password";
  std::string userId = "tunevo.account.TESTLISTENER1";
  std::string name = "Test Listener";
  std::string postalCode = "98101";
  /// The app whose redirect address is accepted: "amzn-<bundleId>://...". Empty: any "amzn-" scheme.
  std::string bundleId;
  /// The only accepted client id. Empty: any non-empty client id (codes and tokens stay bound to
  /// the client they were issued to).
  std::string clientId;
  /// The scopes the sign-in page grants; others are refused with invalid_scope.
  std::vector<std::string> scopes{"profile", "profile:user_id", "postal_code"};
  std::chrono::seconds accessTokenLifetime{3600};
  /// The time used for token expiry; null: the system clock. Certificates always use the system
  /// clock, since the clients that check them do.
  std::shared_ptr<const platform::Clock> clock;
};

/// A local OAuth 2 authorization server for the sign-in client, serving HTTPS on loopback with a
/// certificate from a CA made at start:
///
/// - `GET /ap/oa` checks the sign-in request and shows an HTML form (e-mail, password) for the
///   test account; `POST /ap/oa` (the form) redirects (302) to the request's `redirect_uri` with
///   `code`, `scope` and `state`, or with `error`/`error_description`/`state`. A request without a
///   usable `client_id` or `redirect_uri` gets a 400 HTML page instead of a redirect.
/// - `POST /auth/o2/token` (a form; `application/x-www-form-urlencoded` required) with
///   `grant_type` `authorization_code` (single-use code, S256 verifier, client id and redirect
///   address checked) or `refresh_token` (rotated on every use; an old one used again revokes
///   the grant). Answers `{"access_token", "refresh_token", "token_type": "bearer",
///   "expires_in", "scope"}`, or an OAuth error object with status 400 (401 for invalid_client).
/// - `GET /user/profile` with `Authorization: Bearer <access token>`: `{"user_id", "email",
///   "name"}` (only "user_id" for the scope "profile:user_id"; "postal_code" with that scope);
///   401 invalid_token for an unknown, expired or revoked token, 403 insufficient_scope without a
///   profile scope, 400 invalid_request without a token.
/// - `GET /__control/token?access_token=...`: what `checkAccessToken` knows of a token, as
///   `{"active": true, "user_id", "scope" (blank-separated), "expires_at" (ISO 8601 UTC)}` or
///   `{"active": false}`, so that a service in another process can check the tokens it is sent.
/// - `/__control/...`: the test controls below over HTTP, for a server in another process
///   (described in docs/ARCHITECTURE.md). Control requests are not recorded.
///
/// Thread contract: every member may be called from any thread; requests are served on the
/// server's own threads from `start` until destruction, which stops them (a delayed request is
/// answered at once).
class SignInServer {
 public:
  /// Makes the CA and the server certificate, writes the CA, binds the port and starts serving.
  /// Fails (domain "SignInServer", user info "message") when the certificates cannot be made,
  /// the CA cannot be written or the port cannot be bound.
  static Result<std::unique_ptr<SignInServer>> start(SignInServerOptions options);

  ~SignInServer();
  SignInServer(const SignInServer&) = delete;
  SignInServer& operator=(const SignInServer&) = delete;

  std::uint16_t port() const;
  /// "https://127.0.0.1:<port>", without a trailing slash.
  std::string baseUrl() const;
  /// The CA certificate file, and its PEM text.
  const std::filesystem::path& caPath() const;
  const std::string& caPem() const;
  /// The TLS identity and CA file, for another server of this process (see CatalogServerOptions).
  SharedTls sharedTls() const;

  /// The user, scopes and expiry of an access token this server issued; absent when it is
  /// unknown, expired (by the options' clock) or revoked.
  std::optional<AccessTokenInfo> checkAccessToken(std::string_view token) const;

  // Test controls. Injections queue in order per endpoint; each applies to the next request of
  // its endpoint (any method) that reaches the server, and a delay and an answer queued for the
  // same endpoint both apply to that one request. A sign-in page redirect fault waits for a
  // request whose redirect address is usable.

  /// The next `times` requests of `endpoint` answer 500 with
  /// {"error": "server_error", "error_description": ...} (an HTML page on the sign-in page).
  void injectServerError(Endpoint endpoint, int times = 1);
  /// The next request of `endpoint` waits `delay` before it is handled.
  void injectDelay(Endpoint endpoint, std::chrono::milliseconds delay);
  /// The next request of the fault's endpoint answers with the fault. Nothing else changes: an
  /// injected invalid_grant revokes nothing.
  void inject(Fault fault);
  /// The `expires_in` of access tokens issued from now on.
  void setAccessTokenLifetime(std::chrono::seconds lifetime);
  /// Every request received since start or the last reset, in order of arrival.
  std::vector<RecordedRequest> requests() const;
  /// Forgets injections, recorded requests, pending sign-ins, codes and tokens, and restores the
  /// access-token lifetime of the options.
  void reset();

 private:
  class Impl;
  explicit SignInServer(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace applogic::emulator
