// What each client operation sends, and how answers, refusals and failures come back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "applogic/platform/http_client.h"
#include "applogic/testing/fault_plan.h"
#include "services/service_fixture.h"

namespace applogic::services {
namespace {

using platform::findHttpHeader;
using platform::HttpErrorCode;
using testing::HttpAnswer;

using Operation = std::function<rx::Observable<Json>(const HttpServices&, HttpGiphyService&)>;

rx::Observable<Json> asJson(const rx::Observable<Unit>& writes) {
  return writes.map([](const Unit&) { return Json(nullptr); });
}

struct Row {
  const char* label;
  Operation operation;
  const char* method;
  const char* url;
  std::string body = "";
  const char* contentType = "";
  bool emitsUnit = false;
};

const std::vector<Row>& rows() {
  using Charts = QAPIChartsService;
  using Favorites = QAPIFavoritesService;
  static const std::vector<Row> table{
      {"track id is one path segment", [](auto& s, auto&) { return s.tracks->getTrackData("tra.1/2 ü"); }, "GET",
       "https://catalog.test/v1/tracks/tra.1%2F2%20%C3%BC"},
      {"unreserved characters stay, their neighbours are escaped",
       [](auto& s, auto&) { return s.tracks->getTrackData("AZaz09-._~@[`{/:"); }, "GET",
       "https://catalog.test/v1/tracks/AZaz09-._~%40%5B%60%7B%2F%3A"},
      {"top tracks", [](auto& s, auto&) { return s.tracks->getTopTracksData(7); }, "GET",
       "https://catalog.test/v1/tracks/top?limit=7"},
      {"search escapes the query", [](auto& s, auto&) { return s.search->searchTracks("so what&x=1", 20); }, "GET",
       "https://catalog.test/v1/search?q=so%20what%26x%3D1&limit=20"},
      {"charts of last month",
       [](auto& s, auto&) { return s.charts->getCurrentUserTopCharts(Charts::ChartType::tracks, Charts::Range::lastMonth, 5); },
       "GET", "https://catalog.test/v1/me/charts/tracks?range=month&limit=5"},
      {"charts of all time",
       [](auto& s, auto&) { return s.charts->getCurrentUserTopCharts(Charts::ChartType::albums, Charts::Range::allTime, 3); },
       "GET", "https://catalog.test/v1/me/charts/albums?range=all&limit=3"},
      {"favourites: one page per trigger",
       [](auto& s, auto&) {
         return s.favorites->getCurrentUserFavorites(Favorites::AssetFilterType::tracks, 4, 2, rx::just(unit));
       },
       "GET", "https://catalog.test/v1/me/favorites?filter=tracks&offset=4&limit=2"},
      {"recent tracks", [](auto& s, auto&) { return s.history->getCurrentUserRecentTracks(10); }, "GET",
       "https://catalog.test/v1/me/history?limit=10"},
      {"genres", [](auto& s, auto&) { return s.genres->getTopGenres("pt-BR"); }, "GET",
       "https://catalog.test/v1/genres?lang=pt-BR"},
      {"genre tracks", [](auto& s, auto&) { return s.genres->getGenreTopTracks("g.3", 9); }, "GET",
       "https://catalog.test/v1/genres/g.3/tracks?limit=9"},
      {"new releases",
       [](auto& s, auto&) { return s.personalized->getNewReleaseRecommendedTracks(0, 25, rx::just(unit)); }, "GET",
       "https://catalog.test/v1/me/new-releases?offset=0&limit=25"},
      {"playlist", [](auto& s, auto&) { return s.playlists->get("mp.1", std::nullopt); }, "GET",
       "https://catalog.test/v1/playlists/mp.1"},
      {"playlist tracks", [](auto& s, auto&) { return s.playlists->getPlaylistTracks("mp.1", 50, 100, std::nullopt); },
       "GET", "https://catalog.test/v1/playlists/mp.1/tracks?offset=100&limit=50"},
      {"images without a size", [](auto& s, auto&) { return s.playlists->getImages("mp.1", std::nullopt); }, "GET",
       "https://catalog.test/v1/playlists/mp.1/images"},
      {"images of a size", [](auto& s, auto&) { return s.playlists->getImages("mp.1", Size{320, 180.5f}); }, "GET",
       "https://catalog.test/v1/playlists/mp.1/images?width=320&height=180.5"},
      {"set the Giphy image", [](auto& s, auto&) { return s.playlists->updatePlaylistGif("mp.1", "gph\"1"); }, "PUT",
       "https://catalog.test/v1/playlists/mp.1/giphy", R"({"gifId":"gph\"1"})", "application/json"},
      {"remove the Giphy image", [](auto& s, auto&) { return s.playlists->deletePlaylistGif("mp.1"); }, "DELETE",
       "https://catalog.test/v1/playlists/mp.1/giphy"},
      {"upload an image",
       [](auto& s, auto&) { return asJson(s.playlists->uploadPlaylistImage("mp.1", {0x89, 'P', 0, 'G'})); }, "PUT",
       "https://catalog.test/v1/playlists/mp.1/image", std::string("\x89P\0G", 4), "application/octet-stream", true},
      {"recommendations", [](auto& s, auto&) { return s.playlists->getRecommendedTracks("mp.1", std::nullopt); }, "GET",
       "https://catalog.test/v1/playlists/mp.1/recommendations"},
      {"reject recommendations",
       [](auto& s, auto&) { return s.playlists->rejectRecommendedTracks({"tra.1", "tra.2"}, std::nullopt); }, "POST",
       "https://catalog.test/v1/me/recommendations/rejections", R"({"trackIds":["tra.1","tra.2"]})", "application/json"},
      {"add no tracks", [](auto& s, auto&) { return asJson(s.playlists->addTracks("mp.1", {}, std::nullopt)); }, "POST",
       "https://catalog.test/v1/playlists/mp.1/tracks", R"({"trackIds":[]})", "application/json", true},
      {"set tracks", [](auto& s, auto&) { return asJson(s.playlists->setTracks("mp.1", {"tra.9"}, std::nullopt)); },
       "PUT", "https://catalog.test/v1/playlists/mp.1/tracks", R"({"trackIds":["tra.9"]})", "application/json", true},
      {"Giphy trending", [](auto&, auto& g) { return g.getTrending(GiphyRating::pg13, 25); }, "GET",
       "https://giphy.test/v1/gifs/trending?api_key=key%201&limit=25&rating=pg-13"},
      {"Giphy search",
       [](auto&, auto& g) { return g.search("cats", GiphyRating::g, "en", 50, 25); }, "GET",
       "https://giphy.test/v1/gifs/search?api_key=key%201&q=cats&limit=25&offset=50&rating=g&lang=en"},
      {"Giphy paged search",
       [](auto&, auto& g) { return g.searchPaginated("cats", GiphyRating::g, "de", 10, rx::just(unit)); }, "GET",
       "https://giphy.test/v1/gifs/search?api_key=key%201&q=cats&limit=10&offset=0&rating=g&lang=de"},
      {"Giphy picture", [](auto&, auto& g) { return g.get("gph 1"); }, "GET",
       "https://giphy.test/v1/gifs/gph%201?api_key=key%201"},
  };
  return table;
}

class Requests : public ServiceFixture, public ::testing::WithParamInterface<Row> {};

TEST_P(Requests, SendOneRequestAndEmitTheAnswer) {
  const Row& row = GetParam();
  const std::string answer = R"({"tracks": [], "meta": {"returnedCount": 0, "totalCount": 0}})";
  http->script(row.method, row.url, {HttpAnswer::response(row.emitsUnit ? 204 : 200, row.emitsUnit ? "" : answer)});

  const auto recorded = record(row.operation(services, *giphy));
  ASSERT_TRUE(pumpUntil([&] { return recorded->ended(); }));

  EXPECT_FALSE(recorded->error) << *recorded->error;
  EXPECT_TRUE(recorded->completed);
  ASSERT_EQ(recorded->values.size(), 1u);
  EXPECT_EQ(recorded->values[0], row.emitsUnit ? Json(nullptr) : boost::json::parse(answer));
  const auto requests = http->requests();
  ASSERT_EQ(requests.size(), 1u);
  const platform::HttpRequest& sent = requests[0];
  EXPECT_EQ(sent.method, row.method);
  EXPECT_EQ(sent.url, row.url);
  EXPECT_EQ(sent.body.value_or(""), row.body);
  EXPECT_EQ(findHttpHeader(sent.headers, "Content-Type").value_or(""), row.contentType);
  const bool giphyRequest = std::string_view(row.url).starts_with("https://giphy.test");
  EXPECT_EQ(findHttpHeader(sent.headers, "Authorization"),
            giphyRequest ? std::nullopt : std::optional<std::string_view>("Bearer t1"));
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, Requests, ::testing::ValuesIn(rows()),
                         [](const ::testing::TestParamInfo<Row>& param) {
                           std::string name;
                           for (const char c : std::string_view(param.param.label)) {
                             if (std::isalnum(static_cast<unsigned char>(c))) name += c;
                           }
                           return name;
                         });

// ---- answers that are not the requested value ----

using ServiceErrors = ServiceFixture;

constexpr const char* kTrackUrl = "https://catalog.test/v1/tracks/tra.1";

Error recordedError(ServiceFixture& fixture, const rx::Observable<Json>& source) {
  const auto recorded = record(source);
  EXPECT_TRUE(fixture.pumpUntil([&] { return recorded->ended(); }));
  EXPECT_TRUE(recorded->values.empty());
  return recorded->error.value_or(Error{});
}

TEST_F(ServiceErrors, AnAnswerThatIsNotTheValueFailsWithStatusAndMessage) {
  struct Case {
    HttpAnswer answer;
    std::int64_t code;
    std::string message;
  };
  const std::vector<Case> cases{
      {HttpAnswer::response(404, R"({"error": {"status": 404, "message": "No track tra.1."}})"), 404, "No track tra.1."},
      {HttpAnswer::response(500, "<html>oops</html>"), 500, "Internal Server Error"},
      {HttpAnswer::response(503, R"({"error": {"status": 503}})"), 503, "Service Unavailable"},
      {HttpAnswer::response(418), 418, "HTTP status 418"},
      {HttpAnswer::response(300, "{}"), 300, "HTTP status 300"},
      {HttpAnswer::response(200, "{\"tracks\": [}"), 0, "The answer is not JSON."},
      {HttpAnswer::response(299, ""), 0, "The answer is not JSON."},
  };
  for (const Case& c : cases) {
    http->script("GET", kTrackUrl, {c.answer});
    const Error error = recordedError(*this, services.tracks->getTrackData("tra.1"));
    EXPECT_EQ(error.domain, kServiceErrorDomain);
    EXPECT_EQ(error.code, c.code);
    EXPECT_EQ(serviceErrorMessage(error), c.message);
    EXPECT_EQ(std::get<std::string>(error.userInfo.at(std::string(kServiceErrorUrlKey))), kTrackUrl);
  }
}

TEST_F(ServiceErrors, GiphyRefusalsCarryGiphysMessage) {
  http->script("GET", "https://giphy.test/v1/gifs/x",
               {HttpAnswer::response(401, R"({"meta": {"status": 401, "msg": "Unauthorized key"}})")});
  const Error error = recordedError(*this, giphy->get("x"));
  EXPECT_EQ(error.code, 401);
  EXPECT_EQ(serviceErrorMessage(error), "Unauthorized key");
}

TEST_F(ServiceErrors, TransportAndTokenFailuresPassThroughUnchanged) {
  const Error lost = platform::makeHttpError(HttpErrorCode::networkConnectionLost, "reset by peer");
  http->script("GET", kTrackUrl, {HttpAnswer::failure(lost)});
  EXPECT_EQ(recordedError(*this, services.tracks->getTrackData("tra.1")), lost);

  tokens->failure = Error{"AmazonLogin", 1, {{"message", "The refresh token is invalid, expired or revoked."}}};
  EXPECT_EQ(recordedError(*this, services.tracks->getTrackData("tra.1")), *tokens->failure);
  EXPECT_EQ(http->requests().size(), 1u);  // the second request never left
}

TEST_F(ServiceErrors, ABadConfigurationIsRefused) {
  ServiceConfiguration configuration{"https://catalog.test/v1/", http, mainThread, tokens};
  EXPECT_FALSE(makeHttpServices(configuration).ok());
  configuration.baseUrl = "ftp://catalog.test/v1";
  EXPECT_FALSE(makeHttpServices(configuration).ok());
  configuration.baseUrl = "http://catalog.test";
  configuration.accessTokens = nullptr;
  EXPECT_FALSE(makeHttpServices(configuration).ok());
  EXPECT_FALSE(HttpGiphyService::make(GiphyConfiguration{"https://giphy.test/v1", "k", nullptr, mainThread}).ok());
}

TEST_F(ServiceFixture, PathsComeFromTheConfiguration) {
  ServiceConfiguration configuration{"https://other.test/api", http, mainThread, tokens};
  configuration.paths.track = "/catalog/tracks/{id}/info";
  configuration.paths.charts = "/charts-{type}";
  const HttpServices custom = makeHttpServices(configuration).value();
  http->script("GET", "https://other.test/api/catalog/tracks/tra%201/info", {HttpAnswer::response(200, "{}")});
  http->script("GET", "https://other.test/api/charts-artists", {HttpAnswer::response(200, "{}")});
  const auto track = record(custom.tracks->getTrackData("tra 1"));
  const auto charts = record(custom.charts->getCurrentUserTopCharts(QAPIChartsService::ChartType::artists,
                                                                    QAPIChartsService::Range::allTime, 1));
  ASSERT_TRUE(pumpUntil([&] { return track->ended() && charts->ended(); }));
  EXPECT_TRUE(track->completed && charts->completed);
}

// ---- the signed-in user's token ----

using Tokens = ServiceFixture;

TEST_F(Tokens, ARefusedTokenIsRefreshedOnceAndTheRequestSentAgain) {
  const std::string refused = R"({"error": {"status": 401, "message": "The access token expired."}})";
  http->script("GET", kTrackUrl, {HttpAnswer::response(401, refused), HttpAnswer::response(200, R"({"tracks": []})")});
  const auto recorded = record(services.tracks->getTrackData("tra.1"));
  ASSERT_TRUE(pumpUntil([&] { return recorded->ended(); }));

  EXPECT_TRUE(recorded->completed);
  EXPECT_EQ(recorded->values.size(), 1u);
  EXPECT_EQ(tokens->forced(), (std::vector<bool>{false, true}));
  const auto requests = http->requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(findHttpHeader(requests[0].headers, "Authorization"), "Bearer t1");
  EXPECT_EQ(findHttpHeader(requests[1].headers, "Authorization"), "Bearer t2");
}

TEST_F(Tokens, ARefusedAnswerIsClosedBeforeTheNewTokenArrives) {
  http->script("GET", kTrackUrl, {HttpAnswer::chunked(401, {"{", "}"}), HttpAnswer::response(200, "{}")});
  tokens->holdForced = true;
  const auto recorded = record(services.tracks->getTrackData("tra.1"));
  ASSERT_TRUE(pumpUntil([&] { return tokens->held != nullptr; }));
  mainThread->runPending();
  EXPECT_EQ(http->cancelledCount(), 1u);  // the refused answer's body is not read
  std::exchange(tokens->held, nullptr)(Result<std::string>::success("t9"));
  ASSERT_TRUE(pumpUntil([&] { return recorded->ended(); }));
  EXPECT_TRUE(recorded->completed);
  EXPECT_EQ(findHttpHeader(http->requests().back().headers, "Authorization"), "Bearer t9");
}

TEST_F(Tokens, ASecondRefusalIsTheRequestsError) {
  http->script("GET", kTrackUrl,
               {HttpAnswer::response(401, R"({"error": {"status": 401, "message": "The access token expired."}})")});
  const Error error = recordedError(*this, services.tracks->getTrackData("tra.1"));
  EXPECT_EQ(error.code, 401);
  EXPECT_EQ(serviceErrorMessage(error), "The access token expired.");
  EXPECT_EQ(tokens->forced(), (std::vector<bool>{false, true}));
  EXPECT_EQ(http->requests().size(), 2u);
}

// ---- every failure point of a request ----

TEST_F(ServiceFixture, EachFailingStepOfAnAnswerFailsTheRequestOnce) {
  const auto plan = std::make_shared<testing::FaultPlan>();
  http->setFaultPlan(plan);
  http->script("GET", kTrackUrl, {HttpAnswer::chunked(200, {R"({"tracks")", R"(: []})"})});
  const auto clean = record(services.tracks->getTrackData("tra.1"));
  ASSERT_TRUE(pumpUntil([&] { return clean->ended(); }));
  ASSERT_TRUE(clean->completed);
  const std::size_t points = plan->count();
  ASSERT_GE(points, 4u);

  for (std::size_t n = 1; n <= points; ++n) {
    plan->failAt(n);
    const auto recorded = record(services.tracks->getTrackData("tra.1"));
    ASSERT_TRUE(pumpUntil([&] { return recorded->ended(); })) << "failure point " << n;
    EXPECT_TRUE(recorded->values.empty()) << plan->failedSite();
    ASSERT_TRUE(recorded->error) << plan->failedSite();
    EXPECT_EQ(recorded->error->domain, platform::kHttpErrorDomain) << plan->failedSite();
    EXPECT_FALSE(recorded->completed);
  }
}

// ---- cancellation and cold observables ----

TEST_F(ServiceFixture, DisposingCancelsTheRequestAndNothingArrives) {
  http->script("GET", kTrackUrl, {HttpAnswer::held()});
  const auto recorded = record(services.tracks->getTrackData("tra.1"));
  mainThread->runPending();
  ASSERT_EQ(http->openCount(), 1u);

  recorded->subscription.dispose();
  mainThread->runPending();
  EXPECT_EQ(http->cancelledCount(), 1u);
  EXPECT_EQ(http->answerHeld(HttpAnswer::response(200, "{}")), 0u);
  mainThread->runPending();
  EXPECT_FALSE(recorded->ended());
  EXPECT_TRUE(recorded->values.empty());
}

TEST_F(ServiceFixture, EachSubscriptionSendsItsOwnRequestFromAnyThread) {
  http->script("GET", kTrackUrl, {HttpAnswer::response(200, "{}")});
  const rx::Observable<Json> track = services.tracks->getTrackData("tra.1");
  std::shared_ptr<Recorded<Json>> fromWorker;
  std::thread([&] { fromWorker = record(track); }).join();  // started on the main thread, later
  EXPECT_TRUE(http->requests().empty());
  const auto fromMain = record(track);
  ASSERT_TRUE(pumpUntil([&] { return fromWorker->ended() && fromMain->ended(); }));
  EXPECT_EQ(http->requests().size(), 2u);
  EXPECT_TRUE(fromWorker->completed && fromMain->completed);
}

TEST_F(ServiceFixture, RequestsStillRunningWhenTheLastClientGoesAreCancelled) {
  http->script("GET", kTrackUrl, {HttpAnswer::held()});
  auto recorded = record(services.tracks->getTrackData("tra.1"));
  mainThread->runPending();
  services = HttpServices{};
  EXPECT_EQ(http->cancelledCount(), 1u);
  mainThread->runPending();
  EXPECT_FALSE(recorded->ended());
}

}  // namespace
}  // namespace applogic::services
