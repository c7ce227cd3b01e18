#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

using testing::ServiceCall;

UserResultUpdate success(UserHint user, Json answer) {
  return UserResultUpdate{std::move(user), Result<Json>::success(std::move(answer))};
}

// ---- paged favourites ----

TEST(FavoriteTracks, OneListPerPageUntilTheTriggerCompletes) {
  Fixture f;
  f.favoritesService->script("getCurrentUserFavorites", {Answer::json(favoritesAnswer({"Tra.1", "Tra.2"})),
                                                         Answer::json(favoritesAnswer({"Tra.3"}))});
  rx::PublishSubject<Unit> nextPage;
  EventLog log;
  log.subscribeTo(f.users.getUserFavoriteTracks("me", 0, 2, nextPage.asObservable()));
  EXPECT_EQ(log.events(), Log{});
  nextPage.onNext(unit);
  nextPage.onNext(unit);
  EXPECT_EQ(log.events(), (Log{"[Tra.1,Tra.2]", "[Tra.3]"}));
  nextPage.onCompleted();
  EXPECT_EQ(log.events(), (Log{"[Tra.1,Tra.2]", "[Tra.3]", "completed"}));
}

TEST(FavoriteTracks, AnUnparsablePageEndsTheStreamAfterEarlierPages) {
  Fixture f;
  f.favoritesService->script("getCurrentUserFavorites", {Answer::json(favoritesAnswer({"Tra.1"})),
                                                         Answer::json(unparsableAnswer()),
                                                         Answer::json(favoritesAnswer({"Tra.3"}))});
  rx::PublishSubject<Unit> nextPage;
  EventLog log;
  log.subscribeTo(f.users.getUserFavoriteTracks("me", 0, 1, nextPage.asObservable()));
  nextPage.onNext(unit);
  nextPage.onNext(unit);
  nextPage.onNext(unit);
  EXPECT_EQ(log.events(), (Log{"[Tra.1]", "error:UsersTracksDataController/1"}));
  EXPECT_EQ(f.favoritesService->requests("getCurrentUserFavorites"), 2u);
  EXPECT_FALSE(nextPage.hasObservers());
}

// An app that asks for the next page as soon as one arrives pushes into the trigger from inside
// the delivery of the previous page, on the same thread.
struct PagedRow {
  std::string name;
  std::function<rx::Observable<std::vector<Track>>(Fixture&, rx::Observable<Unit>)> call;
  void (*script)(Fixture&, std::vector<Answer>);
  Json (*page)(const std::vector<std::string>&);
};

TEST(PagedOperation, NextPageAskedForDuringDeliveryArrivesAfterIt) {
  const PagedRow rows[] = {
      {"getUserFavoriteTracks",
       [](Fixture& f, rx::Observable<Unit> trigger) {
         return f.users.getUserFavoriteTracks("me", 0, 1, std::move(trigger));
       },
       [](Fixture& f, std::vector<Answer> pages) {
         f.favoritesService->script("getCurrentUserFavorites", std::move(pages));
       },
       favoritesAnswer},
      {"getNewReleaseRecommendedTracks",
       [](Fixture& f, rx::Observable<Unit> trigger) {
         return f.personalized.getNewReleaseRecommendedTracks(0, 1, std::move(trigger));
       },
       [](Fixture& f, std::vector<Answer> pages) {
         f.personalizedService->script("getNewReleaseRecommendedTracks", std::move(pages));
       },
       [](const std::vector<std::string>& ids) { return tracksAnswer(ids); }},
  };
  for (const PagedRow& row : rows) {
    SCOPED_TRACE(row.name);
    Fixture f;
    row.script(f, {Answer::json(row.page({"Tra.1"})), Answer::json(row.page({"Tra.2"})),
                   Answer::json(row.page({"Tra.3"}))});
    rx::PublishSubject<Unit> nextPage;
    Log events;
    row.call(f, nextPage.asObservable())
        .subscribe(
            [&](const std::vector<Track>& page) {
              events.push_back(describe(page));
              if (events.size() < 3) {
                nextPage.onNext(unit);
              } else {
                nextPage.onCompleted();
              }
            },
            [&](const Error& error) { events.push_back(describe(error)); }, [&] { events.push_back("completed"); });
    nextPage.onNext(unit);
    EXPECT_EQ(events, (Log{"[Tra.1]", "[Tra.2]", "[Tra.3]", "completed"}));
  }
}

// ---- update streams ----

struct UpdateStreamRow {
  std::string name;
  std::function<rx::Observable<UserTracksUpdate>(Fixture&)> read;
  const rx::PublishSubject<UserResultUpdate>& (*first)(Fixture&);
  const rx::PublishSubject<UserResultUpdate>& (*second)(Fixture&);
  Json (*answer)(const std::vector<std::string>&);
  testing::ScriptedService& (*service)(Fixture&);
  std::vector<ServiceCall> callsOfOneRead;
};

const UpdateStreamRow kUpdateStreams[] = {
    {"getUserTopChartsTracksObservable",
        [](Fixture& f) { return f.users.getUserTopChartsTracksObservable(); },
        [](Fixture& f) -> const rx::PublishSubject<UserResultUpdate>& {
          return f.chartsService->topChartsUpdatedSubject();
        },
        [](Fixture& f) -> const rx::PublishSubject<UserResultUpdate>& {
          return f.chartsService->topChartsRefreshedSubject();
        },
        chartsAnswer,
        [](Fixture& f) -> testing::ScriptedService& { return *f.chartsService; },
        {{"topChartsUpdated", {}}, {"topChartsRefreshed", {}}}},
    {"getUserRecentTracksUpdated",
        [](Fixture& f) { return f.users.getUserRecentTracksUpdated(); },
        [](Fixture& f) -> const rx::PublishSubject<UserResultUpdate>& {
          return f.historyService->recentTracksUpdatedSubject();
        },
        [](Fixture& f) -> const rx::PublishSubject<UserResultUpdate>& {
          return f.historyService->recentTracksRefreshedSubject();
        },
        [](const std::vector<std::string>& ids) { return tracksAnswer(ids); },
        [](Fixture& f) -> testing::ScriptedService& { return *f.historyService; },
        {{"recentTracksUpdated", {}}, {"recentTracksRefreshed", {}}}}};

// Runs `body` once per update stream, each over fresh scripted services.
template <class Body>
void forEachStream(Body body) {
  for (const UpdateStreamRow& row : kUpdateStreams) {
    SCOPED_TRACE(row.name);
    Fixture f;
    body(f, row);
  }
}

TEST(UpdateStream, EachReadAsksTheServiceForBothStreamsInOrderAndIsAStreamOfItsOwn) {
  forEachStream([](Fixture& f, const UpdateStreamRow& row) {
    EventLog ended;
    EventLog running;
    const rx::Disposable first = ended.subscribeTo(row.read(f));
    running.subscribeTo(row.read(f));
    std::vector<ServiceCall> twice = row.callsOfOneRead;
    twice.insert(twice.end(), row.callsOfOneRead.begin(), row.callsOfOneRead.end());
    EXPECT_EQ(row.service(f).calls(), twice);
    first.dispose();
    row.second(f).onNext(success(UserHint::user("u1"), row.answer({"Tra.1"})));
    EXPECT_EQ(ended.events(), Log{});
    EXPECT_EQ(running.events(), Log{"u1:[Tra.1]"});
  });
}

TEST(UpdateStream, UpdatesOfBothStreamsArriveAsTheyComeUntilBothComplete) {
  forEachStream([](Fixture& f, const UpdateStreamRow& row) {
    EventLog log;
    log.subscribeTo(row.read(f));
    row.second(f).onNext(success(UserHint::user("u2"), row.answer({"Tra.2"})));
    row.first(f).onNext(success(UserHint::user("u1"), row.answer({"Tra.1", "Tra.3"})));
    row.first(f).onCompleted();
    row.second(f).onNext(success(UserHint::user("u2"), row.answer({})));
    EXPECT_EQ(log.events(), (Log{"u2:[Tra.2]", "u1:[Tra.1,Tra.3]", "u2:[]"}));
    row.second(f).onCompleted();
    EXPECT_EQ(log.events(), (Log{"u2:[Tra.2]", "u1:[Tra.1,Tra.3]", "u2:[]", "completed"}));
  });
}

struct HintCase {
  std::optional<std::string> signedIn;
  UserHint hint;
  std::string expectedUserID;
};

// An explicit user is kept whoever is signed in; otherwise the user signed in at the time of
// the update.
TEST(UpdateStream, TheUserOfEachUpdate) {
  forEachStream([](Fixture& f, const UpdateStreamRow& row) {
    const std::vector<HintCase> cases{
        {"me", UserHint::user("u1"), "u1"},
        {"u2", UserHint::user("u1"), "u1"},
        {std::nullopt, UserHint::user("u1"), "u1"},
        {"me", UserHint::user(""), ""},
        {"me", UserHint::currentUser(), "me"},
    };
    for (const auto& c : cases) {
      Fixture fresh;
      fresh.currentUser->setUserGuid(c.signedIn);
      EventLog log;
      log.subscribeTo(row.read(fresh));
      row.first(fresh).onNext(success(c.hint, row.answer({"Tra.1"})));
      EXPECT_EQ(log.events(), Log{c.expectedUserID + ":[Tra.1]"}) << "signed in: " << c.signedIn.value_or("nobody");
    }

    EventLog log;
    log.subscribeTo(row.read(f));
    row.first(f).onNext(success(UserHint::currentUser(), row.answer({"Tra.1"})));
    f.currentUser->setUserGuid("someone-else");
    row.second(f).onNext(success(UserHint::currentUser(), row.answer({"Tra.2"})));
    EXPECT_EQ(log.events(), (Log{"me:[Tra.1]", "someone-else:[Tra.2]"}));
  });
}

// Failure results on either stream: fault_injection_test.cpp.
TEST(UpdateStream, AnUnparsableAnswerEndsTheMergedStream) {
  forEachStream([](Fixture& f, const UpdateStreamRow& row) {
    EventLog log;
    log.subscribeTo(row.read(f));
    row.second(f).onNext(success(UserHint::user("u1"), unparsableAnswer()));
    row.first(f).onNext(success(UserHint::user("u1"), row.answer({"Tra.1"})));
    EXPECT_EQ(log.events(), Log{"error:UsersTracksDataController/1"});
  });
}

}  // namespace
}  // namespace applogic::controllers_test
