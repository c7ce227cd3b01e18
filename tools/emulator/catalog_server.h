#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/support/result.h"
#include "emulator/signin_server.h"

namespace applogic::emulator {

/// The error domain of `CatalogServer::start`; its codes and message key are the sign-in
/// server's (kSignInServerCertificateError, kSignInServerCaFileError, kSignInServerPortError).
inline constexpr const char* kCatalogServerErrorDomain = "CatalogServer";

/// The user id of a valid access token; absent for an unknown, expired or revoked one.
using TokenVerifier = std::function<std::optional<std::string>(std::string_view accessToken)>;

/// A verifier that asks the sign-in server at `signInBaseUrl` ("https://127.0.0.1:<port>")
/// through its control endpoint `GET /__control/token`, trusting the CA in `caPath`. Nothing is
/// cached; a token the server cannot be asked about is invalid.
TokenVerifier remoteTokenVerifier(std::string signInBaseUrl, std::filesystem::path caPath);
/// A verifier backed by a sign-in server of this process, which must outlive the catalog.
TokenVerifier localTokenVerifier(const SignInServer& server);

struct CatalogServerOptions {
  /// The port on 127.0.0.1; 0 picks any free one.
  std::uint16_t port = 0;
  /// Where the CA certificate (PEM) is written, as for the sign-in server. Ignored with `tls`.
  std::filesystem::path caOut;
  /// Another server's TLS identity (`SignInServer::sharedTls`): this server then presents the
  /// same certificate and `caPath()` is that server's CA file.
  std::optional<SharedTls> tls;
  /// Required: checks the bearer token of every API request.
  TokenVerifier verifyToken;
  /// The account whose plays previews record (the sign-in server's test account).
  std::string accountUserId = "tunevo.account.TESTLISTENER1";
  /// The `api_key` the Giphy endpoints accept.
  std::string giphyApiKey = "tunevo-giphy-key";
  /// The seed of the generated catalog.
  std::uint64_t seed = 1;
  /// Added before every answer.
  std::chrono::milliseconds latency{0};
  /// The time between keep-alive comments on idle event streams.
  std::chrono::milliseconds keepAliveInterval{15000};
};

/// The local Tunevo catalog service (docs/catalog-service.md): the REST API under `/v1`, update
/// events, previews, Giphy under `/giphy`, and test controls under `/__control/catalog/`
/// (described in docs/ARCHITECTURE.md; control requests are not recorded), over HTTPS on
/// loopback, from an in-memory catalog generated from the options' seed.
///
/// Thread contract: every member may be called from any thread; requests are served on the
/// server's own threads from `start` until destruction, which stops them: open event streams and
/// delayed answers end at once.
class CatalogServer {
 public:
  /// Fails (domain "CatalogServer", user info "message") when the certificates cannot be made,
  /// the CA cannot be written, the port cannot be bound, or no token verifier is given (code 0).
  static Result<std::unique_ptr<CatalogServer>> start(CatalogServerOptions options);

  ~CatalogServer();
  CatalogServer(const CatalogServer&) = delete;
  CatalogServer& operator=(const CatalogServer&) = delete;

  std::uint16_t port() const;
  /// "https://127.0.0.1:<port>".
  std::string baseUrl() const;
  /// baseUrl() + "/v1".
  std::string apiBaseUrl() const;
  /// baseUrl() + "/giphy/v1".
  std::string giphyBaseUrl() const;
  const std::filesystem::path& caPath() const;

  // Fault knobs. Each "next n" knob applies to the next n requests as they arrive (API, Giphy and
  // previews; not control requests): a request waits the latency, then takes a pending drop, else
  // a pending 500, else (an API or Giphy API request) a pending 401.

  /// A delay before every answer from now on.
  void setLatency(std::chrono::milliseconds latency);
  /// The next `n` requests answer 500 with the error body.
  void failNext(int n = 1);
  /// The next `n` requests have their connection closed without an answer.
  void dropNext(int n = 1);
  /// The next `n` API or Giphy API requests answer 401 as if their token (key) had expired.
  void expireNext(int n = 1);
  /// Pushes a `topic` event ("charts.updated" or "history.updated") for another user; false for
  /// another topic.
  bool pushForeignEvent(std::string_view topic, std::string_view userId);

  /// The requests received since start or the last reset, in order of arrival (the last 10 000).
  std::vector<RecordedRequest> requests() const;
  /// How many event streams and delayed answers ended because their client went away.
  int abandonedRequests() const;
  /// Forgets knobs, recorded requests, counts and kept events, and restores the generated catalog.
  void reset();

 private:
  class Impl;
  explicit CatalogServer(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace applogic::emulator
