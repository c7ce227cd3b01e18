#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/platform/http_client.h"
#include "applogic/platform/main_thread.h"
#include "applogic/support/error.h"
#include "applogic/support/result.h"

namespace applogic::signin {
class AIMobileLib;
}

/// What every HTTP client of the music service shares: where the service is, how requests reach
/// it, and whose access token they carry. The paths and answers are described in
/// docs/catalog-service.md.
namespace applogic::services {

/// Domain of the errors the service clients make: a non-2xx answer (code: the HTTP status), or
/// a 2xx answer that is not JSON (code 0). Transport failures keep the HTTP client's own domain.
inline constexpr std::string_view kServiceErrorDomain = "applogic.service";
/// User-information keys of those errors: the server's message (or the status's meaning when
/// the answer has none), and the address that was asked.
inline constexpr std::string_view kServiceErrorMessageKey = "message";
inline constexpr std::string_view kServiceErrorUrlKey = "url";

/// The message of a service error, or empty when it has none.
std::string serviceErrorMessage(const Error& error);

/// Where requests get the signed-in user's access token.
///
/// Thread contract: called on the main thread; `completion` runs there once, possibly before
/// `accessToken` returns.
class AccessTokenSource {
 public:
  using Completion = std::function<void(Result<std::string>)>;

  virtual ~AccessTokenSource() = default;

  /// A valid access token, or why there is none. `forceRefresh`: the service refused the token
  /// last answered (HTTP 401), so a stored token must not be answered again.
  virtual void accessToken(bool forceRefresh, Completion completion) = 0;
};

/// The sign-in client's tokens: `getAccessTokenForScopes(scopes)`, with "force_refresh" "YES"
/// when a refresh is forced. Its failures arrive as `AmazonLoginService::convertErrorType` makes
/// them (domain "AmazonLogin"). Main thread, like the client.
std::shared_ptr<AccessTokenSource> makeSignInAccessTokenSource(const signin::AIMobileLib& client,
                                                               std::vector<std::string> scopes);

/// How the update streams come back after their connection drops: the first wait, doubled after
/// each failed attempt up to the maximum, and back to the first once a connection delivers an
/// event.
struct ReconnectPolicy {
  std::chrono::milliseconds firstDelay{500};
  std::chrono::milliseconds maximumDelay{30'000};
};

/// Where the service's resources are, relative to the base address (the defaults are the paths of
/// docs/catalog-service.md). "{id}" stands for the id the operation is given, percent-encoded;
/// "{type}" for the chart type ("tracks", "artists", "albums").
struct ServicePaths {
  std::string track = "/tracks/{id}";
  std::string topTracks = "/tracks/top";
  std::string search = "/search";
  std::string charts = "/me/charts/{type}";
  std::string favorites = "/me/favorites";
  std::string history = "/me/history";
  std::string events = "/me/events";
  std::string genres = "/genres";
  std::string genreTracks = "/genres/{id}/tracks";
  std::string newReleases = "/me/new-releases";
  std::string playlist = "/playlists/{id}";
  std::string playlistTracks = "/playlists/{id}/tracks";
  std::string playlistImages = "/playlists/{id}/images";
  std::string playlistGiphy = "/playlists/{id}/giphy";
  std::string playlistImage = "/playlists/{id}/image";
  std::string recommendations = "/playlists/{id}/recommendations";
  std::string rejections = "/me/recommendations/rejections";
};

/// The configuration of the music-service clients. The members up to `accessTokens` are required.
struct ServiceConfiguration {
  /// The API's base address, e.g. "https://127.0.0.1:8443/v1", without a trailing "/".
  std::string baseUrl;
  /// Requests are started on, and answered through, `mainThread`.
  std::shared_ptr<platform::HttpClient> http;
  std::shared_ptr<platform::MainThread> mainThread;
  std::shared_ptr<AccessTokenSource> accessTokens;
  /// The limit of each request (see `HttpRequest::timeout`). Update streams, which stay open,
  /// use three times their keep-alive period instead.
  std::chrono::seconds requestTimeout{30};
  ReconnectPolicy reconnect{};
  ServicePaths paths{};
};

}  // namespace applogic::services
