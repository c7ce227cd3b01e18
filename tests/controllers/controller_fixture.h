#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/json.hpp>

#include "applogic/controllers/genre_data_controller.h"
#include "applogic/controllers/giphy_data_controller.h"
#include "applogic/controllers/personalized_data_controller.h"
#include "applogic/controllers/playlists_data_controller.h"
#include "applogic/controllers/search_data_controller.h"
#include "applogic/controllers/tracks_data_controller.h"
#include "applogic/controllers/users_tracks_data_controller.h"
#include "applogic/rx/rx.h"
#include "applogic/testing/fixed_locale.h"
#include "applogic/testing/scripted_giphy_service.h"
#include "applogic/testing/scripted_playlists_service.h"
#include "applogic/testing/scripted_services.h"

// The one fixture of the controller tests: every controller over scripted services, answers
// built from ids, and a log that renders a subscription's history as text ("[Tra.1,Tra.2]",
// "completed", "error:TracksDataController/1").
namespace applogic::controllers_test {

using Log = std::vector<std::string>;
using testing::Answer;
using testing::ServiceCall;

inline std::string describe(const std::string& text) { return text; }
inline std::string describe(const Unit&) { return "unit"; }
inline std::string describe(const Track& track) { return track.id; }
inline std::string describe(const Genre& genre) { return genre.id; }
inline std::string describe(const std::optional<Track>& track) { return track ? track->id : "none"; }
inline std::string describe(const Playlist& playlist) { return playlist.id; }
inline std::string describe(const PlaylistImage& image) { return image.giphyID() ? *image.giphyID() : "display"; }
inline std::string describe(const Giphy& giphy) {
  std::string text = giphy.id;
  for (const auto& [key, info] : giphy.images) text += " " + key + "=" + info.urlString;
  return text;
}
inline std::string describe(const Error& error) { return "error:" + error.domain + "/" + std::to_string(error.code); }

template <class T>
std::string describe(const std::vector<T>& items) {
  std::string text = "[";
  for (std::size_t i = 0; i < items.size(); ++i) text += (i == 0 ? "" : ",") + describe(items[i]);
  return text + "]";
}
inline std::string describe(const Page<std::vector<Track>>& page) {
  return std::to_string(page.metadata.totalCount) + describe(page.payload);
}
inline std::string describe(const UserTracksUpdate& update) { return update.userID + ":" + describe(update.tracks); }

// Records the events of subscriptions.
struct EventLog {
  template <class T>
  rx::Disposable subscribeTo(const rx::Observable<T>& source) const {
    return source.subscribe([log = events](const T& value) { log->push_back(describe(value)); },
                            [log = events](const Error& error) { log->push_back(describe(error)); },
                            [log = events] { log->push_back("completed"); });
  }
  std::shared_ptr<Log> events = std::make_shared<Log>();
};

// The whole history of one subscription whose source delivers during `subscribe`.
template <class T>
Log collect(const rx::Observable<T>& source) {
  EventLog log;
  log.subscribeTo(source);
  return *log.events;
}

// ---- answers ----

inline Json trackObject(const std::string& id) {
  return boost::json::object{{"id", id}, {"name", "Song " + id}, {"artistName", "Artist"}, {"playbackSeconds", 200}};
}
// {"<key>": [track, ...]}; "data" for search.
inline Json tracksAnswer(const std::vector<std::string>& ids, const char* key = "tracks") {
  boost::json::array tracks;
  for (const auto& id : ids) tracks.push_back(trackObject(id));
  return boost::json::object{{key, std::move(tracks)}};
}
// {"<key>": [{"linked": {"tracks": [track]}}, ...]}: "charts" or "favorites".
inline Json linkedAnswer(const char* key, const std::vector<std::string>& ids) {
  boost::json::array entries;
  for (const auto& id : ids) {
    entries.push_back(boost::json::object{{"linked", boost::json::object{{"tracks", boost::json::array{trackObject(id)}}}}});
  }
  return boost::json::object{{key, std::move(entries)}};
}
inline Json chartsAnswer(const std::vector<std::string>& ids) { return linkedAnswer("charts", ids); }
// An answer of the wrong shape for every serializer: an object without any list member.
inline Json unparsableAnswer() { return boost::json::object{{"message", "rate limited"}}; }

// ---- every controller over scripted services ----

struct Fixture {
  std::shared_ptr<testing::ScriptedTracksService> tracksService = std::make_shared<testing::ScriptedTracksService>();
  std::shared_ptr<testing::ScriptedSearchService> searchService = std::make_shared<testing::ScriptedSearchService>();
  std::shared_ptr<testing::ScriptedChartsService> chartsService = std::make_shared<testing::ScriptedChartsService>();
  std::shared_ptr<testing::ScriptedFavoritesService> favoritesService =
      std::make_shared<testing::ScriptedFavoritesService>();
  std::shared_ptr<testing::ScriptedListeningHistoryService> historyService =
      std::make_shared<testing::ScriptedListeningHistoryService>();
  std::shared_ptr<testing::ScriptedGenreService> genreService = std::make_shared<testing::ScriptedGenreService>();
  std::shared_ptr<testing::ScriptedPersonalizedService> personalizedService =
      std::make_shared<testing::ScriptedPersonalizedService>();
  std::shared_ptr<testing::ScriptedPlaylistsService> playlistsService =
      std::make_shared<testing::ScriptedPlaylistsService>();
  std::shared_ptr<testing::ScriptedGiphyService> giphyService = std::make_shared<testing::ScriptedGiphyService>();
  std::shared_ptr<testing::ScriptedCurrentUserProvider> currentUser =
      std::make_shared<testing::ScriptedCurrentUserProvider>("me");

  std::shared_ptr<TracksDataController> tracks = std::make_shared<TracksDataController>(tracksService);
  SearchDataController search{searchService};
  UsersTracksDataController users{currentUser, tracks, chartsService, favoritesService, historyService};
  PersonalizedDataController personalized{personalizedService};
  GenreDataController genres{genreService};
  PlaylistsDataController playlists{playlistsService};
  GiphyDataController giphy{giphyService, std::make_shared<testing::FixedLocale>("de"), "proxy.test"};

  std::vector<testing::ScriptedService*> services() const {
    return {tracksService.get(), searchService.get(), chartsService.get(), favoritesService.get(), historyService.get(),
            genreService.get(), personalizedService.get(), playlistsService.get(), giphyService.get()};
  }
};

}  // namespace applogic::controllers_test
