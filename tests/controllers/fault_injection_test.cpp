// Every data-controller operation, run once per request (and update) its services can fail,
// with that one failing: the subscription ends exactly once, with the service's error as it was
// reported, and nothing is asked of a service after the end.

#include <gtest/gtest.h>

#include <iostream>
#include <optional>
#include <string>

#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

// What one subscription delivered, counted without the grammar guard of `subscribe(callbacks)`,
// so that an operator that emits after the end or ends twice is seen.
struct Delivered {
  std::size_t values = 0, errors = 0, completions = 0, afterEnd = 0;
  std::optional<Error> error;
  std::size_t ends() const { return errors + completions; }
};

template <class T>
struct Recorder final : rx::Observer<T> {
  explicit Recorder(Delivered& d) : d(d) {}
  void onNext(const T&) override { ++(d.ends() ? d.afterEnd : d.values); }
  void onError(const Error& error) override { end(d.errors), d.error = error; }
  void onCompleted() override { end(d.completions); }
  void end(std::size_t& kind) { d.afterEnd += d.ends(), ++kind; }
  Delivered& d;
};

// Every controller over scripted services that answer every request well, all sharing one plan.
struct World : Fixture {
  World() {
    const Json tracks = tracksAnswer({"Tra.1", "Tra.2"});
    const Json picture = boost::json::parse(
        R"({"id":"a","images":{"still":{"width":"200","height":"200","url":"https://m.test/s.gif"}}})");
    const Json pictures = boost::json::object{{"data", boost::json::array{picture}}};
    const std::pair<testing::ScriptedService*, std::vector<std::pair<const char*, Json>>> scripts[] = {
        {tracksService.get(), {{"getTrackData", tracks}, {"getTopTracksData", tracks}}},
        {searchService.get(), {{"searchTracks", tracksAnswer({"Tra.1"}, "data")}}},
        {chartsService.get(), {{"getCurrentUserTopCharts", chartsAnswer({"Tra.1"})}}},
        {favoritesService.get(), {{"getCurrentUserFavorites", linkedAnswer("favorites", {"Tra.1"})}}},
        {historyService.get(), {{"getCurrentUserRecentTracks", tracks}}},
        {genreService.get(),
         {{"getTopGenres", boost::json::parse(R"({"genres":[{"id":"g.1","name":"G"}]})")},
          {"getGenreTopTracks", tracks}}},
        {personalizedService.get(), {{"getNewReleaseRecommendedTracks", tracks}}},
        {playlistsService.get(),
         {{"get", boost::json::parse(R"({"playlists":[{"id":"mp.7"}]})")}, {"getPlaylistTracks", tracks},
          {"getImages", boost::json::parse(R"({"images":[{"imageType":"giphyImage","id":"g1"}]})")},
          {"getRecommendedTracks", tracks}, {"updatePlaylistGif", nullptr}, {"deletePlaylistGif", nullptr},
          {"uploadPlaylistImage", nullptr}, {"rejectRecommendedTracks", nullptr}, {"addTracks", nullptr},
          {"setTracks", nullptr}}},
        {giphyService.get(),
         {{"get", boost::json::object{{"data", picture}}}, {"getTrending", pictures}, {"search", pictures},
          {"searchPaginated", pictures}}},
    };
    for (const auto& [service, answers] : scripts) {
      service->setFaultPlan(plan);
      for (const auto& [operation, answer] : answers) service->script(operation, Answer::json(answer));
    }
  }

  template <class T>
  void watch(const rx::Observable<T>& operation) {
    operation.subscribe(std::make_shared<Recorder<T>>(delivered));
  }
  template <class T>
  void watch(const ZDSDeferred<T>& deferred) {
    auto recorder = std::make_shared<Recorder<T>>(delivered);
    deferred.done([recorder](const T& value) { recorder->onNext(value), recorder->onCompleted(); },
                  [recorder](const Error& error) { recorder->onError(error); });
  }

  std::shared_ptr<testing::FaultPlan> plan = std::make_shared<testing::FaultPlan>();
  Delivered delivered;
};

// Two updates on each stream, interleaved, then both complete: a failure on either ends the
// merged stream for the later updates of both.
void drive(const rx::PublishSubject<UserResultUpdate>& a, const rx::PublishSubject<UserResultUpdate>& b, const Json& answer) {
  for (const auto* stream : {&a, &b, &a, &b}) stream->onNext({UserHint::user("u1"), Result<Json>::success(answer)});
  a.onCompleted();
  b.onCompleted();
}

rx::Observable<Unit> twoPages() { return rx::from(std::vector<Unit>{unit, unit}); }

struct FaultRow {
  const char* name;
  void (*run)(World&);  // subscribes to the operation and drives it to its end
};

const FaultRow kOperations[] = {
    {"getTrack", [](World& w) { w.watch(w.tracks->getTrack("Tra.1")); }},
    {"getTopTracks", [](World& w) { w.watch(w.tracks->getTopTracks(5)); }},
    {"searchTracks", [](World& w) { w.watch(w.search.searchTracks("miles", 5)); }},
    {"getUserTopChartTracks", [](World& w) { w.watch(w.users.getUserTopChartTracks("me", 5, {})); }},
    {"getUserFavoriteTracks", [](World& w) { w.watch(w.users.getUserFavoriteTracks("me", 0, 1, twoPages())); }},
    {"getFavoriteTrack", [](World& w) { w.watch(w.users.getFavoriteTrack("me")); }},
    {"getUserRecentTracks", [](World& w) { w.watch(w.users.getUserRecentTracks("me", 5)); }},
    {"getUserTopChartsTracksObservable", [](World& w) {
       w.watch(w.users.getUserTopChartsTracksObservable());
       drive(w.chartsService->topChartsUpdatedSubject(), w.chartsService->topChartsRefreshedSubject(), chartsAnswer({"1"}));
     }},
    {"getUserRecentTracksUpdated", [](World& w) {
       w.watch(w.users.getUserRecentTracksUpdated());
       drive(w.historyService->recentTracksUpdatedSubject(), w.historyService->recentTracksRefreshedSubject(),
             tracksAnswer({"1"}));
     }},
    {"getNewReleaseRecommendedTracks", [](World& w) { w.watch(w.personalized.getNewReleaseRecommendedTracks(0, 1, twoPages())); }},
    {"getTopGenresObservable", [](World& w) { w.watch(w.genres.getTopGenresObservable("en")); }},
    {"getGenreTopTracksObservable", [](World& w) { w.watch(w.genres.getGenreTopTracksObservable("g.1", 5)); }},
    {"playlists.get", [](World& w) { w.watch(w.playlists.get("mp.7")); }},
    {"getPlaylistTracks", [](World& w) { w.watch(w.playlists.getPlaylistTracks("mp.7", 2, 0)); }},
    {"getImages", [](World& w) { w.watch(w.playlists.getImages("mp.7")); }},
    {"updatePlaylistGif", [](World& w) { w.watch(w.playlists.updatePlaylistGif("mp.7", "g1")); }},
    {"deletePlaylistGif", [](World& w) { w.watch(w.playlists.deletePlaylistGif("mp.7")); }},
    {"uploadPlaylistImage", [](World& w) { w.watch(w.playlists.uploadPlaylistImage("mp.7", {0x47, 0x49})); }},
    {"getRecommendedTracks", [](World& w) { w.watch(w.playlists.getRecommendedTracks("mp.7")); }},
    {"rejectRecommendedTracks", [](World& w) { w.watch(w.playlists.rejectRecommendedTracks({"Tra.1"})); }},
    {"addTracks", [](World& w) { w.watch(w.playlists.addTracks("mp.7", {"Tra.1"})); }},
    {"setTracks", [](World& w) { w.watch(w.playlists.setTracks("mp.7", {"Tra.1"})); }},
    {"getTrending", [](World& w) { w.watch(w.giphy.getTrending()); }},
    {"giphy.search", [](World& w) { w.watch(w.giphy.search("cats")); }},
    {"searchPaginated", [](World& w) { w.watch(w.giphy.searchPaginated("cats", twoPages())); }},
    {"giphy.get", [](World& w) { w.watch(w.giphy.get("a")); }},
    {"getGiphySillImageUrl", [](World& w) { w.watch(w.giphy.getGiphySillImageUrl("a", 200)); }},
};

TEST(FaultInjection, EveryFailingRequestEndsTheOperationOnceWithTheServicesError) {
  std::size_t total = 0;
  for (const FaultRow& row : kOperations) {
    SCOPED_TRACE(row.name);
    World clean;
    row.run(clean);
    const std::size_t points = clean.plan->count(), cleanValues = clean.delivered.values;
    EXPECT_GE(points, 1u);
    EXPECT_EQ(clean.delivered.completions, 1u);
    EXPECT_EQ(clean.delivered.errors, 0u);
    EXPECT_GE(cleanValues, 1u);
    for (std::size_t n = 1; n <= points; ++n) {
      SCOPED_TRACE("failing point " + std::to_string(n));
      World w;
      w.plan->failAt(n);
      row.run(w);
      const std::string site = w.plan->failedSite();
      ASSERT_FALSE(site.empty());
      EXPECT_EQ(w.plan->count(), n) << "asked a service again after the failure ended the operation";
      EXPECT_EQ(w.delivered.ends(), 1u);
      EXPECT_EQ(w.delivered.completions, 0u);
      EXPECT_EQ(w.delivered.afterEnd, 0u);
      EXPECT_LT(w.delivered.values, cleanValues);
      EXPECT_EQ(w.delivered.error, testing::injectedTransportError(site)) << site;
    }
    std::cout << "[ fault    ] " << row.name << ": " << points << " fault points\n";
    RecordProperty(row.name, static_cast<int>(points));
    total += points;
  }
  std::cout << "[ fault    ] total: " << total << " fault points\n";
  RecordProperty("total", static_cast<int>(total));
}

}  // namespace
}  // namespace applogic::controllers_test
