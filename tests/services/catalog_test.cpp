// The clients against the local catalog service, over the Linux HTTP client and loopback TLS:
// every operation through its data controller, so that the paths the clients ask for and the
// shapes the serializers read are the ones the service has. Paging, refreshes, cancellation and
// reconnection are the clients' own, tested over the scripted HTTP client.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "applogic/controllers/genre_data_controller.h"
#include "applogic/controllers/giphy_data_controller.h"
#include "applogic/controllers/playlists_data_controller.h"
#include "applogic/controllers/search_data_controller.h"
#include "applogic/controllers/tracks_data_controller.h"
#include "applogic/controllers/users_tracks_data_controller.h"
#include "applogic/platform/curl_http_client.h"
#include "applogic/testing/fixed_locale.h"
#include "applogic/testing/scripted_services.h"
#include "emulator/catalog_server.h"
#include "services/service_fixture.h"

namespace applogic::services {
namespace {

constexpr const char* kGood = "good-token";
constexpr const char* kListener = "listener-1";

class Catalog : public ::testing::Test {
 public:
  Catalog() {
    emulator::CatalogServerOptions options;
    options.accountUserId = kListener;
    options.keepAliveInterval = std::chrono::milliseconds(200);
    options.verifyToken = [](std::string_view token) -> std::optional<std::string> {
      if (token != kGood) return std::nullopt;
      return std::string(kListener);
    };
    auto started = emulator::CatalogServer::start(std::move(options));
    EXPECT_TRUE(started.ok());
    server = std::move(started).value();
    http = platform::makeCurlHttpClient(mainThread, platform::CurlHttpOptions{server->caPath()});
    auto made = makeHttpServices(ServiceConfiguration{server->apiBaseUrl(), http, mainThread, tokens, std::chrono::seconds(30),
                                                      ReconnectPolicy{std::chrono::milliseconds(10), std::chrono::milliseconds(40)}});
    EXPECT_TRUE(made.ok());
    clients = made.value();
  }

  // Runs the main thread until `source` ends; what it received.
  template <class T>
  std::shared_ptr<Recorded<T>> run(const rx::Observable<T>& source) {
    auto recorded = record(source);
    EXPECT_TRUE(pumpUntil([&] { return recorded->ended(); }));
    EXPECT_FALSE(recorded->error) << *recorded->error;
    return recorded;
  }

  template <class Condition>
  bool pumpUntil(Condition done) {
    return services::pumpUntil([this] { return mainThread->runUntilIdle(); }, done);
  }

  std::unique_ptr<emulator::CatalogServer> server;
  std::shared_ptr<platform::RunLoop> mainThread = std::make_shared<platform::RunLoop>();
  // The first token is one the service does not know: every client starts with a refresh.
  std::shared_ptr<CountingTokenSource> tokens =
      std::make_shared<CountingTokenSource>(std::vector<std::string>{"stale-token", kGood});
  std::shared_ptr<platform::HttpClient> http;
  HttpServices clients;
};

TEST_F(Catalog, EveryReadingOperationAnswersWhatItsControllerParses) {
  const auto tracks = std::make_shared<TracksDataController>(clients.tracks);
  const UsersTracksDataController users(std::make_shared<testing::ScriptedCurrentUserProvider>(kListener), tracks,
                                        clients.charts, clients.favorites, clients.history);
  const auto top = run(tracks->getTopTracks(5));
  ASSERT_EQ(top->values.at(0).size(), 5u);
  const Track& first = top->values[0][0];
  EXPECT_FALSE(first.previewURL.empty());

  EXPECT_EQ(run(tracks->getTrack(first.id))->values.at(0), first);
  const std::string word = first.name.substr(0, first.name.find(' '));
  EXPECT_FALSE(run(SearchDataController(clients.search).searchTracks(word, 10))->values.at(0).empty());
  EXPECT_FALSE(run(users.getUserTopChartTracks("", 5, QAPIChartsService::Range::allTime))->values.at(0).empty());
  EXPECT_FALSE(run(users.getUserRecentTracks("", 5))->values.at(0).empty());
  EXPECT_TRUE(run(users.getFavoriteTrack(""))->values.at(0).has_value());
  const GenreDataController genres(clients.genres);
  const auto genreList = run(genres.getTopGenresObservable("en"))->values.at(0);
  ASSERT_FALSE(genreList.empty());
  EXPECT_FALSE(run(genres.getGenreTopTracksObservable(genreList[0].id, 3))->values.at(0).empty());

  const PlaylistsDataController playlists(clients.playlists);
  const Playlist playlist = run(playlists.get("mp.1001"))->values.at(0);
  EXPECT_EQ(playlist.ownerId, kListener);
  EXPECT_FALSE(run(playlists.getImages("mp.1001", Size{300, 300}))->values.at(0).empty());
  EXPECT_FALSE(run(playlists.getRecommendedTracks("mp.1001"))->values.at(0).empty());
  const auto& forced = tokens->forced();
  EXPECT_EQ(std::count(forced.begin(), forced.end(), true), 1) << "one refresh, for the stale first token";
}

TEST_F(Catalog, PlaylistWritesChangeWhatIsReadBack) {
  const PlaylistsDataController playlists(clients.playlists);
  const auto before = run(playlists.getPlaylistTracks("mp.1001", 500, 0))->values.at(0);
  const int total = static_cast<int>(before.metadata.totalCount);
  ASSERT_EQ(before.payload.size(), static_cast<std::size_t>(total));

  run(playlists.addTracks("mp.1001", {before.payload[0].id}));
  const auto added = run(playlists.getPlaylistTracks("mp.1001", 500, 0))->values.at(0);
  EXPECT_EQ(added.metadata.totalCount, total + 1);
  EXPECT_EQ(added.payload.back().id, before.payload[0].id);

  run(playlists.setTracks("mp.1001", {before.payload[1].id}));
  const auto replaced = run(playlists.getPlaylistTracks("mp.1001", 500, 0))->values.at(0);
  ASSERT_EQ(replaced.payload.size(), 1u);
  EXPECT_EQ(replaced.payload[0].id, before.payload[1].id);

  run(playlists.updatePlaylistGif("mp.1001", "gph0002"));
  EXPECT_EQ(run(playlists.get("mp.1001"))->values.at(0).getGiphyImageID(), "gph0002");
  run(playlists.deletePlaylistGif("mp.1001"));
  EXPECT_EQ(run(playlists.get("mp.1001"))->values.at(0).getGiphyImageID(), std::nullopt);
  run(playlists.uploadPlaylistImage("mp.1001", {0x89, 'P', 'N', 'G'}));
  EXPECT_TRUE(run(playlists.get("mp.1001"))->values.at(0).getCustomImage().has_value());

  const auto recommended = run(playlists.getRecommendedTracks("mp.1001"))->values.at(0);
  ASSERT_FALSE(recommended.empty());
  EXPECT_EQ(run(playlists.rejectRecommendedTracks({recommended[0].id}))->values.size(), 1u);
}

TEST_F(Catalog, GiphyPicturesComeWithTheApiKey) {
  auto giphy = HttpGiphyService::make(GiphyConfiguration{server->giphyBaseUrl(), "tunevo-giphy-key", http, mainThread});
  ASSERT_TRUE(giphy.ok());
  const GiphyDataController controller(giphy.value(), std::make_shared<testing::FixedLocale>("en"), "127.0.0.1");
  const auto trending = run(controller.getTrending())->values.at(0);
  ASSERT_FALSE(trending.empty());
  EXPECT_EQ(run(controller.get(trending[0].id))->values.at(0).id, trending[0].id);
  EXPECT_FALSE(run(controller.search("a"))->values.at(0).empty());
}

}  // namespace
}  // namespace applogic::services
