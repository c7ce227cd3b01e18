// The users' update streams: two service streams merged, each update's answer read and named
// after its user. Failure results on either stream: fault_injection_test.cpp.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

using Subject = rx::PublishSubject<UserResultUpdate>;

UserResultUpdate success(UserHint user, Json answer) {
  return UserResultUpdate{std::move(user), Result<Json>::success(std::move(answer))};
}

struct StreamRow {
  const char* name;
  rx::Observable<UserTracksUpdate> (*read)(Fixture&);
  const Subject& (*first)(Fixture&);
  const Subject& (*second)(Fixture&);
  Json (*answer)(const std::vector<std::string>&);
};

const StreamRow kStreams[] = {
    {"getUserTopChartsTracksObservable", [](Fixture& f) { return f.users.getUserTopChartsTracksObservable(); },
     [](Fixture& f) -> const Subject& { return f.chartsService->topChartsUpdatedSubject(); },
     [](Fixture& f) -> const Subject& { return f.chartsService->topChartsRefreshedSubject(); }, chartsAnswer},
    {"getUserRecentTracksUpdated", [](Fixture& f) { return f.users.getUserRecentTracksUpdated(); },
     [](Fixture& f) -> const Subject& { return f.historyService->recentTracksUpdatedSubject(); },
     [](Fixture& f) -> const Subject& { return f.historyService->recentTracksRefreshedSubject(); },
     [](const std::vector<std::string>& ids) { return tracksAnswer(ids); }},
};

TEST(UpdateStream, BothStreamsUntilBothCompleteEachUpdateNamedAfterItsUserOrEndedByAnUnparsableOne) {
  for (const StreamRow& row : kStreams) {
    SCOPED_TRACE(row.name);
    Fixture f;
    EventLog log;
    log.subscribeTo(row.read(f));
    row.second(f).onNext(success(UserHint::user("u2"), row.answer({"Tra.2"})));
    row.first(f).onNext(success(UserHint::currentUser(), row.answer({"Tra.1", "Tra.3"})));
    row.first(f).onCompleted();
    f.currentUser->setUserGuid("other");  // the user signed in when the update arrives
    row.second(f).onNext(success(UserHint::currentUser(), row.answer({})));
    EXPECT_EQ(*log.events, (Log{"u2:[Tra.2]", "me:[Tra.1,Tra.3]", "other:[]"}));
    row.second(f).onCompleted();
    EXPECT_EQ(log.events->back(), "completed");

    Fixture g;
    EventLog ended;
    ended.subscribeTo(row.read(g));
    row.second(g).onNext(success(UserHint::user("u1"), unparsableAnswer()));
    row.first(g).onNext(success(UserHint::user("u1"), row.answer({"Tra.1"})));
    EXPECT_EQ(*ended.events, Log{"error:UsersTracksDataController/1"});
  }
}

}  // namespace
}  // namespace applogic::controllers_test
