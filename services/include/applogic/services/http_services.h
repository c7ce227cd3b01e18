#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "applogic/controllers/giphy_service.h"
#include "applogic/controllers/playlists_service.h"
#include "applogic/controllers/services.h"
#include "applogic/services/service_configuration.h"

/// The music service's clients over HTTP: one class per service contract of the data
/// controllers, each operation one request (`docs/catalog-service.md` names the paths).
///
/// Common contract, on top of the one of the service interfaces:
/// - every request carries `Authorization: Bearer <token>` from the configuration's
///   `AccessTokenSource`; a 401 answer asks it once for a forced refresh and the request is sent
///   once more; a second 401 fails the request;
/// - a request fails with one error: the HTTP client's (domain "applogic.http"), the token
///   source's, or a service error (`kServiceErrorDomain`, code = status, the server's message);
/// - disposing a subscription cancels its request (the connection is closed);
/// - paged operations ask for one page per emission of the trigger, at offsets `offset`,
///   `offset + limit` ..., and complete after the last page (the answer's `meta` says so) or
///   when the trigger has completed and every page asked for was answered;
/// - update streams hold one long request each (server-sent events), reconnect with back-off
///   after the connection drops, and end only by disposal.
///
/// Thread contract: operations may be called and subscribed to from any thread; requests are
/// started and answered on the main thread, where every event arrives. Destroy the clients on
/// the main thread; the observables they returned keep what they need and may outlive them.
/// Requests still running when the last client and observable of a configuration go are
/// cancelled, without a terminal event.
namespace applogic::services {

class ServiceCore;

/// What the clients of one configuration share. Made by `makeHttpServices`.
class HttpTracksService final : public QAPITracksService {
 public:
  explicit HttpTracksService(std::shared_ptr<ServiceCore> core) : core_(std::move(core)) {}
  rx::Observable<Json> getTrackData(const std::string& trackId) override;
  rx::Observable<Json> getTopTracksData(int limit) override;

 private:
  std::shared_ptr<ServiceCore> core_;
};

class HttpSearchService final : public QAPISearchService {
 public:
  explicit HttpSearchService(std::shared_ptr<ServiceCore> core) : core_(std::move(core)) {}
  rx::Observable<Json> searchTracks(const std::string& query, int limit) override;

 private:
  std::shared_ptr<ServiceCore> core_;
};

class HttpChartsService final : public QAPIChartsService {
 public:
  explicit HttpChartsService(std::shared_ptr<ServiceCore> core) : core_(std::move(core)) {}
  /// Only `ChartType::tracks` exists on the service; the others fail with a 404 service error.
  rx::Observable<Json> getCurrentUserTopCharts(ChartType chartType, Range range, int limit) override;
  rx::Observable<UserResultUpdate> topChartsUpdated() override;
  rx::Observable<UserResultUpdate> topChartsRefreshed() override;

 private:
  std::shared_ptr<ServiceCore> core_;
};

class HttpFavoritesService final : public QAPIFavoritesService {
 public:
  explicit HttpFavoritesService(std::shared_ptr<ServiceCore> core) : core_(std::move(core)) {}
  rx::Observable<Json> getCurrentUserFavorites(AssetFilterType filter, int offset, int itemPerPage,
                                               rx::Observable<Unit> nextPageTrigger) override;

 private:
  std::shared_ptr<ServiceCore> core_;
};

class HttpListeningHistoryService final : public QAPIListeningHistoryService {
 public:
  explicit HttpListeningHistoryService(std::shared_ptr<ServiceCore> core) : core_(std::move(core)) {}
  rx::Observable<Json> getCurrentUserRecentTracks(int limit) override;
  rx::Observable<UserResultUpdate> recentTracksUpdated() override;
  rx::Observable<UserResultUpdate> recentTracksRefreshed() override;

 private:
  std::shared_ptr<ServiceCore> core_;
};

class HttpGenreService final : public QAPIGenreService {
 public:
  explicit HttpGenreService(std::shared_ptr<ServiceCore> core) : core_(std::move(core)) {}
  rx::Observable<Json> getTopGenres(const std::string& language) override;
  rx::Observable<Json> getGenreTopTracks(const std::string& genreId, int limit) override;

 private:
  std::shared_ptr<ServiceCore> core_;
};

class HttpPersonalizedService final : public QAPIPersonalizedService {
 public:
  explicit HttpPersonalizedService(std::shared_ptr<ServiceCore> core) : core_(std::move(core)) {}
  rx::Observable<Json> getNewReleaseRecommendedTracks(int offset, int itemsPerPage,
                                                      rx::Observable<Unit> nextPageTrigger) override;

 private:
  std::shared_ptr<ServiceCore> core_;
};

/// `serialQueue` names the caller's queue; this library's queues run no work, so events arrive
/// on the main thread whichever queue is given.
class HttpPlaylistsService final : public QAPIPlaylistsService {
 public:
  explicit HttpPlaylistsService(std::shared_ptr<ServiceCore> core);
  SerialQueue defaultQueue() const override { return defaultQueue_; }
  rx::Observable<Json> get(const std::string& playlistId, std::optional<SerialQueue> serialQueue) override;
  rx::Observable<Json> getPlaylistTracks(const std::string& playlistID, int limit, int offset,
                                         std::optional<SerialQueue> serialQueue) override;
  rx::Observable<Json> getImages(const std::string& playlistID, std::optional<Size> size) override;
  rx::Observable<Json> updatePlaylistGif(const std::string& playlistID, const std::string& gifID) override;
  rx::Observable<Json> deletePlaylistGif(const std::string& playlistID) override;
  rx::Observable<Unit> uploadPlaylistImage(const std::string& playlistID, std::vector<std::uint8_t> data) override;
  rx::Observable<Json> getRecommendedTracks(const std::string& playlistID,
                                            std::optional<SerialQueue> serialQueue) override;
  rx::Observable<Json> rejectRecommendedTracks(const std::vector<std::string>& trackIDs,
                                               std::optional<SerialQueue> serialQueue) override;
  rx::Observable<Unit> addTracks(const std::string& playlistID, const std::vector<std::string>& trackIDs,
                                 std::optional<SerialQueue> serialQueue) override;
  rx::Observable<Unit> setTracks(const std::string& playlistID, const std::vector<std::string>& trackIDs,
                                 std::optional<SerialQueue> serialQueue) override;

 private:
  std::shared_ptr<ServiceCore> core_;
  SerialQueue defaultQueue_;
};

/// Every client of one configuration, sharing one core.
struct HttpServices {
  std::shared_ptr<HttpTracksService> tracks;
  std::shared_ptr<HttpSearchService> search;
  std::shared_ptr<HttpChartsService> charts;
  std::shared_ptr<HttpFavoritesService> favorites;
  std::shared_ptr<HttpListeningHistoryService> history;
  std::shared_ptr<HttpGenreService> genres;
  std::shared_ptr<HttpPersonalizedService> personalized;
  std::shared_ptr<HttpPlaylistsService> playlists;
};

/// The clients of `configuration`, or why it cannot be used: a missing member or a base address
/// that is not absolute http(s) (domain `kServiceErrorDomain`, code 0).
Result<HttpServices> makeHttpServices(ServiceConfiguration configuration);

/// Configuration of the Giphy client. Every member is required.
struct GiphyConfiguration {
  /// Giphy's API base, e.g. "https://api.giphy.com/v1", without a trailing "/".
  std::string baseUrl;
  std::string apiKey;
  std::shared_ptr<platform::HttpClient> http;
  std::shared_ptr<platform::MainThread> mainThread;
  std::chrono::seconds requestTimeout{30};
};

/// Giphy's API over HTTP: `api_key`, `rating`, `lang`, `limit` and `offset` as query parameters,
/// no user token. Errors, cancellation, paging and threads as the music-service clients above
/// (a Giphy error's message is its answer's "meta"."msg").
class HttpGiphyService final : public GiphyAPIService {
 public:
  /// The client, or why `configuration` cannot be used (as `makeHttpServices`).
  static Result<std::shared_ptr<HttpGiphyService>> make(GiphyConfiguration configuration);

  rx::Observable<Json> getTrending(GiphyRating rating, int limit) override;
  rx::Observable<Json> search(const std::string& term, GiphyRating rating, const std::string& language, int offset,
                              int limit) override;
  rx::Observable<Json> searchPaginated(const std::string& term, GiphyRating rating, const std::string& language,
                                       int itemPerPage, rx::Observable<Unit> nextPageTrigger) override;
  rx::Observable<Json> get(const std::string& id) override;

  explicit HttpGiphyService(std::shared_ptr<ServiceCore> core, std::string apiKey)
      : core_(std::move(core)), apiKey_(std::move(apiKey)) {}

 private:
  std::shared_ptr<ServiceCore> core_;
  std::string apiKey_;
};

}  // namespace applogic::services
