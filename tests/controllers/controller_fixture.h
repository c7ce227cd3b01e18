#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <boost/json.hpp>

#include "applogic/controllers/genre_data_controller.h"
#include "applogic/controllers/personalized_data_controller.h"
#include "applogic/controllers/search_data_controller.h"
#include "applogic/controllers/tracks_data_controller.h"
#include "applogic/controllers/users_tracks_data_controller.h"
#include "applogic/rx/rx.h"
#include "applogic/testing/scripted_services.h"

// Shared by the controller tests: every controller over scripted services, answers built from
// ids, and an event log that renders a subscription's history as text ("[Tra.1,Tra.2]",
// "completed", "error:TracksDataController/1").
namespace applogic::controllers_test {

using Log = std::vector<std::string>;
using testing::Answer;

// ---- describing what a subscription delivered ----

inline std::string describe(const std::string& text) { return text; }
inline std::string describe(const Track& track) { return track.id; }
inline std::string describe(const Genre& genre) { return genre.id; }
inline std::string describe(const std::optional<Track>& track) { return track ? track->id : "none"; }

template <class T>
std::string describe(const std::vector<T>& items) {
  std::string text = "[";
  for (std::size_t i = 0; i < items.size(); ++i) text += (i == 0 ? "" : ",") + describe(items[i]);
  return text + "]";
}

inline std::string describe(const UserTracksUpdate& update) { return update.userID + ":" + describe(update.tracks); }

// Domain, code and every user-information entry, so that two descriptions are equal only when
// the errors are.
inline std::string describe(const Error& error) {
  std::string text = "error:" + error.domain + "/" + std::to_string(error.code);
  for (const auto& [key, value] : error.userInfo) {
    text += " " + key + "=";
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
      text += std::to_string(*number);
    } else {
      text += std::get<std::string>(value);
    }
  }
  return text;
}

// Records the events of subscriptions; safe to feed from several threads.
class EventLog {
 public:
  template <class T>
  rx::Disposable subscribeTo(const rx::Observable<T>& source) const {
    auto shared = shared_;
    return source.subscribe([shared](const T& value) { shared->add(describe(value)); },
                            [shared](const Error& error) { shared->add(describe(error)); },
                            [shared] { shared->add("completed"); });
  }

  Log events() const {
    std::lock_guard lock(shared_->mutex);
    return shared_->events;
  }

 private:
  struct Shared {
    void add(std::string event) {
      std::lock_guard lock(mutex);
      events.push_back(std::move(event));
    }
    std::mutex mutex;
    Log events;
  };
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

// The whole history of one subscription whose source delivers during `subscribe`.
template <class T>
Log collect(const rx::Observable<T>& source) {
  EventLog log;
  log.subscribeTo(source);
  return log.events();
}

// ---- answers ----

inline Json trackObject(const std::string& id) {
  return boost::json::object{{"id", id}, {"name", "Song " + id}, {"artistName", "Artist"}, {"playbackSeconds", 200}};
}

// {"<key>": [track, ...]}: tracks, top tracks, recent tracks, genre top tracks, new releases;
// "data" for search.
inline Json tracksAnswer(const std::vector<std::string>& ids, const char* key = "tracks") {
  boost::json::array tracks;
  for (const auto& id : ids) tracks.push_back(trackObject(id));
  return boost::json::object{{key, std::move(tracks)}};
}

inline Json searchAnswer(const std::vector<std::string>& ids) { return tracksAnswer(ids, "data"); }

// {"<key>": [{"linked": {"tracks": [track]}}, ...]}: "charts" or "favorites".
inline Json linkedAnswer(const char* key, const std::vector<std::string>& ids) {
  boost::json::array entries;
  for (const auto& id : ids) {
    entries.push_back(boost::json::object{{"linked", boost::json::object{{"tracks", boost::json::array{trackObject(id)}}}}});
  }
  return boost::json::object{{key, std::move(entries)}};
}

inline Json chartsAnswer(const std::vector<std::string>& ids) { return linkedAnswer("charts", ids); }
inline Json favoritesAnswer(const std::vector<std::string>& ids) { return linkedAnswer("favorites", ids); }

inline Json genresAnswer(const std::vector<std::string>& ids) {
  boost::json::array genres;
  for (const auto& id : ids) genres.push_back(boost::json::object{{"id", id}, {"name", "Genre " + id}});
  return boost::json::object{{"genres", std::move(genres)}};
}

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
  std::shared_ptr<testing::ScriptedCurrentUserProvider> currentUser =
      std::make_shared<testing::ScriptedCurrentUserProvider>("me");

  std::shared_ptr<TracksDataController> tracks = std::make_shared<TracksDataController>(tracksService);
  SearchDataController search{searchService};
  UsersTracksDataController users{currentUser, tracks, chartsService, favoritesService, historyService};
  PersonalizedDataController personalized{personalizedService};
  GenreDataController genres{genreService};
};

}  // namespace applogic::controllers_test
