#pragma once

#include <string>

// `UserResultUpdate` holds a `Result<Json>`, whose variant needs the complete JSON value type;
// every other declaration here would do with "applogic/support/json_fwd.h".
#include <boost/json/value.hpp>

#include "applogic/controllers/current_user.h"
#include "applogic/export.h"
#include "applogic/rx/observable.h"
#include "applogic/support/json_fwd.h"
#include "applogic/support/result.h"
#include "applogic/support/unit.h"

/// What the data controllers require of the music-service client: one abstract class per family
/// of requests. The app creates the service objects and hands them to the controllers, which
/// never configure them.
///
/// Common contract of every fetching operation:
/// - it returns a cold observable: nothing is requested until subscription, and each
///   subscription issues the request again;
/// - a request emits the raw answer (one JSON value: usually an object, or an array of objects)
///   and completes, or fails with the transport's `Error`; the controllers never look inside the
///   answer themselves, they hand it whole to a serializer;
/// - paged operations take a `nextPageTrigger`: the service subscribes to it and asks for the
///   next page on each of its emissions, emitting one answer per page; the stream completes
///   when the trigger has completed and the last page was answered;
/// - the operations may be called from any thread; events arrive on a thread of the service's
///   choosing, and the controllers deliver them on that same thread.
///
/// Update streams (charts, listening history) are hot: they emit a `UserResultUpdate` whenever
/// the service learns that a user's list changed, for as long as the service lives.
namespace applogic {

/// One element of a service update stream: whose list changed (`user`) and the new raw answer
/// for it, or the error that prevented fetching it (`result`).
struct APPLOGIC_EXPORT UserResultUpdate {
  UserHint user;
  Result<Json> result;
};

/// Catalog tracks.
class APPLOGIC_EXPORT QAPITracksService {
 public:
  virtual ~QAPITracksService() = default;

  /// The answer {"tracks": [...]} for one catalog track id.
  virtual rx::Observable<Json> getTrackData(const std::string& trackId) = 0;
  /// The answer {"tracks": [...]} with the catalog's top tracks, at most `limit` of them.
  virtual rx::Observable<Json> getTopTracksData(int limit) = 0;
};

/// Catalog search.
class APPLOGIC_EXPORT QAPISearchService {
 public:
  virtual ~QAPISearchService() = default;

  /// The answer {"data": [...]} with at most `limit` tracks matching `query`.
  virtual rx::Observable<Json> searchTracks(const std::string& query, int limit) = 0;
};

/// The signed-in user's charts.
class APPLOGIC_EXPORT QAPIChartsService {
 public:
  /// What a chart ranks. The controllers use only `tracks`.
  enum class ChartType { tracks, artists, albums };
  /// The period a chart covers.
  enum class Range { lastMonth, allTime };

  virtual ~QAPIChartsService() = default;

  /// The answer {"charts": [{"linked": {"tracks": [...]}}, ...]} with the signed-in user's top
  /// `chartType` chart over `range`, at most `limit` entries.
  virtual rx::Observable<Json> getCurrentUserTopCharts(ChartType chartType, Range range, int limit) = 0;

  /// Emits when a user's charts were updated by a change the service made or observed.
  virtual rx::Observable<UserResultUpdate> topChartsUpdated() = 0;
  /// Emits when a user's charts were fetched again on request (pull to refresh).
  virtual rx::Observable<UserResultUpdate> topChartsRefreshed() = 0;
};

/// The signed-in user's favourites.
class APPLOGIC_EXPORT QAPIFavoritesService {
 public:
  /// The kind of favourite asked for; the controllers use only `tracks` (index 3).
  enum class AssetFilterType { all = 0, artists = 1, albums = 2, tracks = 3, playlists = 4 };

  virtual ~QAPIFavoritesService() = default;

  /// Paged: the answers {"favorites": [{"linked": {"tracks": [...]}}, ...]} of the signed-in
  /// user's favourites of kind `filter`, starting at `offset`, `itemPerPage` per page, one page
  /// per emission of `nextPageTrigger`.
  virtual rx::Observable<Json> getCurrentUserFavorites(AssetFilterType filter, int offset, int itemPerPage,
                                                       rx::Observable<Unit> nextPageTrigger) = 0;
};

/// The signed-in user's listening history.
class APPLOGIC_EXPORT QAPIListeningHistoryService {
 public:
  virtual ~QAPIListeningHistoryService() = default;

  /// The answer {"tracks": [...]} with the signed-in user's most recently played tracks, at most
  /// `limit` of them.
  virtual rx::Observable<Json> getCurrentUserRecentTracks(int limit) = 0;

  /// Emits when a user's recent tracks changed because something was played.
  virtual rx::Observable<UserResultUpdate> recentTracksUpdated() = 0;
  /// Emits when a user's recent tracks were fetched again on request (pull to refresh).
  virtual rx::Observable<UserResultUpdate> recentTracksRefreshed() = 0;
};

/// Catalog genres.
class APPLOGIC_EXPORT QAPIGenreService {
 public:
  virtual ~QAPIGenreService() = default;

  /// The answer {"genres": [...]} with the top genres for `language` (a language code such as
  /// "en").
  virtual rx::Observable<Json> getTopGenres(const std::string& language) = 0;
  /// The answer {"tracks": [...]} with the top tracks of genre `genreId`, at most `limit`.
  virtual rx::Observable<Json> getGenreTopTracks(const std::string& genreId, int limit) = 0;
};

/// Recommendations for the signed-in user.
class APPLOGIC_EXPORT QAPIPersonalizedService {
 public:
  virtual ~QAPIPersonalizedService() = default;

  /// Paged: the answers {"tracks": [...]} of new releases recommended to the signed-in user,
  /// starting at `offset`, `itemsPerPage` per page, one page per emission of `nextPageTrigger`.
  virtual rx::Observable<Json> getNewReleaseRecommendedTracks(int offset, int itemsPerPage,
                                                              rx::Observable<Unit> nextPageTrigger) = 0;
};

}  // namespace applogic
