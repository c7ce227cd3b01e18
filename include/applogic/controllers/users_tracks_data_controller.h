#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "applogic/controllers/controller_error.h"
#include "applogic/controllers/current_user.h"
#include "applogic/controllers/services.h"
#include "applogic/controllers/tracks_data_controller.h"
#include "applogic/export.h"
#include "applogic/records/track.h"
#include "applogic/rx/observable.h"
#include "applogic/support/unit.h"

namespace applogic {

/// An element of the user track update streams: whose list changed and its new tracks.
struct APPLOGIC_EXPORT UserTracksUpdate {
  std::string userID;
  std::vector<Track> tracks;

  friend bool operator==(const UserTracksUpdate&, const UserTracksUpdate&) = default;
};

/// The signed-in user's own track lists (top chart, favourites, recently played) and the live
/// streams that say whose charts or listening history changed.
///
/// Holds its collaborators and nothing else. Every fetching operation calls its service at once
/// and returns the service's cold observable with the parsing step attached: each subscription
/// requests again, and errors of the service arrive unchanged. The `userID` and `forUser`
/// arguments are accepted and not used: they are sent nowhere, and the services always answer
/// for the signed-in user.
///
/// Parsing failures differ by operation, on purpose: the top chart and the recent tracks turn an
/// unparsable answer into an empty list; favourites and the update streams fail with
/// ("UsersTracksDataController", 1).
///
/// Thread contract: operations may be called from any thread. The controller applies no
/// scheduler: events arrive on the thread the service emits on, and the update streams call
/// the `CurrentUserProvider` on that thread.
class APPLOGIC_EXPORT UsersTracksDataController {
 public:
  /// The code of this controller's typed error, whose domain is "UsersTracksDataController".
  using ErrorCode = applogic::ErrorCode;

  /// No pointer may be null. `tracksDataController` is kept only; no operation calls it.
  UsersTracksDataController(std::shared_ptr<const CurrentUserProvider> currentUserProvider,
                            std::shared_ptr<TracksDataController> tracksDataController,
                            std::shared_ptr<QAPIChartsService> chartsService,
                            std::shared_ptr<QAPIFavoritesService> favoritesService,
                            std::shared_ptr<QAPIListeningHistoryService> listeningHistoryService);

  /// The signed-in user's top track chart over `range`, at most `limit` entries: one list, then
  /// completion. An unparsable answer gives an empty list, never a parsing error.
  rx::Observable<std::vector<Track>> getUserTopChartTracks(const std::string& userID, int limit,
                                                           QAPIChartsService::Range range) const;

  /// The signed-in user's favourite tracks, one list per page: the service asks for a page on
  /// each emission of `nextPageTrigger`, starting at `offset` with `itemPerPage` per page.
  /// Completes when the service does. An unparsable page fails the whole stream with
  /// ("UsersTracksDataController", 1).
  rx::Observable<std::vector<Track>> getUserFavoriteTracks(const std::string& userID, int offset, int itemPerPage,
                                                           rx::Observable<Unit> nextPageTrigger) const;

  /// The signed-in user's first favourite track (exactly one page of one item is asked for):
  /// one value, absent when there are no favourites, then completion. An unparsable answer
  /// fails with ("UsersTracksDataController", 1).
  rx::Observable<std::optional<Track>> getFavoriteTrack(const std::string& forUser) const;

  /// The signed-in user's recently played tracks, at most `limit`: one list, then completion.
  /// An unparsable answer gives an empty list, never a parsing error.
  rx::Observable<std::vector<Track>> getUserRecentTracks(const std::string& userID, int limit) const;

  /// A new observable of the charts service's two update streams merged (`topChartsUpdated`
  /// first, then `topChartsRefreshed`), updates arriving as they come. Each update names its user
  /// (an explicit user's id as given, else the signed-in user's id at the time of the update) and
  /// carries the top chart tracks. A failure result on either stream, or an unparsable answer
  /// (("UsersTracksDataController", 1)), ends the whole stream, the other stream included. An
  /// update for the signed-in user while nobody is signed in stops the program
  /// (`UserHintToUserID`).
  rx::Observable<UserTracksUpdate> getUserTopChartsTracksObservable() const;

  /// As `getUserTopChartsTracksObservable`, over the listening-history service's update streams
  /// (`recentTracksUpdated` first, then `recentTracksRefreshed`), carrying the recent tracks.
  rx::Observable<UserTracksUpdate> getUserRecentTracksUpdated() const;

 private:
  std::shared_ptr<const CurrentUserProvider> currentUserProvider_;
  std::shared_ptr<QAPIChartsService> chartsService_;
  std::shared_ptr<QAPIFavoritesService> favoritesService_;
  std::shared_ptr<QAPIListeningHistoryService> listeningHistoryService_;
  std::shared_ptr<TracksDataController> tracksDataController_;
};

}  // namespace applogic
