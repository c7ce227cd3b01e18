#include "applogic/controllers/users_tracks_data_controller.h"

#include <utility>

#include "applogic/records/track_serializers.h"
#include "controllers/parse_step.h"

namespace applogic {
namespace {

using Serializer = std::optional<std::vector<Track>> (*)(const Json&);

const Error& unparsable() {
  static const Error error = typedParsingError("UsersTracksDataController");
  return error;
}

rx::Observable<std::vector<Track>> favoriteTracks(const Json& answer) {
  return detail::emitOrFail(FavoriteResponseToTracksSerializer(answer), unparsable());
}

// The charts and the recent tracks have always shown an empty list rather than an error when
// the answer could not be read.
rx::Observable<std::vector<Track>> tracksOrEmpty(std::optional<std::vector<Track>> tracks) {
  return rx::just(std::move(tracks).value_or(std::vector<Track>{}));
}

rx::Observable<UserTracksUpdate> userTracksUpdates(rx::Observable<UserResultUpdate> first,
                                                   rx::Observable<UserResultUpdate> second, Serializer serializer,
                                                   std::shared_ptr<const CurrentUserProvider> provider) {
  return rx::merge(std::vector{std::move(first), std::move(second)})
      .flatMap([serializer, provider = std::move(provider)](const UserResultUpdate& update) {
        if (!update.result.ok()) return rx::error<UserTracksUpdate>(update.result.error());
        std::optional<UserTracksUpdate> parsed;
        if (auto tracks = serializer(update.result.value())) {
          parsed = UserTracksUpdate{UserHintToUserID(update.user, *provider), std::move(*tracks)};
        }
        return detail::emitOrFail(std::move(parsed), unparsable());
      });
}

}  // namespace

UsersTracksDataController::UsersTracksDataController(
    std::shared_ptr<const CurrentUserProvider> currentUserProvider,
    std::shared_ptr<TracksDataController> tracksDataController, std::shared_ptr<QAPIChartsService> chartsService,
    std::shared_ptr<QAPIFavoritesService> favoritesService,
    std::shared_ptr<QAPIListeningHistoryService> listeningHistoryService)
    : currentUserProvider_(std::move(currentUserProvider)),
      chartsService_(std::move(chartsService)),
      favoritesService_(std::move(favoritesService)),
      listeningHistoryService_(std::move(listeningHistoryService)),
      tracksDataController_(std::move(tracksDataController)) {}

rx::Observable<std::vector<Track>> UsersTracksDataController::getUserTopChartTracks(
    const std::string& /*userID*/, int limit, QAPIChartsService::Range range) const {
  return chartsService_->getCurrentUserTopCharts(QAPIChartsService::ChartType::tracks, range, limit)
      .flatMap([](const Json& answer) { return tracksOrEmpty(UserTopChartTracksResponseToTracksSerializer(answer)); });
}

rx::Observable<std::vector<Track>> UsersTracksDataController::getUserFavoriteTracks(
    const std::string& /*userID*/, int offset, int itemPerPage, rx::Observable<Unit> nextPageTrigger) const {
  return favoritesService_
      ->getCurrentUserFavorites(QAPIFavoritesService::AssetFilterType::tracks, offset, itemPerPage,
                                std::move(nextPageTrigger))
      .flatMap(favoriteTracks);
}

rx::Observable<std::optional<Track>> UsersTracksDataController::getFavoriteTrack(
    const std::string& /*forUser*/) const {
  return favoritesService_
      ->getCurrentUserFavorites(QAPIFavoritesService::AssetFilterType::tracks, 0, 1, rx::just(unit))
      .flatMap(favoriteTracks)
      .map([](const std::vector<Track>& tracks) -> std::optional<Track> {
        if (tracks.empty()) return std::nullopt;
        return tracks.front();
      });
}

rx::Observable<std::vector<Track>> UsersTracksDataController::getUserRecentTracks(const std::string& /*userID*/,
                                                                                  int limit) const {
  return listeningHistoryService_->getCurrentUserRecentTracks(limit).flatMap(
      [](const Json& answer) { return tracksOrEmpty(ListeningHistoryResponseToTracksSerializer(answer)); });
}

rx::Observable<UserTracksUpdate> UsersTracksDataController::getUserTopChartsTracksObservable() const {
  auto updated = chartsService_->topChartsUpdated();
  auto refreshed = chartsService_->topChartsRefreshed();
  return userTracksUpdates(std::move(updated), std::move(refreshed), UserTopChartTracksResponseToTracksSerializer,
                           currentUserProvider_);
}

rx::Observable<UserTracksUpdate> UsersTracksDataController::getUserRecentTracksUpdated() const {
  auto updated = listeningHistoryService_->recentTracksUpdated();
  auto refreshed = listeningHistoryService_->recentTracksRefreshed();
  return userTracksUpdates(std::move(updated), std::move(refreshed), ListeningHistoryResponseToTracksSerializer,
                           currentUserProvider_);
}

}  // namespace applogic
