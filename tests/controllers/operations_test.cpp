// Every operation of the data controllers through one table: what it asks its service for, and
// what each answer in turn (one per subscription) becomes: the records, an empty list, the
// controller's parsing error. Service failures: fault_injection_test.cpp.

#include <gtest/gtest.h>

#include <functional>

#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

const std::string kTracks = "error:TracksDataController/1", kSearch = "error:SearchDataController/1",
                  kUsers = "error:UsersTracksDataController/1", kPlaylists = "error:PlaylistsDataController/1",
                  kGiphy = "error:GiphyDataController/1", kGeneric = "error:Unknown parsing error/0";
const Log kNone{"[]", "completed"}, kTwo{"[Tra.1,Tra.2]", "completed"}, kUnit{"unit", "completed"};

template <class T>
rx::Observable<std::string> described(const rx::Observable<T>& source) {
  return source.map([](const T& value) { return describe(value); });
}

Json parse(const char* text) { return boost::json::parse(text); }

// Pictures with a 16:9 rendition ("wide") and a portrait one, which the aspect filter drops.
constexpr const char* kWide = R"("wide":{"width":"480","height":"270","url":"https://media.giphy.com/w.gif"})";
constexpr const char* kTall = R"("tall":{"width":"270","height":"480","url":"https://media.giphy.com/t.gif"})";
Json picture(const std::string& id, const std::string& images) {
  return parse(("{\"id\":\"" + id + "\",\"images\":{" + images + "}}").c_str());
}
Json pictures(std::vector<Json> list) { return boost::json::object{{"data", boost::json::array(list.begin(), list.end())}}; }
const std::string kWideOnProxy = " wide=https://proxy.test/w.gif";

struct Row {
  std::string name;
  std::function<rx::Observable<std::string>(Fixture&)> call;
  ServiceCall expectedCall;
  std::vector<std::pair<Json, Log>> answers;  // each answer in turn, and what it becomes
};

std::vector<Row> rows() {
  const Json two = tracksAnswer({"Tra.1", "Tra.2"});
  const Json none = tracksAnswer({});
  const Json bad = unparsableAnswer();
  const std::vector<std::pair<Json, Log>> generic{{two, kTwo}, {none, kNone}, {bad, {kGeneric}}};
  const std::vector<std::pair<Json, Log>> writes{{nullptr, kUnit}, {bad, kUnit}};
  using F = Fixture&;
  return {
      {"getTrack", [](F f) { return described(f.tracks->getTrack(" tra.1 ")); }, {"getTrackData", {" tra.1 "}},
       {{two, {"Tra.1", "completed"}}, {none, {kTracks}}, {bad, {kTracks}}}},
      {"getTopTracks", [](F f) { return described(f.tracks->getTopTracks(7)); }, {"getTopTracksData", {"7"}}, generic},
      {"searchTracks", [](F f) { return described(f.search.searchTracks(" miles ", 0)); }, {"searchTracks", {" miles ", "0"}},
       {{tracksAnswer({"Tra.1", "Tra.2"}, "data"), kTwo}, {tracksAnswer({}, "data"), kNone}, {bad, {kSearch}}}},
      {"getUserTopChartTracks",
       [](F f) { return described(f.users.getUserTopChartTracks("x", 25, QAPIChartsService::Range::allTime)); }, {"getCurrentUserTopCharts", {"0", "1", "25"}},
       {{chartsAnswer({"Tra.1", "Tra.2"}), kTwo}, {bad, kNone}}},
      {"getUserFavoriteTracks", [](F f) { return described(f.users.getUserFavoriteTracks("x", 20, 10, rx::just(unit))); },
       {"getCurrentUserFavorites", {"3", "20", "10"}},
       {{linkedAnswer("favorites", {"Tra.1", "Tra.2"}), kTwo}, {bad, {kUsers}}}},
      {"getFavoriteTrack", [](F f) { return described(f.users.getFavoriteTrack("x")); }, {"getCurrentUserFavorites", {"3", "0", "1"}},
       {{linkedAnswer("favorites", {"Tra.1", "Tra.2"}), {"Tra.1", "completed"}},
        {linkedAnswer("favorites", {}), {"none", "completed"}},
        {bad, {kUsers}}}},
      {"getUserRecentTracks", [](F f) { return described(f.users.getUserRecentTracks("x", 5)); }, {"getCurrentUserRecentTracks", {"5"}},
       {{two, kTwo}, {bad, kNone}}},
      {"getNewReleaseRecommendedTracks",
       [](F f) { return described(f.personalized.getNewReleaseRecommendedTracks(40, 20, rx::just(unit))); },
       {"getNewReleaseRecommendedTracks", {"40", "20"}}, generic},
      {"getTopGenresObservable", [](F f) { return described(f.genres.getTopGenresObservable("pt-BR")); }, {"getTopGenres", {"pt-BR"}},
       {{parse(R"({"genres":[{"id":"g.1","name":"A"},{"id":"g.2","name":"B"}]})"), {"[g.1,g.2]", "completed"}},
        {bad, {kGeneric}}}},
      {"getGenreTopTracksObservable", [](F f) { return described(f.genres.getGenreTopTracksObservable("g.1", 3)); }, {"getGenreTopTracks", {"g.1", "3"}}, generic},
      {"playlists.get", [](F f) { return described(f.playlists.get("mp.7")); },
       {"get", {"mp.7", "ScriptedPlaylistsService.default"}},
       {{parse(R"({"playlists":[{"id":"mp.7"},{"id":"mp.8"}]})"), {"mp.7", "completed"}},
        {parse(R"({"playlists":[]})"), {kPlaylists}},
        {bad, {kPlaylists}}}},
      {"getPlaylistTracks", [](F f) { return described(f.playlists.getPlaylistTracks("mp.7", 2, 4)); },
       {"getPlaylistTracks", {"mp.7", "2", "4", "none"}},
       {{two, {"-1[Tra.1,Tra.2]", "completed"}}, {bad, {kPlaylists}}}},
      {"getImages", [](F f) { return described(f.playlists.getImages("mp.7", Size{320, 240.5f})); }, {"getImages", {"mp.7", "320x240.5"}},
       {{parse(R"({"images":[{"imageType":"giphyImage","id":"g1"},{"imageType":"x"}]})"), {"[g1]", "completed"}},
        {bad, {kPlaylists}}}},
      {"getRecommendedTracks", [](F f) { return described(f.playlists.getRecommendedTracks("mp.7", SerialQueue("q"))); }, {"getRecommendedTracks", {"mp.7", "q"}},
       {{two, kTwo}, {none, kNone}, {bad, {kPlaylists}}}},
      {"updatePlaylistGif", [](F f) { return described(f.playlists.updatePlaylistGif("mp.7", "g9")); },
       {"updatePlaylistGif", {"mp.7", "g9"}}, writes},
      {"deletePlaylistGif", [](F f) { return described(f.playlists.deletePlaylistGif("mp.7")); },
       {"deletePlaylistGif", {"mp.7"}}, writes},
      {"rejectRecommendedTracks", [](F f) { return described(f.playlists.rejectRecommendedTracks({"Tra.1", "Tra.2"})); },
       {"rejectRecommendedTracks", {"[Tra.1, Tra.2]", "none"}}, writes},
      {"uploadPlaylistImage", [](F f) { return described(f.playlists.uploadPlaylistImage("mp.7", {0x00, 0xff})); },
       {"uploadPlaylistImage", {"mp.7", "00ff"}}, writes},
      {"addTracks", [](F f) { return described(f.playlists.addTracks("mp.7", {"Tra.1"})); },
       {"addTracks", {"mp.7", "[Tra.1]", "none"}}, writes},
      {"setTracks", [](F f) { return described(f.playlists.setTracks("mp.7", {})); }, {"setTracks", {"mp.7", "[]", "none"}},
       writes},
      {"getTrending", [](F f) { return described(f.giphy.getTrending()); }, {"getTrending", {"g", "25"}},
       {{pictures({picture("a", std::string(kTall) + "," + kWide), picture("b", kTall)}), {"[a" + kWideOnProxy + "]", "completed"}},
        {pictures({}), kNone},
        {picture("a", kWide), {kGiphy}}}},
      {"giphy.search", [](F f) { return described(f.giphy.search(" cats ")); }, {"search", {" cats ", "g", "de", "0", "25"}},
       {{pictures({picture("a", kWide)}), {"[a" + kWideOnProxy + "]", "completed"}}, {bad, {kGiphy}}}},
      {"searchPaginated", [](F f) { return described(f.giphy.searchPaginated("dogs", rx::just(unit))); }, {"searchPaginated", {"dogs", "g", "de", "25"}},
       {{pictures({picture("b", kTall)}), kNone}, {bad, {kGiphy}}}},
      {"giphy.get", [](F f) { return described(f.giphy.get("a")); }, {"get", {"a"}},
       {{boost::json::object{{"data", picture("a", std::string(kTall) + "," + kWide)}}, {"a" + kWideOnProxy, "completed"}},
        {boost::json::object{{"data", picture("a", kTall)}}, {kGiphy}},  // every rendition filtered out
        {pictures({picture("a", kWide)}), {kGiphy}}}},
  };
}

TEST(Operation, AsksItsServiceOnceAndTurnsEachAnswerIntoRecordsOrItsError) {
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.name);
    Fixture f;
    const auto observable = row.call(f);  // a request only on subscription
    std::vector<ServiceCall> calls;
    for (testing::ScriptedService* service : f.services()) {
      for (const ServiceCall& call : service->calls()) calls.push_back(call);
      if (service->calls().empty()) continue;
      std::vector<Answer> answers;
      for (const auto& [answer, outcome] : row.answers) answers.push_back(Answer::json(answer));
      service->script(row.expectedCall.operation, std::move(answers));
    }
    EXPECT_EQ(calls, std::vector<ServiceCall>{row.expectedCall});
    for (const auto& [answer, outcome] : row.answers) EXPECT_EQ(collect(observable), outcome);
  }
}

TEST(GiphyStillImageUrl, TheClosestStillFrameOnTheProxyOrNoStillImageUrl) {
  const struct {
    const char* images;
    std::string outcome;
  } rows[] = {
      {R"("s200_still":{"width":"200","height":"113","url":"https://m.test/a.gif"},
          "s480_still":{"width":"480","height":"270","url":"https://m.test/b.gif"})",
       "https://proxy.test/b.gif"},
      {kWide, "error:No still image url/0"},
      {kTall, kGiphy},
  };
  for (const auto& row : rows) {
    Fixture f;
    f.giphyService->script("get", Answer::json(boost::json::object{{"data", picture("a", row.images)}}));
    const auto outcome = f.giphy.getGiphySillImageUrl("a", 400).outcome();
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->ok() ? outcome->value().string() : describe(outcome->error()), row.outcome);
  }
}

}  // namespace
}  // namespace applogic::controllers_test
