#include "applogic/services/http_services.h"

#include <charconv>
#include <utility>

#include "applogic/signin/amazon_login_service.h"
#include "applogic/signin/client/ai_mobile_lib.h"
#include "applogic/support/json.h"
#include "service_core.h"

namespace applogic::services {

namespace {

std::string number(int value) { return std::to_string(value); }

std::string number(float value) {
  char text[32];
  const auto [end, error] = std::to_chars(text, text + sizeof text, value);
  return error == std::errc() ? std::string(text, end) : std::string("0");
}

ServiceRequest get(std::string path, std::vector<std::pair<std::string, std::string>> query = {}) {
  return ServiceRequest{"GET", std::move(path), std::move(query), std::nullopt, {}};
}

ServiceRequest withJson(std::string method, std::string path, const JsonObject& body) {
  return ServiceRequest{std::move(method), std::move(path), {}, jsonBody(body), "application/json"};
}

JsonObject trackIdsBody(const std::vector<std::string>& trackIDs) {
  JsonArray ids;
  ids.reserve(trackIDs.size());
  for (const auto& id : trackIDs) ids.emplace_back(id);
  JsonObject body;
  body["trackIds"] = std::move(ids);
  return body;
}

// The music service's error answers: {"error": {"status", "message"}}.
std::optional<std::string> musicErrorMessage(const Json& answer) {
  const JsonObject* object = answer.if_object();
  const JsonObject* error = object ? json::object(*object, "error") : nullptr;
  const auto message = error ? json::string(*error, "message") : std::nullopt;
  if (!message) return std::nullopt;
  return std::string(*message);
}

// Giphy's error answers: {"meta": {"status", "msg"}}.
std::optional<std::string> giphyErrorMessage(const Json& answer) {
  const JsonObject* object = answer.if_object();
  const JsonObject* meta = object ? json::object(*object, "meta") : nullptr;
  const auto message = meta ? json::string(*meta, "msg") : std::nullopt;
  if (!message) return std::nullopt;
  return std::string(*message);
}

// A page is the last when it reaches the total or holds nothing; an answer that does not say
// is taken as the last, so that a service without counts is never asked forever.
bool reachesTotal(const JsonObject* counts, std::string_view returnedKey, std::string_view totalKey, int offset) {
  const auto returned = counts ? json::integer(*counts, returnedKey) : std::nullopt;
  const auto total = counts ? json::integer(*counts, totalKey) : std::nullopt;
  if (!returned || !total) return true;
  return *returned <= 0 || offset + *returned >= *total;
}

bool musicLastPage(const Json& answer, int offset) {
  const JsonObject* object = answer.if_object();
  return reachesTotal(object ? json::object(*object, "meta") : nullptr, "returnedCount", "totalCount", offset);
}

bool giphyLastPage(const Json& answer, int offset) {
  const JsonObject* object = answer.if_object();
  return reachesTotal(object ? json::object(*object, "pagination") : nullptr, "count", "total_count", offset);
}

std::string_view chartTypeName(QAPIChartsService::ChartType type) {
  switch (type) {
    case QAPIChartsService::ChartType::tracks: return "tracks";
    case QAPIChartsService::ChartType::artists: return "artists";
    case QAPIChartsService::ChartType::albums: return "albums";
  }
  return "tracks";
}

std::string_view filterName(QAPIFavoritesService::AssetFilterType filter) {
  switch (filter) {
    case QAPIFavoritesService::AssetFilterType::all: return "all";
    case QAPIFavoritesService::AssetFilterType::artists: return "artists";
    case QAPIFavoritesService::AssetFilterType::albums: return "albums";
    case QAPIFavoritesService::AssetFilterType::tracks: return "tracks";
    case QAPIFavoritesService::AssetFilterType::playlists: return "playlists";
  }
  return "all";
}

// Answers the sign-in client's access token, forcing a refresh when asked.
class SignInAccessTokenSource final : public AccessTokenSource {
 public:
  SignInAccessTokenSource(const signin::AIMobileLib& client, std::vector<std::string> scopes)
      : client_(client), scopes_(std::move(scopes)) {}

  void accessToken(bool forceRefresh, Completion completion) override {
    JsonObject overrides;
    if (forceRefresh) overrides["force_refresh"] = "YES";
    auto shared = std::make_shared<Completion>(std::move(completion));
    auto delegate = std::make_shared<signin::AmazonLoginServiceGetAccessTokenDelegate>(
        [shared](std::string token) { (*shared)(Result<std::string>::success(std::move(token))); },
        [shared](std::optional<signin::APIError> error) {
          (*shared)(Result<std::string>::failure(
              error ? signin::AmazonLoginService::convertErrorType(*error)
                    : Error{signin::kAmazonLoginErrorDomain, 0, {{"message", "The sign-in client answered no token."}}}));
        });
    client_.getAccessTokenForScopes(scopes_, overrides, delegate);
  }

 private:
  signin::AIMobileLib client_;
  std::vector<std::string> scopes_;
};

}  // namespace

std::shared_ptr<AccessTokenSource> makeSignInAccessTokenSource(const signin::AIMobileLib& client,
                                                               std::vector<std::string> scopes) {
  return std::make_shared<SignInAccessTokenSource>(client, std::move(scopes));
}

// ---- the music service ----

rx::Observable<Json> HttpTracksService::getTrackData(const std::string& trackId) {
  return core_->fetchJson(get(pathOf(core_->options().paths.track, trackId)));
}

rx::Observable<Json> HttpTracksService::getTopTracksData(int limit) {
  return core_->fetchJson(get(core_->options().paths.topTracks, {{"limit", number(limit)}}));
}

rx::Observable<Json> HttpSearchService::searchTracks(const std::string& query, int limit) {
  return core_->fetchJson(get(core_->options().paths.search, {{"q", query}, {"limit", number(limit)}}));
}

rx::Observable<Json> HttpChartsService::getCurrentUserTopCharts(ChartType chartType, Range range, int limit) {
  return core_->fetchJson(get(pathOf(core_->options().paths.charts, chartTypeName(chartType)),
                              {{"range", range == Range::lastMonth ? "month" : "all"}, {"limit", number(limit)}}));
}

rx::Observable<UserResultUpdate> HttpChartsService::topChartsUpdated() { return core_->updates("charts.updated"); }
rx::Observable<UserResultUpdate> HttpChartsService::topChartsRefreshed() { return core_->updates("charts.refreshed"); }

rx::Observable<Json> HttpFavoritesService::getCurrentUserFavorites(AssetFilterType filter, int offset, int itemPerPage,
                                                                   rx::Observable<Unit> nextPageTrigger) {
  std::string filterText(filterName(filter));
  return core_->fetchPages(
      [path = core_->options().paths.favorites, filterText, itemPerPage](int pageOffset) {
        return get(path, {{"filter", filterText}, {"offset", number(pageOffset)}, {"limit", number(itemPerPage)}});
      },
      offset, itemPerPage, musicLastPage, std::move(nextPageTrigger));
}

rx::Observable<Json> HttpListeningHistoryService::getCurrentUserRecentTracks(int limit) {
  return core_->fetchJson(get(core_->options().paths.history, {{"limit", number(limit)}}));
}

rx::Observable<UserResultUpdate> HttpListeningHistoryService::recentTracksUpdated() {
  return core_->updates("history.updated");
}
rx::Observable<UserResultUpdate> HttpListeningHistoryService::recentTracksRefreshed() {
  return core_->updates("history.refreshed");
}

rx::Observable<Json> HttpGenreService::getTopGenres(const std::string& language) {
  return core_->fetchJson(get(core_->options().paths.genres, {{"lang", language}}));
}

rx::Observable<Json> HttpGenreService::getGenreTopTracks(const std::string& genreId, int limit) {
  return core_->fetchJson(get(pathOf(core_->options().paths.genreTracks, genreId), {{"limit", number(limit)}}));
}

rx::Observable<Json> HttpPersonalizedService::getNewReleaseRecommendedTracks(int offset, int itemsPerPage,
                                                                            rx::Observable<Unit> nextPageTrigger) {
  return core_->fetchPages(
      [path = core_->options().paths.newReleases, itemsPerPage](int pageOffset) {
        return get(path, {{"offset", number(pageOffset)}, {"limit", number(itemsPerPage)}});
      },
      offset, itemsPerPage, musicLastPage, std::move(nextPageTrigger));
}

// ---- playlists ----

HttpPlaylistsService::HttpPlaylistsService(std::shared_ptr<ServiceCore> core)
    : core_(std::move(core)), defaultQueue_("AppLogic.HttpPlaylistsService") {}

rx::Observable<Json> HttpPlaylistsService::get(const std::string& playlistId, std::optional<SerialQueue> /*queue*/) {
  return core_->fetchJson(services::get(pathOf(core_->options().paths.playlist, playlistId)));
}

rx::Observable<Json> HttpPlaylistsService::getPlaylistTracks(const std::string& playlistID, int limit, int offset,
                                                             std::optional<SerialQueue> /*queue*/) {
  return core_->fetchJson(services::get(pathOf(core_->options().paths.playlistTracks, playlistID),
                                        {{"offset", number(offset)}, {"limit", number(limit)}}));
}

rx::Observable<Json> HttpPlaylistsService::getImages(const std::string& playlistID, std::optional<Size> size) {
  std::vector<std::pair<std::string, std::string>> query;
  if (size) query = {{"width", number(size->width)}, {"height", number(size->height)}};
  return core_->fetchJson(services::get(pathOf(core_->options().paths.playlistImages, playlistID), std::move(query)));
}

rx::Observable<Json> HttpPlaylistsService::updatePlaylistGif(const std::string& playlistID, const std::string& gifID) {
  JsonObject body;
  body["gifId"] = gifID;
  return core_->fetchJson(withJson("PUT", pathOf(core_->options().paths.playlistGiphy, playlistID), body));
}

rx::Observable<Json> HttpPlaylistsService::deletePlaylistGif(const std::string& playlistID) {
  return core_->fetchJson(ServiceRequest{"DELETE", pathOf(core_->options().paths.playlistGiphy, playlistID), {}, std::nullopt, {}});
}

rx::Observable<Unit> HttpPlaylistsService::uploadPlaylistImage(const std::string& playlistID,
                                                              std::vector<std::uint8_t> data) {
  return core_->fetchUnit(ServiceRequest{"PUT", pathOf(core_->options().paths.playlistImage, playlistID), {},
                                      std::string(data.begin(), data.end()), "application/octet-stream"});
}

rx::Observable<Json> HttpPlaylistsService::getRecommendedTracks(const std::string& playlistID,
                                                                std::optional<SerialQueue> /*queue*/) {
  return core_->fetchJson(services::get(pathOf(core_->options().paths.recommendations, playlistID)));
}

rx::Observable<Json> HttpPlaylistsService::rejectRecommendedTracks(const std::vector<std::string>& trackIDs,
                                                                   std::optional<SerialQueue> /*queue*/) {
  return core_->fetchJson(withJson("POST", core_->options().paths.rejections, trackIdsBody(trackIDs)));
}

rx::Observable<Unit> HttpPlaylistsService::addTracks(const std::string& playlistID,
                                                     const std::vector<std::string>& trackIDs,
                                                     std::optional<SerialQueue> /*queue*/) {
  return core_->fetchUnit(withJson("POST", pathOf(core_->options().paths.playlistTracks, playlistID), trackIdsBody(trackIDs)));
}

rx::Observable<Unit> HttpPlaylistsService::setTracks(const std::string& playlistID,
                                                     const std::vector<std::string>& trackIDs,
                                                     std::optional<SerialQueue> /*queue*/) {
  return core_->fetchUnit(withJson("PUT", pathOf(core_->options().paths.playlistTracks, playlistID), trackIdsBody(trackIDs)));
}

Result<HttpServices> makeHttpServices(ServiceConfiguration configuration) {
  if (!configuration.accessTokens) {
    return Result<HttpServices>::failure(Error{std::string(kServiceErrorDomain),
                                               0,
                                               {{std::string(kServiceErrorMessageKey),
                                                 "The music service needs an access-token source."}}});
  }
  Result<std::shared_ptr<ServiceCore>> core = ServiceCore::make(CoreOptions{std::move(configuration), musicErrorMessage});
  if (!core) return Result<HttpServices>::failure(core.error());
  const std::shared_ptr<ServiceCore>& shared = core.value();
  return Result<HttpServices>::success(HttpServices{
      std::make_shared<HttpTracksService>(shared), std::make_shared<HttpSearchService>(shared),
      std::make_shared<HttpChartsService>(shared), std::make_shared<HttpFavoritesService>(shared),
      std::make_shared<HttpListeningHistoryService>(shared), std::make_shared<HttpGenreService>(shared),
      std::make_shared<HttpPersonalizedService>(shared), std::make_shared<HttpPlaylistsService>(shared)});
}

// ---- Giphy ----

Result<std::shared_ptr<HttpGiphyService>> HttpGiphyService::make(GiphyConfiguration configuration) {
  ServiceConfiguration service{std::move(configuration.baseUrl), std::move(configuration.http),
                               std::move(configuration.mainThread), nullptr, configuration.requestTimeout};
  Result<std::shared_ptr<ServiceCore>> core = ServiceCore::make(CoreOptions{std::move(service), giphyErrorMessage});
  if (!core) return Result<std::shared_ptr<HttpGiphyService>>::failure(core.error());
  return Result<std::shared_ptr<HttpGiphyService>>::success(
      std::make_shared<HttpGiphyService>(core.value(), std::move(configuration.apiKey)));
}

rx::Observable<Json> HttpGiphyService::getTrending(GiphyRating rating, int limit) {
  return core_->fetchJson(services::get(
      "/gifs/trending", {{"api_key", apiKey_}, {"limit", number(limit)}, {"rating", std::string(rawValue(rating))}}));
}

rx::Observable<Json> HttpGiphyService::search(const std::string& term, GiphyRating rating, const std::string& language,
                                              int offset, int limit) {
  return core_->fetchJson(services::get("/gifs/search", {{"api_key", apiKey_},
                                                         {"q", term},
                                                         {"limit", number(limit)},
                                                         {"offset", number(offset)},
                                                         {"rating", std::string(rawValue(rating))},
                                                         {"lang", language}}));
}

rx::Observable<Json> HttpGiphyService::searchPaginated(const std::string& term, GiphyRating rating,
                                                       const std::string& language, int itemPerPage,
                                                       rx::Observable<Unit> nextPageTrigger) {
  return core_->fetchPages(
      [apiKey = apiKey_, term, rating = std::string(rawValue(rating)), language, itemPerPage](int offset) {
        return services::get("/gifs/search", {{"api_key", apiKey},
                                              {"q", term},
                                              {"limit", number(itemPerPage)},
                                              {"offset", number(offset)},
                                              {"rating", rating},
                                              {"lang", language}});
      },
      0, itemPerPage, giphyLastPage, std::move(nextPageTrigger));
}

rx::Observable<Json> HttpGiphyService::get(const std::string& id) {
  return core_->fetchJson(services::get("/gifs/" + pathSegment(id), {{"api_key", apiKey_}}));
}

}  // namespace applogic::services
