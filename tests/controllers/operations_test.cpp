// Every fetching operation of the data controllers, driven through one table: how it calls its
// service, what it makes of a good answer, of an empty list and of an unparsable answer, and
// that every subscription is a request of its own. (Service failures: fault_injection_test.cpp.)

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

using testing::ScriptedService;
using testing::ServiceCall;

const std::string kTypedTracks = "error:TracksDataController/1";
const std::string kTypedSearch = "error:SearchDataController/1";
const std::string kTypedUsers = "error:UsersTracksDataController/1";
const std::string kGeneric = "error:Unknown parsing error/0";

template <class T>
rx::Observable<std::string> described(const rx::Observable<T>& source) {
  return source.map([](const T& value) { return describe(value); });
}

struct OperationRow {
  std::string name;
  // The operation called with this row's arguments; elements rendered by `describe`.
  std::function<rx::Observable<std::string>(Fixture&)> call;
  ScriptedService& (*service)(Fixture&);
  ServiceCall expectedCall;
  Json answer;  // two records
  Log answered;
  Json emptyAnswer;  // a well-formed answer without records
  Log emptyOutcome;
  Log unparsableOutcome;
};

std::vector<OperationRow> operationRows() {
  const Log twoTracks{"[Tra.1,Tra.2]", "completed"};
  const Log noTracks{"[]", "completed"};
  return {
      {"getTrack",
       [](Fixture& f) { return described(f.tracks->getTrack(" tra.1 ")); },
       [](Fixture& f) -> ScriptedService& { return *f.tracksService; },
       {"getTrackData", {" tra.1 "}},
       tracksAnswer({"Tra.1", "Tra.2"}),
       {"Tra.1", "completed"},
       tracksAnswer({}),
       {kTypedTracks},
       {kTypedTracks}},
      {"getTopTracks",
       [](Fixture& f) { return described(f.tracks->getTopTracks(7)); },
       [](Fixture& f) -> ScriptedService& { return *f.tracksService; },
       {"getTopTracksData", {"7"}},
       tracksAnswer({"Tra.1", "Tra.2"}),
       twoTracks,
       tracksAnswer({}),
       noTracks,
       {kGeneric}},
      {"searchTracks",
       [](Fixture& f) { return described(f.search.searchTracks("  miles  davis ", 0)); },
       [](Fixture& f) -> ScriptedService& { return *f.searchService; },
       {"searchTracks", {"  miles  davis ", "0"}},
       searchAnswer({"Tra.1", "Tra.2"}),
       twoTracks,
       searchAnswer({}),
       noTracks,
       {kTypedSearch}},
      {"getUserTopChartTracks",
       [](Fixture& f) {
         return described(f.users.getUserTopChartTracks("someone", 25, QAPIChartsService::Range::allTime));
       },
       [](Fixture& f) -> ScriptedService& { return *f.chartsService; },
       {"getCurrentUserTopCharts", {"0", "1", "25"}},
       chartsAnswer({"Tra.1", "Tra.2"}),
       twoTracks,
       chartsAnswer({}),
       noTracks,
       noTracks},
      {"getUserFavoriteTracks",
       [](Fixture& f) { return described(f.users.getUserFavoriteTracks("someone", 20, 10, rx::just(unit))); },
       [](Fixture& f) -> ScriptedService& { return *f.favoritesService; },
       {"getCurrentUserFavorites", {"3", "20", "10"}},
       favoritesAnswer({"Tra.1", "Tra.2"}),
       twoTracks,
       favoritesAnswer({}),
       noTracks,
       {kTypedUsers}},
      {"getFavoriteTrack",
       [](Fixture& f) { return described(f.users.getFavoriteTrack("someone")); },
       [](Fixture& f) -> ScriptedService& { return *f.favoritesService; },
       {"getCurrentUserFavorites", {"3", "0", "1"}},
       favoritesAnswer({"Tra.1", "Tra.2"}),
       {"Tra.1", "completed"},
       favoritesAnswer({}),
       {"none", "completed"},
       {kTypedUsers}},
      {"getUserRecentTracks",
       [](Fixture& f) { return described(f.users.getUserRecentTracks("someone", 5)); },
       [](Fixture& f) -> ScriptedService& { return *f.historyService; },
       {"getCurrentUserRecentTracks", {"5"}},
       tracksAnswer({"Tra.1", "Tra.2"}),
       twoTracks,
       tracksAnswer({}),
       noTracks,
       noTracks},
      {"getNewReleaseRecommendedTracks",
       [](Fixture& f) { return described(f.personalized.getNewReleaseRecommendedTracks(40, 20, rx::just(unit))); },
       [](Fixture& f) -> ScriptedService& { return *f.personalizedService; },
       {"getNewReleaseRecommendedTracks", {"40", "20"}},
       tracksAnswer({"Tra.1", "Tra.2"}),
       twoTracks,
       tracksAnswer({}),
       noTracks,
       {kGeneric}},
      {"getTopGenresObservable",
       [](Fixture& f) { return described(f.genres.getTopGenresObservable("pt-BR")); },
       [](Fixture& f) -> ScriptedService& { return *f.genreService; },
       {"getTopGenres", {"pt-BR"}},
       genresAnswer({"g.1", "g.2"}),
       {"[g.1,g.2]", "completed"},
       genresAnswer({}),
       noTracks,
       {kGeneric}},
      {"getGenreTopTracksObservable",
       [](Fixture& f) { return described(f.genres.getGenreTopTracksObservable("g.115", 3)); },
       [](Fixture& f) -> ScriptedService& { return *f.genreService; },
       {"getGenreTopTracks", {"g.115", "3"}},
       tracksAnswer({"Tra.1", "Tra.2"}),
       twoTracks,
       tracksAnswer({}),
       noTracks,
       {kGeneric}},
  };
}

// Runs `body` once per operation, each over fresh scripted services.
template <class Body>
void forEachOperation(Body body) {
  for (const OperationRow& row : operationRows()) {
    SCOPED_TRACE(row.name);
    Fixture f;
    body(f, row, row.service(f), row.expectedCall.operation);
  }
}

TEST(Operation, RequestsOnEachSubscriptionOnlyAndParsesAGoodAnswer) {
  forEachOperation([](Fixture& f, const OperationRow& row, ScriptedService& service, const std::string& operation) {
    service.script(operation, Answer::json(row.answer));
    const auto observable = row.call(f);
    EXPECT_EQ(service.calls(), std::vector<ServiceCall>{row.expectedCall});
    EXPECT_EQ(service.requests(operation), 0u);
    EXPECT_EQ(collect(observable), row.answered);
    EXPECT_EQ(service.requests(operation), 1u);
    EXPECT_EQ(collect(observable), row.answered);
    EXPECT_EQ(service.requests(operation), 2u);
    EXPECT_EQ(service.calls().size(), 1u);
  });
}

TEST(Operation, AnswersWithoutRecordsOrUnparsable) {
  forEachOperation([](Fixture& f, const OperationRow& row, ScriptedService& service, const std::string& operation) {
    service.script(operation, {Answer::json(row.emptyAnswer), Answer::json(unparsableAnswer())});
    const auto observable = row.call(f);
    EXPECT_EQ(collect(observable), row.emptyOutcome);
    EXPECT_EQ(collect(observable), row.unparsableOutcome);
  });
}

TEST(Operation, NothingArrivesAfterDisposal) {
  forEachOperation([](Fixture& f, const OperationRow& row, ScriptedService& service, const std::string& operation) {
    testing::Hold hold;
    service.script(operation, Answer::held(hold));
    EventLog log;
    rx::Disposable subscription = log.subscribeTo(row.call(f));
    ASSERT_TRUE(hold.hasWaitingRequests());
    subscription.dispose();
    EXPECT_FALSE(hold.hasWaitingRequests());
    hold.emit(row.answer);
    hold.complete();
    EXPECT_EQ(log.events(), Log{});
  });
}

}  // namespace
}  // namespace applogic::controllers_test
