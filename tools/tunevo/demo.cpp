#include "tunevo/demo.h"

#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "applogic/controllers/genre_data_controller.h"
#include "applogic/controllers/giphy_data_controller.h"
#include "applogic/controllers/personalized_data_controller.h"
#include "applogic/controllers/playlists_data_controller.h"
#include "applogic/controllers/search_data_controller.h"
#include "applogic/controllers/tracks_data_controller.h"
#include "applogic/controllers/users_tracks_data_controller.h"
#include "applogic/rx/rx.h"
#include "applogic/services/http_services.h"
#include "tunevo/demo_audio.h"
#include "tunevo/demo_signin.h"
#include "tunevo/demo_support.h"
#include "tunevo/exit_codes.h"

namespace tunevo {
namespace {

namespace rx = applogic::rx;
using namespace applogic;

constexpr auto kPatience = std::chrono::seconds(10);
// The first of the catalog's playlists, which the account owns.
constexpr std::string_view kPlaylist = "mp.1001";

constexpr std::string_view kUsage =
    "usage: tunevo demo\n"
    "\n"
    "Runs the whole app on this machine: starts a local sign-in server and a local catalog\n"
    "service (HTTPS on loopback), signs in with a scripted browser, then drives every data\n"
    "controller over the HTTP service clients with the session's token, and prints what the app\n"
    "receives: records, and errors with their domain and code. It edits a playlist, follows an\n"
    "update the service pushes, survives an expired token and a server failure, and plays a\n"
    "track's preview from the catalog service through AudioPreviewController (on the null sink\n"
    "when there is no sound device). Needs no network and no account.\n";

// The signed-in user, as the app knows it after signing in.
class SignedInUser final : public CurrentUserProvider {
 public:
  explicit SignedInUser(std::string id) : id_(std::move(id)) {}
  std::optional<std::string> userGuid() const override { return id_; }

 private:
  std::string id_;
};

// The tour: one section per controller, every call printed with what the service does and then
// every event the app receives, in order.
class Demo {
 public:
  Demo(std::ostream& out, std::ostream& err, DemoApp& app, services::HttpServices clients,
       std::shared_ptr<services::HttpGiphyService> giphy)
      : out_(out),
        err_(err),
        app_(app),
        clients_(std::move(clients)),
        giphyService_(std::move(giphy)),
        tracks_(std::make_shared<TracksDataController>(clients_.tracks)),
        users_(std::make_shared<SignedInUser>(app.userId()), tracks_, clients_.charts,
               clients_.favorites, clients_.history) {}

  // False when a step did not go as the app expects (the reason is on `err`).
  bool run() {
    tracksSection();
    searchSection();
    usersTracksSection();
    personalizedSection();
    genreSection();
    playlistsSection();
    giphySection();
    expiredTokenSection();
    previewSection();
    return ok_;
  }

 private:
  // ---- sections ----

  void tracksSection() {
    section("TracksDataController");
    call("getTopTracks(3)", "GET /tracks/top?limit=3");
    const auto top = show(tracks_->getTopTracks(3));
    if (!top.value || top.value->empty()) return fail("the catalog has no top tracks");
    topTrack_ = top.value->front();
    call("getTrack(\"" + topTrack_.id + "\")", "GET /tracks/" + topTrack_.id);
    show(tracks_->getTrack(topTrack_.id));
    call("getTrack(\"tra.0\")", "GET /tracks/tra.0: no such track, 404");
    expectError(show(tracks_->getTrack("tra.0")));
  }

  void searchSection() {
    section("SearchDataController");
    const SearchDataController search(clients_.search);
    const std::string word = firstWord(topTrack_.name);
    call("searchTracks(\"" + word + "\", 5)", "GET /search?q=" + word + "&limit=5");
    show(search.searchTracks(word, 5));
    app_.catalog().failNext(1);
    call("searchTracks(\"" + word + "\", 5), again", "the service fails once with status 500 (an injected fault)");
    expectError(show(search.searchTracks(word, 5)));
  }

  void usersTracksSection() {
    section("UsersTracksDataController");
    call("getUserTopChartTracks(user, 5, lastMonth)", "GET /me/charts/tracks?range=month&limit=5");
    show(users_.getUserTopChartTracks(userId(), 5, QAPIChartsService::Range::lastMonth));

    call("getUserFavoriteTracks(user, 0, 4, nextPage)", "GET /me/favorites per page asked for: two pages, then stop");
    rx::PublishSubject<Unit> nextPage;
    int pages = 0;
    show(users_.getUserFavoriteTracks(userId(), 0, 4, nextPage.asObservable()),
         [&] { nextPage.onNext(unit); },
         [&](const std::vector<Track>&) {
           if (++pages == 2) {
             note("the app has seen enough and stops paging");
             nextPage.onCompleted();
           } else {
             note("the app asks for the next page");
             nextPage.onNext(unit);
           }
         });

    call("getUserRecentTracks(user, 3)", "GET /me/history?limit=3");
    show(users_.getUserRecentTracks(userId(), 3));

    call("getUserRecentTracksUpdated()",
         "GET /me/events?topics=history.updated and ...refreshed: held open, events as they come");
    users_.getUserRecentTracksUpdated()
        .subscribe(
            [this](const UserTracksUpdate& update) {
              print(out_, update);
              ++updates_;
              if (updateArrived_ && updates_ >= awaitedUpdates_) std::exchange(updateArrived_, nullptr)();
            },
            [this](const Error& error) { printError(out_, error); })
        .disposed(bag_);
    // Both streams (updated, refreshed) are open once the service has their requests.
    awaitCondition([this] { return requestsTo("/v1/me/events") >= 2; });
    note("the service reports that user \"friend-42\" played something");
    app_.catalog().pushForeignEvent("history.updated", "friend-42");
    awaitUpdates(updates_ + 1);
  }

  void personalizedSection() {
    section("PersonalizedDataController");
    const PersonalizedDataController personalized(clients_.personalized);
    call("getNewReleaseRecommendedTracks(0, 20, nextPage)",
         "GET /me/new-releases per page; the app asks for every page until the last");
    rx::PublishSubject<Unit> nextPage;
    show(personalized.getNewReleaseRecommendedTracks(0, 20, nextPage.asObservable()), [&] { nextPage.onNext(unit); },
         [&](const std::vector<Track>&) { nextPage.onNext(unit); }, /*brief=*/true);
  }

  void genreSection() {
    section("GenreDataController");
    const GenreDataController genres(clients_.genres);
    call("getTopGenresObservable(\"en\")", "GET /genres?lang=en");
    const auto list = show(genres.getTopGenresObservable("en"));
    if (!list.value || list.value->empty()) return fail("the catalog has no genres");
    const std::string id = list.value->front().id;
    call("getGenreTopTracksObservable(\"" + id + "\", 3)", "GET /genres/" + id + "/tracks?limit=3");
    show(genres.getGenreTopTracksObservable(id, 3));
  }

  void playlistsSection() {
    section("PlaylistsDataController");
    const PlaylistsDataController playlists(clients_.playlists);
    const std::string id = std::string(kPlaylist);
    call("get(\"" + id + "\")", "GET /playlists/" + id);
    show(playlists.get(id));
    call("getPlaylistTracks(\"" + id + "\", 3, 0)", "GET /playlists/" + id + "/tracks?offset=0&limit=3");
    const auto before = show(playlists.getPlaylistTracks(id, 3, 0));
    call("addTracks(\"" + id + "\", [\"" + topTrack_.id + "\"])", "POST /playlists/" + id + "/tracks");
    show(playlists.addTracks(id, {topTrack_.id}));
    if (before.value) {
      const int last = static_cast<int>(before.value->metadata.totalCount);
      call("getPlaylistTracks(\"" + id + "\", 3, " + std::to_string(last) + ")",
           "the playlist has one track more: the one just added is last");
      show(playlists.getPlaylistTracks(id, 3, last));
    }
    call("getImages(\"" + id + "\")", "GET /playlists/" + id + "/images");
    show(playlists.getImages(id));
  }

  void giphySection() {
    section("GiphyDataController");
    // Renditions stay on the local service's host (and port).
    const GiphyDataController giphy(giphyService_, platform::systemLocale(), "127.0.0.1");
    call("getTrending()", "GET /giphy/v1/gifs/trending?api_key=...&limit=25&rating=g");
    const auto trending = show(giphy.getTrending());
    if (!trending.value || trending.value->empty()) return fail("Giphy has no trending pictures");
    // The last one: the playlist's Giphy image is one of the first.
    const std::string picture = trending.value->back().id;

    const PlaylistsDataController playlists(clients_.playlists);
    const std::string playlist = std::string(kPlaylist);
    call("updatePlaylistGif(\"" + playlist + "\", \"" + picture + "\")", "PUT /playlists/" + playlist + "/giphy");
    show(playlists.updatePlaylistGif(playlist, picture));
    call("get(\"" + playlist + "\")", "the playlist's Giphy image is the new one");
    show(playlists.get(playlist));

    call("getGiphySillImageUrl(\"" + picture + "\", 300)",
         "GET /giphy/v1/gifs/" + picture + ", then the still frame's bytes from the service");
    std::optional<Url> still;
    std::optional<Error> failure;
    app_.session().await(
        [&](std::function<void()> done) {
          giphy.getGiphySillImageUrl(picture, 300).done(
              [&, done](const Url& url) {
                still = url;
                done();
              },
              [&, done](const Error& error) {
                failure = error;
                done();
              });
        },
        kPatience);
    if (failure) printError(out_, *failure);
    if (!still) return fail("no still frame of the trending picture");
    out_ << "  resolved " << still->string() << "\n";
    fetchImage(still->string());
  }

  void expiredTokenSection() {
    section("An expired access token");
    const std::size_t refreshesBefore = tokenRequests();
    app_.catalog().expireNext(1);
    call("getTopTracks(1)",
         "the service refuses the token once (401): the client asks the sign-in client for a new\n"
         "  one (force_refresh) and sends the request again");
    show(tracks_->getTopTracks(1));
    out_ << "  -- token endpoint requests during the call: " << tokenRequests() - refreshesBefore << "\n";
  }

  void previewSection() {
    if (topTrack_.previewURL.empty()) return fail("the top track has no preview");
    // Fetching the preview from its start is a play: the service pushes the user's new history,
    // which may arrive while the clip plays.
    const std::size_t before = updates_;
    if (!showAudio(out_, err_, app_.session().host(), topTrack_,
                   app_.audioDevice())) {
      ok_ = false;
      return;
    }
    awaitUpdates(before + 1);
  }

  // ---- helpers ----

  template <class T>
  struct Seen {
    std::optional<T> value;  // the last element
    std::optional<Error> error;
  };

  // Subscribes, runs `afterSubscribe`, then runs the loop until the stream ends, printing every
  // event (only the size of each list when `brief`); `each` runs after each element is printed.
  template <class T>
  Seen<T> show(const rx::Observable<T>& source, const std::function<void()>& afterSubscribe = nullptr,
               const std::type_identity_t<std::function<void(const T&)>>& each = nullptr, bool brief = false) {
    Seen<T> seen;
    rx::Disposable subscription;
    const auto stop = app_.session().await(
        [&](std::function<void()> done) {
          subscription = source.subscribe(
              [&](const T& value) {
                if constexpr (std::is_same_v<T, std::vector<Track>>) {
                  if (brief) {
                    out_ << "  page of " << value.size() << " tracks\n";
                  } else {
                    print(out_, value);
                  }
                } else {
                  print(out_, value);
                }
                seen.value = value;
                if (each) each(value);
              },
              [&, done](const Error& error) {
                printError(out_, error);
                seen.error = error;
                done();
              },
              [&, done] {
                out_ << "  completed\n";
                done();
              });
          if (afterSubscribe) afterSubscribe();
        },
        kPatience);
    subscription.dispose();
    if (stop != SignInSession::Stop::none) fail("no answer within 10 s");
    return seen;
  }

  template <class T>
  void expectError(const Seen<T>& seen) {
    if (!seen.error) fail("the call should have failed");
  }

  // Runs the loop until the update stream has delivered `count` updates in all.
  void awaitUpdates(std::size_t count) {
    if (updates_ >= count) return;
    const auto stop = app_.session().await(
        [&](std::function<void()> done) {
          awaitedUpdates_ = count;
          updateArrived_ = std::move(done);
        },
        kPatience);
    updateArrived_ = nullptr;
    if (stop != SignInSession::Stop::none) fail("no update within 10 s");
  }

  // Runs the loop until `condition` holds, looking every 5 ms.
  void awaitCondition(const std::function<bool()>& condition) {
    const auto& loop = app_.session().host().runLoop;
    const auto stop = app_.session().await(
        [&](std::function<void()> done) {
          auto check = std::make_shared<std::function<void()>>();
          *check = [&condition, done, loop, weak = std::weak_ptr<std::function<void()>>(check)] {
            if (condition()) return done();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            if (const auto again = weak.lock()) loop->post(*again);
          };
          checks_ = check;
          (*check)();
        },
        kPatience);
    checks_.reset();
    if (stop != SignInSession::Stop::none) fail("the service did not see the request within 10 s");
  }

  std::size_t requestsTo(std::string_view path) const {
    std::size_t count = 0;
    for (const auto& request : app_.catalog().requests()) count += request.path == path;
    return count;
  }

  // Fetches `url` with the app's HTTP client and tells what came back.
  void fetchImage(const std::string& url) {
    std::optional<platform::HttpResponse> head;
    std::string body;
    std::optional<Error> failure;
    std::unique_ptr<platform::HttpConnection> connection;
    app_.session().await(
        [&](std::function<void()> done) {
          platform::HttpHandlers handlers;
          handlers.onResponse = [&](const platform::HttpResponse& response) { head = response; };
          handlers.onData = [&](std::string_view data) { body.append(data); };
          handlers.onFinish = done;
          handlers.onFailure = [&, done](const Error& error) {
            failure = error;
            done();
          };
          connection = app_.session().host().platform.httpClient->start(platform::HttpRequest{url}, handlers);
        },
        kPatience);
    if (failure) return printError(out_, *failure);
    if (!head) return fail("the still frame did not arrive");
    const auto type = platform::findHttpHeader(head->headers, "Content-Type").value_or("?");
    out_ << "  status " << head->statusCode << ", " << type << ", " << body.size() << " bytes";
    // A GIF's logical screen: width and height, 16-bit little-endian, after the 6-byte signature.
    if (body.size() >= 10 && body.starts_with("GIF")) {
      const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(body[i]); };
      out_ << ", a GIF of " << (byte(6) | byte(7) << 8) << "x" << (byte(8) | byte(9) << 8);
    }
    out_ << "\n";
  }

  std::size_t tokenRequests() const {
    std::size_t count = 0;
    for (const auto& request : app_.signInServer().requests()) count += request.path == "/auth/o2/token";
    return count;
  }

  static std::string firstWord(const std::string& text) { return text.substr(0, text.find(' ')); }
  std::string userId() const { return app_.userId(); }

  void section(std::string_view title) { out_ << "\n== " << title << " ==\n"; }
  void call(const std::string& operation, const std::string& service) {
    out_ << "\n" << operation << "\n  service " << service << "\n";
  }
  void note(std::string_view text) { out_ << "  -- " << text << "\n"; }
  void fail(std::string_view why) {
    err_ << "tunevo demo: " << why << "\n";
    ok_ = false;
  }

  std::ostream& out_;
  std::ostream& err_;
  DemoApp& app_;
  services::HttpServices clients_;
  std::shared_ptr<services::HttpGiphyService> giphyService_;
  std::shared_ptr<TracksDataController> tracks_;
  UsersTracksDataController users_;
  Track topTrack_;
  std::function<void()> updateArrived_;
  std::size_t updates_ = 0;
  std::size_t awaitedUpdates_ = 0;
  std::shared_ptr<std::function<void()>> checks_;
  bool ok_ = true;
  // Declared last so that it is destroyed first: no callback runs once the rest is gone.
  rx::DisposeBag bag_;
};

bool runWholeApp(std::ostream& out, std::ostream& err) {
  const auto app = DemoApp::start(err);
  if (!app) return false;
  out << "tunevo demo: the whole app over loopback HTTP.\n"
      << "A local sign-in server (" << app->signInServer().baseUrl() << ") with the test account " << app->email()
      << ",\nand a local catalog service (" << app->catalog().apiBaseUrl()
      << ") that accepts its tokens; the app's API key is\nissued for this run; tokens are kept in a temporary "
         "SQLite store.\n";
  if (!showSignIn(out, err, *app)) return false;

  const platform::Platform& system = app->session().host().platform;
  auto clients = services::makeHttpServices(services::ServiceConfiguration{
      app->catalog().apiBaseUrl(), system.httpClient, system.mainThread, app->session().accessTokens()});
  auto giphy = services::HttpGiphyService::make(services::GiphyConfiguration{
      app->catalog().giphyBaseUrl(), app->giphyApiKey(), system.httpClient, system.mainThread});
  if (!clients || !giphy) {
    err << "tunevo demo: the service clients cannot be made\n";
    return false;
  }
  bool ok = Demo(out, err, *app, std::move(clients).value(), std::move(giphy).value()).run();
  ok = showSignOut(out, err, *app) && ok;
  return ok;
}

}  // namespace

int runDemo(int argc, char** argv) {
  if (argc == 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h")) {
    std::cout << kUsage;
    return kExitOk;
  }
  if (argc > 1) {
    std::cerr << "tunevo demo: unexpected argument '" << argv[1] << "'\n" << kUsage;
    return kExitUsage;
  }
  return runWholeApp(std::cout, std::cerr) ? kExitOk : kExitUnavailable;
}

}  // namespace tunevo
