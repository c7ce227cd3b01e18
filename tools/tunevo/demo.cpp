#include "tunevo/demo.h"

#include <cstdint>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>


#include "applogic/controllers/genre_data_controller.h"
#include "applogic/controllers/personalized_data_controller.h"
#include "applogic/controllers/search_data_controller.h"
#include "applogic/controllers/tracks_data_controller.h"
#include "applogic/controllers/users_tracks_data_controller.h"
#include "applogic/rx/rx.h"
#include "applogic/testing/scripted_services.h"
#include "tunevo/demo_audio.h"
#include "tunevo/demo_giphy.h"
#include "tunevo/demo_playlists.h"
#include "tunevo/demo_signin.h"
#include "tunevo/demo_support.h"
#include "tunevo/exit_codes.h"

namespace tunevo {
namespace {

namespace rx = applogic::rx;
using applogic::Error;
using applogic::Genre;
using applogic::Track;
using applogic::UserHint;
using applogic::UserTracksUpdate;
using applogic::testing::Answer;

constexpr std::string_view kSignedInUser = "listener-1";

constexpr std::string_view kUsage =
    "usage: tunevo demo\n"
    "\n"
    "Runs the data controllers over scripted music and Giphy services that answer with the bundled\n"
    "sample answers, and prints what an app would receive: records, and errors with their domain\n"
    "and code. Then signs in against a local sign-in server started in this process, with a\n"
    "scripted browser, and plays a generated 1.5 s tone through AudioPreviewController (through\n"
    "the null sink when there is no sound device). Needs no network and no account.\n";

Answer sample(std::string_view name) { return sampleAnswer(name); }

Error offline() {
  return Error{"NSURLErrorDomain", -1009, {{"NSLocalizedDescription", "The Internet connection appears to be offline."}}};
}

// ---- how the app's view of each value is printed ----

void print(std::ostream& out, const Track& track) {
  out << "    " << std::left << std::setw(15) << track.id << " \"" << track.name << "\" by "
      << (track.artistName.empty() ? "(unknown artist)" : track.artistName) << ", " << track.playbackSeconds
      << " s\n";
}

void print(std::ostream& out, const Genre& genre) {
  out << "    " << std::left << std::setw(15) << genre.id << " " << genre.name;
  if (!genre.description.empty()) out << ": " << genre.description;
  out << "\n";
}

constexpr std::string_view noun(const Track*, bool plural) { return plural ? "tracks" : "track"; }
constexpr std::string_view noun(const Genre*, bool plural) { return plural ? "genres" : "genre"; }

template <class T>
void print(std::ostream& out, const std::vector<T>& items) {
  out << "  list of " << items.size() << " " << noun(static_cast<const T*>(nullptr), items.size() != 1) << "\n";
  for (const T& item : items) print(out, item);
}

void printOne(std::ostream& out, const Track& track) {
  out << "  track\n";
  print(out, track);
}

void print(std::ostream& out, const std::optional<Track>& track) {
  if (track) {
    printOne(out, *track);
  } else {
    out << "  no track\n";
  }
}

void print(std::ostream& out, const UserTracksUpdate& update) {
  out << "  update for user \"" << update.userID << "\"\n";
  print(out, update.tracks);
}

void print(std::ostream& out, const Error& error) { printError(out, error); }

// Walks through the five controllers, one section each. Every call prints the operation, where
// its answer comes from, and then every event the app receives, as it arrives.
class Demo {
 public:
  explicit Demo(std::ostream& out) : out_(out) {}

  // False when a section could not run (the reason is on standard error).
  bool run() {
    out_ << "tunevo demo: the data controllers over scripted music services.\n"
         << "Every answer comes from a sample bundled with tunevo; signed in as \"" << kSignedInUser << "\".\n";
    tracksSection();
    searchSection();
    usersTracksSection();
    personalizedSection();
    genreSection();
    showPlaylists(out_);
    showGiphy(out_);
    const bool signedIn = showSignIn(out_, std::cerr);
    return showAudio(out_, std::cerr) && signedIn;
  }

 private:
  void tracksSection() {
    section("TracksDataController");
    tracksService_->script("getTrackData", sample("track"));
    call("getTrack(\"tra.2651947\")", "answers with track.json");
    show(tracks_->getTrack("tra.2651947"));

    tracksService_->script("getTopTracksData", sample("top_tracks"));
    call("getTopTracks(3)", "answers with top_tracks.json");
    show(tracks_->getTopTracks(3));
  }

  void searchSection() {
    section("SearchDataController");
    const auto search = applogic::SearchDataController(searchService_);
    searchService_->script("searchTracks", {sample("search"), sample("search_unparsable")});
    call("searchTracks(\"so what\", 10)", "answers with search.json, whose second track has mistyped fields");
    show(search.searchTracks("so what", 10));
    call("searchTracks(\"so what\", 10), a second time", "answers with search_unparsable.json, of the wrong shape");
    show(search.searchTracks("so what", 10));
  }

  void usersTracksSection() {
    section("UsersTracksDataController");
    const auto users = applogic::UsersTracksDataController(currentUser_, tracks_, chartsService_, favoritesService_,
                                                           historyService_);
    chartsService_->script("getCurrentUserTopCharts", sample("top_charts"));
    call("getUserTopChartTracks(\"listener-1\", 10, allTime)",
         "answers with top_charts.json, where one entry has no linked track");
    show(users.getUserTopChartTracks(std::string(kSignedInUser), 10, applogic::QAPIChartsService::Range::allTime));

    favoritesService_->script("getCurrentUserFavorites", {sample("favorites_page1"), sample("favorites_page2")});
    call("getUserFavoriteTracks(\"listener-1\", 0, 2, nextPage)",
         "answers each page asked for with favorites_page1.json, then favorites_page2.json");
    rx::PublishSubject<applogic::Unit> nextPage;
    show(users.getUserFavoriteTracks(std::string(kSignedInUser), 0, 2, nextPage.asObservable()));
    note("the app asks for the first page");
    nextPage.onNext(applogic::unit);
    note("the app asks for the next page, then stops paging");
    nextPage.onNext(applogic::unit);
    nextPage.onCompleted();

    favoritesService_->script("getCurrentUserFavorites", sample("favorites_page1"));
    call("getFavoriteTrack(\"listener-1\")", "answers with favorites_page1.json");
    show(users.getFavoriteTrack(std::string(kSignedInUser)));

    historyService_->script("getCurrentUserRecentTracks", sample("recent_tracks"));
    call("getUserRecentTracks(\"listener-1\", 2)", "answers with recent_tracks.json");
    show(users.getUserRecentTracks(std::string(kSignedInUser), 2));

    call("getUserTopChartsTracksObservable()", "pushes chart updates while the app listens");
    show(users.getUserTopChartsTracksObservable());
    note("the service reports new charts for user \"friend-42\" (chart_update_friend.json)");
    chartsService_->topChartsUpdatedSubject().onNext(
        {UserHint::user("friend-42"), applogic::Result<applogic::Json>::success(sampleJson("chart_update_friend"))});
    note("the service refreshes the signed-in user's charts (chart_update_me.json)");
    chartsService_->topChartsRefreshedSubject().onNext(
        {UserHint::currentUser(), applogic::Result<applogic::Json>::success(sampleJson("chart_update_me"))});
  }

  void personalizedSection() {
    section("PersonalizedDataController");
    const auto personalized = applogic::PersonalizedDataController(personalizedService_);
    personalizedService_->script("getNewReleaseRecommendedTracks",
                                 {sample("new_releases_page1"), sample("new_releases_page2")});
    call("getNewReleaseRecommendedTracks(0, 2, nextPage)",
         "answers each page asked for with new_releases_page1.json, then new_releases_page2.json");
    rx::PublishSubject<applogic::Unit> nextPage;
    show(personalized.getNewReleaseRecommendedTracks(0, 2, nextPage.asObservable()));
    note("the app asks for two pages");
    nextPage.onNext(applogic::unit);
    nextPage.onNext(applogic::unit);
    nextPage.onCompleted();
  }

  void genreSection() {
    section("GenreDataController");
    const auto genres = applogic::GenreDataController(genreService_);
    genreService_->script("getTopGenres", sample("genres"));
    call("getTopGenresObservable(\"en\")",
         "answers with genres.json, with an id in capitals and a numeric description");
    show(genres.getTopGenresObservable("en"));

    genreService_->script("getGenreTopTracks", Answer::failure(offline()));
    call("getGenreTopTracksObservable(\"g.299\", 5)", "fails: the device is offline");
    show(genres.getGenreTopTracksObservable("g.299", 5));
  }

  void section(std::string_view title) { out_ << "\n== " << title << " ==\n"; }

  void call(std::string_view operation, std::string_view service) {
    out_ << "\n" << operation << "\n  service " << service << "\n";
  }

  void note(std::string_view text) { out_ << "  -- " << text << "\n"; }

  // Prints every event as it arrives; streams that stay open (paging, updates) keep printing
  // until the end of the demo.
  template <class T>
  void show(const rx::Observable<T>& source) {
    // `this` outlives the subscription: bag_ is a member and ends it first.
    source
        .subscribe(
            [this](const T& value) {
              if constexpr (std::is_same_v<T, Track>) {
                printOne(out_, value);
              } else {
                print(out_, value);
              }
            },
            [this](const Error& error) { print(out_, error); },
                   [this] { out_ << "  completed\n"; })
        .disposed(bag_);
  }

  std::ostream& out_;
  std::shared_ptr<applogic::testing::ScriptedCurrentUserProvider> currentUser_ =
      std::make_shared<applogic::testing::ScriptedCurrentUserProvider>(std::string(kSignedInUser));
  std::shared_ptr<applogic::testing::ScriptedTracksService> tracksService_ =
      std::make_shared<applogic::testing::ScriptedTracksService>();
  std::shared_ptr<applogic::testing::ScriptedSearchService> searchService_ =
      std::make_shared<applogic::testing::ScriptedSearchService>();
  std::shared_ptr<applogic::testing::ScriptedChartsService> chartsService_ =
      std::make_shared<applogic::testing::ScriptedChartsService>();
  std::shared_ptr<applogic::testing::ScriptedFavoritesService> favoritesService_ =
      std::make_shared<applogic::testing::ScriptedFavoritesService>();
  std::shared_ptr<applogic::testing::ScriptedListeningHistoryService> historyService_ =
      std::make_shared<applogic::testing::ScriptedListeningHistoryService>();
  std::shared_ptr<applogic::testing::ScriptedPersonalizedService> personalizedService_ =
      std::make_shared<applogic::testing::ScriptedPersonalizedService>();
  std::shared_ptr<applogic::testing::ScriptedGenreService> genreService_ =
      std::make_shared<applogic::testing::ScriptedGenreService>();
  std::shared_ptr<applogic::TracksDataController> tracks_ =
      std::make_shared<applogic::TracksDataController>(tracksService_);
  // Declared last so that it is destroyed first: no callback runs once the rest is gone.
  rx::DisposeBag bag_;
};

}  // namespace

int runDemo(int argc, char** argv) {
  if (argc == 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h")) {
    std::cout << kUsage;
    return kExitOk;
  }
  if (argc > 1) {
    std::cerr << "tunevo demo: unexpected argument '" << argv[1] << "'\n" << kUsage;
    return kExitUsage;
  }
  return Demo(std::cout).run() ? kExitOk : kExitUnavailable;
}

}  // namespace tunevo
