// PlaylistsDataController through the scripted playlists service: every operation through one
// table (what reaches the service, what a good and an odd answer become), then the cases that need more than one answer or a caller's argument.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "applogic/controllers/playlists_data_controller.h"
#include "applogic/testing/scripted_playlists_service.h"
#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

using testing::ScriptedPlaylistsService;
using testing::ServiceCall;
// The overloads below would otherwise hide the fixture's.
using controllers_test::describe;

const std::string kUnparsable = "error:PlaylistsDataController/1";
const Log kOneUnit{"unit", "completed"};

std::string describe(const Unit&) { return "unit"; }

std::string describe(const Playlist& playlist) {
  const auto custom = playlist.getCustomImage();
  return playlist.id + " custom=" + (custom ? custom->id : "none") + " giphy=" + playlist.getGiphyImageID().value_or("none");
}

std::string describe(const Page<std::vector<Track>>& page) {
  const Metadata& m = page.metadata;
  return "page(" + std::to_string(m.queryLimit) + "," + std::to_string(m.queryOffset) + "," +
         std::to_string(m.returnedCount) + "," + std::to_string(m.totalCount) + ")" + describe(page.payload);
}

std::string describe(const std::vector<PlaylistImage>& images) {
  std::string text = "[";
  for (const PlaylistImage& image : images) {
    text += (text.size() == 1 ? "" : ",") +
            (image.giphyID() ? "giphy:" + *image.giphyID() : "display:" + image.displayImage()->id);
  }
  return text + "]";
}

template <class T>
rx::Observable<std::string> described(const rx::Observable<T>& source) {
  return source.map([](const T& value) { return describe(value); });
}

Json playlistsAnswer() {
  return boost::json::parse(R"({"playlists":[
      {"id":"MP.7","images":[{"imageType":"displayImage","id":"d1","isDefault":true},
                             {"imageType":"giphyImage","id":"g1"},
                             {"imageType":"displayImage","id":"d2"}]},
      {"id":"mp.8"}]})");
}

Json pageAnswer() {
  Json answer = tracksAnswer({"Tra.1", "Tra.2"});
  answer.get_object()["meta"] = boost::json::parse(R"({"query":{"limit":2,"offset":4},"returnedCount":2,"totalCount":9})");
  return answer;
}

Json imagesAnswer() {
  return boost::json::parse(R"({"images":[{"imageType":"giphyImage","id":"g1"},{"imageType":"x"},
                                          {"imageType":"displayImage","id":"d1"}]})");
}

struct PlaylistsFixture {
  std::shared_ptr<ScriptedPlaylistsService> service = std::make_shared<ScriptedPlaylistsService>();
  PlaylistsDataController playlists{service};
};

struct OperationRow {
  std::string name;
  // The operation called with this row's arguments and its defaults.
  std::function<rx::Observable<std::string>(const PlaylistsDataController&)> call;
  ServiceCall expectedCall;
  Json answer;
  Log answered;
  Log unparsable;  // what an answer holding no list at all becomes
};

std::vector<OperationRow> operationRows() {
  const std::vector<std::string> none;
  return {
      {"get", [](const auto& c) { return described(c.get("mp.7")); },
       {"get", {"mp.7", "ScriptedPlaylistsService.default"}}, playlistsAnswer(),
       {"mp.7 custom=d2 giphy=g1", "completed"}, {kUnparsable}},
      {"getPlaylistTracks", [](const auto& c) { return described(c.getPlaylistTracks("", 2, 4)); },
       {"getPlaylistTracks", {"", "2", "4", "none"}}, pageAnswer(),
       {"page(2,4,2,9)[Tra.1,Tra.2]", "completed"}, {kUnparsable}},
      {"getImages", [](const auto& c) { return described(c.getImages("mp.7")); },
       {"getImages", {"mp.7", "none"}}, imagesAnswer(),
       {"[giphy:g1,display:d1]", "completed"}, {kUnparsable}},
      {"getRecommendedTracks", [](const auto& c) { return described(c.getRecommendedTracks("mp.7")); },
       {"getRecommendedTracks", {"mp.7", "none"}}, tracksAnswer({"Tra.1", "Tra.2"}),
       {"[Tra.1,Tra.2]", "completed"}, {kUnparsable}},
      {"updatePlaylistGif", [](const auto& c) { return described(c.updatePlaylistGif("mp.7", "g9")); },
       {"updatePlaylistGif", {"mp.7", "g9"}}, Json(boost::json::object{}), kOneUnit, kOneUnit},
      {"deletePlaylistGif", [](const auto& c) { return described(c.deletePlaylistGif("mp.7")); },
       {"deletePlaylistGif", {"mp.7"}}, Json(boost::json::object{}), kOneUnit, kOneUnit},
      {"uploadPlaylistImage",
       [](const auto& c) { return described(c.uploadPlaylistImage("mp.7", {0x00, 0x7f, 0xff})); },
       {"uploadPlaylistImage", {"mp.7", "007fff"}}, Json(nullptr), kOneUnit, kOneUnit},
      {"rejectRecommendedTracks", [none](const auto& c) { return described(c.rejectRecommendedTracks(none)); },
       {"rejectRecommendedTracks", {"[]", "none"}}, Json(boost::json::object{}), kOneUnit, kOneUnit},
      {"addTracks", [none](const auto& c) { return described(c.addTracks("mp.7", none)); },
       {"addTracks", {"mp.7", "[]", "none"}}, Json(nullptr), kOneUnit, kOneUnit},
      {"setTracks", [](const auto& c) { return described(c.setTracks("mp.7", {"Tra.2", "tra.1"})); },
       {"setTracks", {"mp.7", "[Tra.2, tra.1]", "none"}}, Json(nullptr), kOneUnit, kOneUnit},
  };
}

// Each subscription is one request, answered in turn: a good answer twice, then an answer of
// the wrong shape.
TEST(PlaylistsOperation, SendsTheArgumentsUnchangedAndRequestsOnSubscription) {
  for (const OperationRow& row : operationRows()) {
    SCOPED_TRACE(row.name);
    PlaylistsFixture f;
    const std::string& operation = row.expectedCall.operation;
    f.service->script(operation, {Answer::json(row.answer), Answer::json(row.answer),
                                  Answer::json(unparsableAnswer())});
    const auto observable = row.call(f.playlists);
    EXPECT_EQ(f.service->calls(), std::vector<ServiceCall>{row.expectedCall});
    EXPECT_EQ(f.service->requests(operation), 0u);
    EXPECT_EQ(collect(observable), row.answered);
    EXPECT_EQ(collect(observable), row.answered);
    EXPECT_EQ(f.service->requests(operation), 2u);
    EXPECT_EQ(collect(observable), row.unparsable);
  }
}

TEST(PlaylistsDataController, GetFailsWhenTheAnswerHoldsNoPlaylist) {
  PlaylistsFixture f;
  f.service->script("get", {Answer::jsonText(R"({"playlists":[]})"), Answer::jsonText(R"({"playlists":[5]})")});
  EXPECT_EQ(collect(described(f.playlists.get("mp.7"))), Log{kUnparsable});
  EXPECT_EQ(collect(described(f.playlists.get("mp.7"))), Log{kUnparsable});
}

TEST(PlaylistsDataController, EmptyListsAreAnswersNotFailures) {
  PlaylistsFixture f;
  f.service->script("getImages", Answer::jsonText(R"({"images":[{"imageType":"GiphyImage","id":"x"}]})"));
  f.service->script("getRecommendedTracks", Answer::json(tracksAnswer({})));
  f.service->script("getPlaylistTracks", Answer::jsonText(R"({"tracks":[]})"));
  EXPECT_EQ(collect(described(f.playlists.getImages("mp.7"))), (Log{"[]", "completed"}));
  EXPECT_EQ(collect(described(f.playlists.getRecommendedTracks("mp.7"))), (Log{"[]", "completed"}));
  EXPECT_EQ(collect(described(f.playlists.getPlaylistTracks("mp.7", 20, 0))), (Log{"page(-1,-1,-1,-1)[]", "completed"}));
}

TEST(PlaylistsDataController, WritesEmitOneUnitPerAnswerWhateverItHolds) {
  PlaylistsFixture f;
  const std::vector<Json> answers{Json(nullptr), boost::json::parse(R"({"error":"gone"})"), Json("ok"),
                                  boost::json::array{}};
  const Log fourUnits{"unit", "unit", "unit", "unit", "completed"};
  for (const char* operation : {"deletePlaylistGif", "updatePlaylistGif", "rejectRecommendedTracks", "addTracks"}) {
    f.service->script(operation, Answer::sequence(answers));
  }
  EXPECT_EQ(collect(described(f.playlists.deletePlaylistGif("mp.7"))), fourUnits);
  EXPECT_EQ(collect(described(f.playlists.updatePlaylistGif("mp.7", "g"))), fourUnits);
  EXPECT_EQ(collect(described(f.playlists.rejectRecommendedTracks({"Tra.1"}))), fourUnits);
  // The service's own observable comes back: however many values it emits reach the caller.
  EXPECT_EQ(collect(described(f.playlists.addTracks("mp.7", {"Tra.1"}))), fourUnits);

  testing::Hold hold;
  f.service->script("deletePlaylistGif", Answer::held(hold));
  EventLog log;
  log.subscribeTo(described(f.playlists.deletePlaylistGif("mp.7")));
  hold.emit(boost::json::parse(R"({"playlists":[]})"));
  EXPECT_EQ(log.events(), Log{"unit"});
  hold.emit(Json(nullptr));
  hold.complete();
  EXPECT_EQ(log.events(), (Log{"unit", "unit", "completed"}));
}

TEST(PlaylistsDataController, HandsTheCallersQueueAndSizeOverUnchanged) {
  PlaylistsFixture f;
  const SerialQueue queue("caller.queue");
  (void)f.playlists.getPlaylistTracks("mp.7", 0, -1, queue);
  (void)f.playlists.getImages("mp.7", Size{320, 240.5f});
  (void)f.playlists.getImages("mp.7", Size{0, 0});
  (void)f.playlists.getRecommendedTracks("mp.7", queue);
  (void)f.playlists.rejectRecommendedTracks({"Tra.1", "Tra.2"}, queue);
  (void)f.playlists.addTracks("mp.7", {"Tra.1"}, queue);
  (void)f.playlists.setTracks("mp.7", {}, queue);
  (void)f.playlists.get("mp.7");
  EXPECT_EQ(f.service->calls(),
            (std::vector<ServiceCall>{{"getPlaylistTracks", {"mp.7", "0", "-1", "caller.queue"}},
                                      {"getImages", {"mp.7", "320x240.5"}},
                                      {"getImages", {"mp.7", "0x0"}},
                                      {"getRecommendedTracks", {"mp.7", "caller.queue"}},
                                      {"rejectRecommendedTracks", {"[Tra.1, Tra.2]", "caller.queue"}},
                                      {"addTracks", {"mp.7", "[Tra.1]", "caller.queue"}},
                                      {"setTracks", {"mp.7", "[]", "caller.queue"}},
                                      {"get", {"mp.7", "ScriptedPlaylistsService.default"}}}));
}

TEST(PlaylistsDataController, OwnsANetworkQueueThatItNeverHandsOver) {
  PlaylistsFixture f;
  const PlaylistsDataController other(f.service);
  EXPECT_EQ(f.playlists.networkQueue().label(), "AppLogic.PlaylistsDataController");
  EXPECT_EQ(f.playlists.networkQueue(), f.playlists.networkQueue());
  EXPECT_NE(f.playlists.networkQueue(), other.networkQueue());
  EXPECT_NE(f.playlists.networkQueue(), f.service->defaultQueue());
}

}  // namespace
}  // namespace applogic::controllers_test
