// Paged lists (one request per trigger emission, until the last page) and update streams
// (server-sent events, reconnected after a drop).

#include <gtest/gtest.h>

#include <string>

#include "event_stream_parser.h"
#include "services/service_fixture.h"

namespace applogic::services {
namespace {

using testing::HttpAnswer;

constexpr const char* kFavorites = "https://catalog.test/v1/me/favorites";

std::string page(int offset, int returned, int total) {
  return R"({"meta": {"query": {"limit": 2, "offset": )" + std::to_string(offset) +
         R"(}, "returnedCount": )" + std::to_string(returned) + R"(, "totalCount": )" + std::to_string(total) +
         R"(}, "favorites": []})";
}

std::string offsetOf(const platform::HttpRequest& request) {
  const auto at = request.url.find("offset=");
  return request.url.substr(at + 7, request.url.find('&', at) - at - 7);
}

class Paging : public ServiceFixture {
 protected:
  std::shared_ptr<Recorded<Json>> favorites(int offset) {
    return record(services.favorites->getCurrentUserFavorites(QAPIFavoritesService::AssetFilterType::tracks, offset, 2,
                                                              trigger.asObservable()));
  }
  std::vector<std::string> offsetsAsked() const {
    std::vector<std::string> offsets;
    for (const auto& request : http->requests()) offsets.push_back(offsetOf(request));
    return offsets;
  }

  rx::PublishSubject<Unit> trigger;
};

TEST_F(Paging, EachTriggerAsksForTheNextPageAndTheLastPageCompletes) {
  // The total is reached exactly by the third page: 4 + 2 >= 6 at offset 4 (started at 0).
  http->script("GET", kFavorites,
               {HttpAnswer::response(200, page(0, 2, 6)), HttpAnswer::response(200, page(2, 2, 6)),
                HttpAnswer::response(200, page(4, 2, 6))});
  const auto recorded = favorites(0);
  mainThread->runPending();
  EXPECT_TRUE(http->requests().empty());  // nothing before the first trigger

  for (int asked = 1; asked <= 3; ++asked) {
    trigger.onNext(unit);
    ASSERT_TRUE(pumpUntil([&] { return recorded->values.size() == static_cast<std::size_t>(asked); }));
    EXPECT_EQ(recorded->completed, asked == 3);
  }
  EXPECT_FALSE(trigger.hasObservers()) << "the last page stops listening";
  trigger.onNext(unit);
  mainThread->runPending();
  EXPECT_EQ(offsetsAsked(), (std::vector<std::string>{"0", "2", "4"}));
}

TEST_F(Paging, AnAppThatAsksForMoreAsEachPageArrivesStopsAtTheLastPage) {
  http->script("GET", kFavorites, {HttpAnswer::response(200, page(0, 2, 4)), HttpAnswer::response(200, page(2, 2, 4))});
  auto recorded = std::make_shared<Recorded<Json>>();
  recorded->subscription =
      services.favorites
          ->getCurrentUserFavorites(QAPIFavoritesService::AssetFilterType::tracks, 0, 2, trigger.asObservable())
          .subscribe(
              [&](const Json& answer) {
                recorded->values.push_back(answer);
                trigger.onNext(unit);  // at once, from inside the page's delivery
              },
              [&](const Error& error) { recorded->error = error; }, [&] { recorded->completed = true; });
  trigger.onNext(unit);
  ASSERT_TRUE(pumpUntil([&] { return recorded->ended(); }));
  EXPECT_TRUE(recorded->completed);
  EXPECT_EQ(offsetsAsked(), (std::vector<std::string>{"0", "2"}));
  EXPECT_EQ(http->cancelledCount(), 0u);
}

TEST_F(Paging, ATriggerThatFailsEndsTheListWithItsError) {
  http->script("GET", kFavorites, {HttpAnswer::response(200, page(0, 2, 6))});
  const auto recorded = favorites(0);
  trigger.onNext(unit);
  ASSERT_TRUE(pumpUntil([&] { return recorded->values.size() == 1; }));
  const Error broken{"app", 7, {}};
  trigger.onError(broken);
  ASSERT_TRUE(pumpUntil([&] { return recorded->ended(); }));
  EXPECT_EQ(recorded->error, broken);
}

TEST_F(Paging, TriggersDuringARequestQueueAndTheTriggersEndCompletesAfterThem) {
  http->script("GET", kFavorites, {HttpAnswer::response(200, page(10, 2, 100))});
  const auto recorded = favorites(10);
  trigger.onNext(unit);
  trigger.onNext(unit);
  trigger.onCompleted();
  ASSERT_TRUE(pumpUntil([&] { return recorded->ended(); }));
  EXPECT_TRUE(recorded->completed);
  EXPECT_EQ(recorded->values.size(), 2u);
  EXPECT_EQ(offsetsAsked(), (std::vector<std::string>{"10", "12"}));
  // A list whose trigger ended while no page was asked for completes at once.
  const auto idle = favorites(0);
  ASSERT_TRUE(pumpUntil([&] { return idle->ended(); }));
  EXPECT_TRUE(idle->completed);
}

TEST_F(Paging, AnEmptyPageOrOneWithoutCountsIsTheLast) {
  for (const std::string& last : {page(0, 0, 50), std::string(R"({"favorites": []})")}) {
    http->script("GET", kFavorites, {HttpAnswer::response(200, last)});
    const auto recorded = favorites(0);
    trigger.onNext(unit);
    ASSERT_TRUE(pumpUntil([&] { return recorded->ended(); }));
    EXPECT_TRUE(recorded->completed) << last;
  }
}

TEST_F(Paging, AFailedPageEndsTheListAndStopsListeningToTheTrigger) {
  favorites(0)->subscription.dispose();
  EXPECT_FALSE(trigger.hasObservers()) << "so does a disposed list";
  http->script("GET", kFavorites, {HttpAnswer::response(200, page(0, 2, 6)), HttpAnswer::response(500)});
  const auto recorded = favorites(0);
  trigger.onNext(unit);
  trigger.onNext(unit);
  ASSERT_TRUE(pumpUntil([&] { return recorded->ended(); }));
  EXPECT_EQ(recorded->values.size(), 1u);
  EXPECT_EQ(recorded->error->code, 500);
  EXPECT_FALSE(trigger.hasObservers());
  trigger.onNext(unit);
  mainThread->runPending();
  EXPECT_EQ(http->requests().size(), 2u);
}

TEST_F(Paging, GiphyPagesFollowItsPagination) {
  const auto answer = [](int offset, int count, int total) {
    return R"({"data": [], "pagination": {"offset": )" + std::to_string(offset) + R"(, "count": )" +
           std::to_string(count) + R"(, "total_count": )" + std::to_string(total) + "}}";
  };
  http->script("GET", "https://giphy.test/v1/gifs/search",
               {HttpAnswer::response(200, answer(0, 25, 30)), HttpAnswer::response(200, answer(25, 5, 30))});
  const auto recorded = record(giphy->searchPaginated("cats", GiphyRating::g, "en", 25, trigger.asObservable()));
  trigger.onNext(unit);
  trigger.onNext(unit);
  ASSERT_TRUE(pumpUntil([&] { return recorded->ended(); }));
  EXPECT_TRUE(recorded->completed);
  EXPECT_EQ(offsetsAsked(), (std::vector<std::string>{"0", "25"}));
}

// ---- server-sent events ----

TEST(EventStreamParser, EventsAreTheSameHoweverTheStreamIsCut) {
  const std::string stream =
      ": keep-alive\r\n\r\nid: 7\r\nevent: history.updated\r\ndata: {\"a\":\r\ndata: 1}\r\n\r\n"
      "event: charts.updated\rdata:x\r\rretry: 5\nid:\ndata\n\ndata: y\r\n\n";
  const auto parse = [](const std::vector<std::string_view>& pieces) {
    EventStreamParser parser;
    std::vector<std::string> seen;
    for (const auto piece : pieces) {
      parser.feed(piece, [&](const ServerSentEvent& e) { seen.push_back(e.id + "|" + e.type + "|" + e.data); });
    }
    return seen;
  };
  const std::vector<std::string> expected{"7|history.updated|{\"a\":\n1}", "7|charts.updated|x", "||", "||y"};
  EXPECT_EQ(parse({stream}), expected);
  for (std::size_t cut = 1; cut < stream.size(); ++cut) {
    const std::string_view whole = stream;
    EXPECT_EQ(parse({whole.substr(0, cut), whole.substr(cut)}), expected) << "cut at " << cut;
  }
}

constexpr const char* kEvents = "https://catalog.test/v1/me/events";

std::string event(int id, std::string_view topic, std::string_view data) {
  return "id: " + std::to_string(id) + "\nevent: " + std::string(topic) + "\ndata: " + std::string(data) + "\n\n";
}

TEST_F(ServiceFixture, UpdatesArriveAsUserAndResultAndSurviveADroppedConnection) {
  const std::string mine = event(4, "history.updated", R"({"user": null, "answer": {"tracks": []}})");
  const std::string other = event(5, "charts.updated", R"({"user": "friend-1", "answer": {}})");
  const std::string friends = event(6, "history.updated", R"({"user": "friend-1", "answer": {"tracks": [1]}})");
  const std::string failed = event(9, "history.updated", R"({"user": null, "error": {"status": 503, "message": "busy"}})");
  http->script("GET", kEvents,
               {HttpAnswer::chunked(200, {mine.substr(0, 20), mine.substr(20) + other}),
                HttpAnswer::connectionFailure(), HttpAnswer::response(503), HttpAnswer::chunked(200, {friends, failed}),
                HttpAnswer::held()});

  const auto recorded = record(services.history->recentTracksUpdated());
  ASSERT_TRUE(pumpUntil([&] { return recorded->values.size() == 4 && http->openCount() == 1; }));

  const auto& values = recorded->values;
  EXPECT_EQ(values[0].user, UserHint::currentUser());
  EXPECT_EQ(values[0].result, Result<Json>::success(boost::json::parse(R"({"tracks": []})")));
  EXPECT_EQ(values[1].result.error().code, 503);  // the refused connection, reported
  EXPECT_EQ(values[2].user, UserHint::user("friend-1"));
  EXPECT_EQ(values[3].result.error().code, 503);
  EXPECT_EQ(serviceErrorMessage(values[3].result.error()), "busy");
  EXPECT_FALSE(recorded->ended());

  const auto requests = http->requests();
  ASSERT_EQ(requests.size(), 5u);
  EXPECT_EQ(requests[0].url, "https://catalog.test/v1/me/events?topics=history.updated");
  EXPECT_EQ(platform::findHttpHeader(requests[0].headers, "Accept"), "text/event-stream");
  EXPECT_EQ(platform::findHttpHeader(requests[0].headers, "Last-Event-ID"), std::nullopt);
  for (std::size_t i = 1; i < 4; ++i) EXPECT_EQ(platform::findHttpHeader(requests[i].headers, "Last-Event-ID"), "5");
  EXPECT_EQ(platform::findHttpHeader(requests[4].headers, "Last-Event-ID"), "9");

  recorded->subscription.dispose();
  mainThread->runPending();
  EXPECT_EQ(http->openCount(), 0u);
}

TEST_F(ServiceFixture, UpdateStreamsAskForTheirOwnTopic) {
  const std::vector<std::pair<rx::Observable<UserResultUpdate>, std::string>> streams{
      {services.charts->topChartsUpdated(), "charts.updated"},
      {services.charts->topChartsRefreshed(), "charts.refreshed"},
      {services.history->recentTracksUpdated(), "history.updated"},
      {services.history->recentTracksRefreshed(), "history.refreshed"},
  };
  http->script("GET", kEvents, {HttpAnswer::held()});
  for (const auto& [stream, topic] : streams) {
    const auto recorded = record(stream);
    mainThread->runPending();
    EXPECT_EQ(http->requests().back().url, std::string(kEvents) + "?topics=" + topic);
    recorded->subscription.dispose();
  }
}

}  // namespace
}  // namespace applogic::services
