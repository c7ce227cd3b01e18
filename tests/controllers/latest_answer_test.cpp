// The operations that parse each answer as the latest one (flatMapLatest): a service may answer
// one request several times (a cached answer, then a fresh one). Their parsing step finishes
// within the delivery of its answer, so an older answer is superseded only while its result is
// being delivered; what must hold is that every answer's result arrives, in the service's order,
// and that the stream ends only when the service's does.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

struct LatestRow {
  std::string name;
  std::function<rx::Observable<std::string>(Fixture&)> call;  // elements rendered by `describe`
  void (*script)(Fixture&, Answer);
  Json (*answer)(const std::vector<std::string>&);
  std::string first;
  std::string second;
};

template <class T>
rx::Observable<std::string> described(const rx::Observable<T>& source) {
  return source.map([](const T& value) { return describe(value); });
}

Json trackIds(const std::vector<std::string>& numbers) {
  std::vector<std::string> ids;
  for (const auto& n : numbers) ids.push_back("Tra." + n);
  return tracksAnswer(ids);
}

Json genreIds(const std::vector<std::string>& numbers) {
  std::vector<std::string> ids;
  for (const auto& n : numbers) ids.push_back("g." + n);
  return genresAnswer(ids);
}

const LatestRow kOperations[] = {
    {"getTopGenresObservable",
     [](Fixture& f) { return described(f.genres.getTopGenresObservable("en")); },
     [](Fixture& f, Answer a) { f.genreService->script("getTopGenres", std::move(a)); }, genreIds,
     "[g.1]", "[g.2]"},
    {"getGenreTopTracksObservable",
     [](Fixture& f) { return described(f.genres.getGenreTopTracksObservable("g.1", 10)); },
     [](Fixture& f, Answer a) { f.genreService->script("getGenreTopTracks", std::move(a)); }, trackIds,
     "[Tra.1]", "[Tra.2]"},
    {"getNewReleaseRecommendedTracks",
     [](Fixture& f) {
       return described(f.personalized.getNewReleaseRecommendedTracks(0, 10, rx::just(unit)));
     },
     [](Fixture& f, Answer a) {
       f.personalizedService->script("getNewReleaseRecommendedTracks", std::move(a));
     },
     trackIds, "[Tra.1]", "[Tra.2]"}};

// Runs `body` once per operation, each over fresh scripted services.
template <class Body>
void forEachOperation(Body body) {
  for (const LatestRow& row : kOperations) {
    SCOPED_TRACE(row.name);
    Fixture f;
    body(f, row);
  }
}

TEST(LatestAnswer, EveryAnswerOfOneRequestGivesAList) {
  forEachOperation([](Fixture& f, const LatestRow& row) {
    row.script(f, Answer::sequence({row.answer({"1"}), row.answer({"2"})}));
    EXPECT_EQ(collect(row.call(f)), (Log{row.first, row.second, "completed"}));
  });
}

TEST(LatestAnswer, AnswerArrivingDuringDeliveryOfThePreviousOneFollowsIt) {
  forEachOperation([](Fixture& f, const LatestRow& row) {
    testing::Hold hold;
    row.script(f, Answer::held(hold));
    Log events;
    row.call(f).subscribe(
        [&](const std::string& value) {
          events.push_back(value);
          if (events.size() == 1) hold.emit(row.answer({"2"}));
        },
        [&](const Error& error) { events.push_back(describe(error)); }, [&] { events.push_back("completed"); });
    hold.emit(row.answer({"1"}));
    EXPECT_EQ(events, (Log{row.first, row.second}));
    hold.complete();
    EXPECT_EQ(events, (Log{row.first, row.second, "completed"}));
  });
}

TEST(LatestAnswer, AnUnparsableLaterAnswerEndsTheStream) {
  forEachOperation([](Fixture& f, const LatestRow& row) {
    testing::Hold hold;
    row.script(f, Answer::held(hold));
    EventLog log;
    log.subscribeTo(row.call(f));
    hold.emit(row.answer({"1"}));
    hold.emit(unparsableAnswer());
    hold.emit(row.answer({"2"}));
    EXPECT_EQ(log.events(), (Log{row.first, "error:Unknown parsing error/0"}));
    EXPECT_FALSE(hold.hasWaitingRequests());
  });
}

}  // namespace
}  // namespace applogic::controllers_test
