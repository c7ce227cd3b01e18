// The local catalog service over real TLS, with access tokens from a real sign-in through the
// sign-in server whose TLS identity it shares.

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

#include "applogic/testing/manual_clock.h"
#include "emulator/catalog_data.h"
#include "emulator/catalog_server.h"
#include "emulator/signin_flow.h"

namespace applogic::emulator {
namespace {

using boost::json::value;

constexpr auto kGuard = std::chrono::seconds(30);  // against a hang only

value jsonOf(const httplib::Result& result) {
  boost::system::error_code error;
  value json = result ? boost::json::parse(result->body, error) : value();
  return error ? value() : json;
}

// Waits (polling, bounded by kGuard) until `condition` holds.
template <class Condition>
bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kGuard;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// An open GET /v1/me/events, collecting what arrives on its own thread until destroyed.
class EventStream {
 public:
  EventStream(std::uint16_t port, const std::filesystem::path& ca, const std::string& token, const std::string& topics,
              const std::string& lastEventId = "")
      : client_(loopbackClient(port, ca)) {
    httplib::Headers headers{{"Authorization", "Bearer " + token}};
    if (!lastEventId.empty()) headers.emplace("Last-Event-ID", lastEventId);
    thread_ = std::thread([this, headers, topics] {
      const auto result = client_->Get("/v1/me/events?topics=" + topics, headers, [this](const char* data, size_t size) {
        std::lock_guard lock(mutex_);
        text_.append(data, size);
        arrived_.notify_all();
        return !closing_;
      });
      std::lock_guard lock(mutex_);
      status_ = result ? result->status : -1;
      ended_ = true;
      arrived_.notify_all();
    });
  }
  // Stops reading and closes the connection.
  ~EventStream() {
    {
      std::lock_guard lock(mutex_);
      closing_ = true;
    }
    thread_.join();
  }
  // Waits until the text holds `part` or the stream ends; returns the text.
  std::string waitFor(const std::string& part) {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, kGuard, [&] { return ended_ || text_.find(part) != std::string::npos; });
    return text_;
  }
  int endedWithStatus() {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, kGuard, [&] { return ended_; });
    return status_;
  }

 private:
  std::unique_ptr<httplib::SSLClient> client_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::string text_;
  bool closing_ = false;
  bool ended_ = false;
  int status_ = 0;
  std::thread thread_;
};

class CatalogServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SignInServerOptions options;
    options.clock = clock_;
    ASSERT_TRUE(signIn_ = startSignInServer(std::move(options)));
    catalog_ = startCatalog();
    ASSERT_TRUE(catalog_);
    token_ = signInForAccessToken(*loopbackClient(signIn_->port(), signIn_->caPath()));
    ASSERT_FALSE(token_.empty());
    client_ = loopbackClient(catalog_->port(), signIn_->caPath());
  }

  std::unique_ptr<CatalogServer> startCatalog(std::uint64_t seed = 1) {
    CatalogServerOptions options;
    options.tls = signIn_->sharedTls();
    options.verifyToken = localTokenVerifier(*signIn_);
    options.seed = seed;
    options.keepAliveInterval = std::chrono::milliseconds(100);
    auto started = CatalogServer::start(std::move(options));
    EXPECT_TRUE(started.ok()) << started.error();
    return started.ok() ? std::move(started).value() : nullptr;
  }

  httplib::Headers auth() const { return {{"Authorization", "Bearer " + token_}}; }
  httplib::Result get(const std::string& path) { return client_->Get("/v1" + path, auth()); }
  httplib::Result send(const std::string& method, const std::string& path, const std::string& body = "{}") {
    if (method == "POST") return client_->Post("/v1" + path, auth(), body, "application/json");
    if (method == "PUT") return client_->Put("/v1" + path, auth(), body, "application/json");
    return get(path);
  }
  value json(const std::string& path) { return jsonOf(get(path)); }
  std::vector<std::string> playlistTrackIds(const std::string& id) {
    std::vector<std::string> ids;
    const value answer = json("/playlists/" + id + "/tracks?limit=500");
    if (!answer.is_object()) ADD_FAILURE() << "no answer for " << id;
    for (const value& track : answer.is_object() ? answer.at("tracks").as_array() : boost::json::array()) {
      ids.emplace_back(track.at("id").as_string());
    }
    return ids;
  }
  bool control(const std::string& action) {
    const auto result = client_->Post("/__control/catalog/" + action);
    return result && result->status == 204;
  }

  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>();
  std::unique_ptr<SignInServer> signIn_;
  std::unique_ptr<CatalogServer> catalog_;
  std::unique_ptr<httplib::SSLClient> client_;
  std::string token_;
};

// Every reading operation is read through its controller in tests/services; here, the answers
// the clients do not read: refusals, writes without a body, and one record in full.
TEST_F(CatalogServerTest, EveryEndpointAnswersWithItsShape) {
  struct Row {
    std::string method, path, body;
    int status;
    std::string member;  // a member of the answer; "" for an empty one
  };
  const Row rows[] = {
      {"GET", "/tracks/tra.1042", "", 200, "tracks"},
      {"GET", "/tracks/tra.999999", "", 404, "error"},
      {"GET", "/me/charts/tracks?range=week", "", 400, "error"},
      {"POST", "/me/history", R"({"trackId": "tra.1001"})", 204, ""},
      {"POST", "/me/history", R"({"trackId": "tra.1"})", 400, "error"},
      {"POST", "/me/charts/refresh", "", 204, ""},
      {"POST", "/me/history/refresh", "", 204, ""},
      {"GET", "/genres/g.99/tracks", "", 404, "error"},
      {"GET", "/playlists/mp.9", "", 404, "error"},
      {"GET", "/playlists/mp.1001/images?width=300&height=300", "", 200, "images"},
      {"GET", "/playlists/mp.1001/images?width=300", "", 400, "error"},
      {"POST", "/me/recommendations/rejections", R"({"trackIds": ["tra.1003"]})", 200, "rejected"},
      {"POST", "/me/recommendations/rejections", R"({"trackIds": "tra.1003"})", 400, "error"},
      {"GET", "/nothing", "", 404, "error"},
  };
  for (const Row& row : rows) {
    const auto result = send(row.method, row.path, row.body);
    ASSERT_TRUE(result) << row.path;
    EXPECT_EQ(result->status, row.status) << row.method << " " << row.path << ": " << result->body;
    if (row.member.empty()) {
      EXPECT_EQ(result->body, "") << row.path;
    } else {
      const value answer = jsonOf(result);
      EXPECT_TRUE(answer.is_object() && answer.as_object().contains(row.member)) << row.path << ": " << result->body;
    }
  }
  // One record in full, and an error's body.
  const value track = json("/tracks/tra.1042").at("tracks").at(0);
  std::string keys;
  for (const auto& member : track.as_object()) keys += std::string(member.key()) + " ";
  EXPECT_EQ(keys, "type id name playbackSeconds explicit artistId artistName albumId albumName genreId isStreamable previewURL ");
  EXPECT_EQ(track.at("previewURL").as_string(), catalog_->baseUrl() + "/previews/tra.1042.wav");
  EXPECT_EQ(boost::json::serialize(json("/tracks/tra.999999")), R"({"error":{"status":404,"message":"No track tra.999999."}})");
  const auto image = client_->Get("/v1/images/img.1001.0?width=3&height=2", auth());
  ASSERT_TRUE(image);
  EXPECT_EQ(image->body.substr(1, 3), "PNG");
}

TEST_F(CatalogServerTest, RefusesRequestsWithoutAValidToken) {
  const std::pair<std::string, std::string> headers[] = {
      {"", ""}, {"Authorization", "Basic " + token_}, {"Authorization", "Bearer not-a-token"}};
  for (const auto& [name, header] : headers) {
    httplib::Headers sent;
    if (!name.empty()) sent.emplace(name, header);
    const auto result = client_->Get("/v1/genres", sent);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, 401) << header;
    EXPECT_EQ(result->get_header_value("WWW-Authenticate"), "Bearer error=\"invalid_token\"");
  }
}

TEST_F(CatalogServerTest, PagesEndWhereTheTotalIs) {
  // 45 new releases: the last page ends exactly at the total.
  const value last = json("/me/new-releases?offset=40&limit=5");
  EXPECT_EQ(boost::json::serialize(last.at("meta")),
            R"({"query":{"limit":5,"offset":40},"returnedCount":5,"totalCount":45})");
  EXPECT_EQ(json("/me/favorites?filter=albums").at("meta").at("totalCount"), 0);
  for (const char* query : {"limit=0", "limit=501", "limit=-1", "limit=5x", "offset=-1"}) {
    EXPECT_EQ(get(std::string("/me/new-releases?") + query)->status, 400) << query;
  }
}

// The writes themselves are checked through the service clients (tests/services); here, that a
// refused write changes nothing and that an uploaded image comes first with its own address.
TEST_F(CatalogServerTest, RefusedPlaylistWritesChangeNothing) {
  const std::vector<std::string> before = playlistTrackIds("mp.1003");
  for (const char* method : {"POST", "PUT"}) {
    EXPECT_EQ(send(method, "/playlists/mp.1003/tracks", R"({"trackIds": ["tra.1002", "tra.0"]})")->status, 400);
    EXPECT_EQ(send(method, "/playlists/mp.1003/tracks", "not json")->status, 400);
    EXPECT_EQ(playlistTrackIds("mp.1003"), before) << method;
  }
  EXPECT_EQ(client_->Put("/v1/playlists/mp.1001/image", auth(), "\x89PNG", "image/png")->status, 204);
  const value first = json("/playlists/mp.1001/images?width=10&height=20").at("images").at(0);
  EXPECT_EQ(boost::json::serialize(first),
            R"({"imageType":"displayImage","id":"img.1001.1","version":1,"isDefault":false,"url":")" +
                catalog_->baseUrl() + R"(/v1/images/img.1001.1?width=10&height=20"})");
}

TEST_F(CatalogServerTest, PreviewsAnswerRanges) {
  const auto whole = client_->Get("/previews/tra.1001.wav");
  ASSERT_TRUE(whole);
  ASSERT_EQ(whole->status, 200);
  ASSERT_EQ(whole->body.size(), 48044u);
  EXPECT_EQ(whole->body.substr(0, 4), "RIFF");
  struct Row {
    std::string range;
    int status;
    std::string contentRange;
  };
  const Row rows[] = {
      {"bytes=4-7", 206, "bytes 4-7/48044"},         {"bytes=48043-", 206, "bytes 48043-48043/48044"},
      {"bytes=0-99999", 206, "bytes 0-48043/48044"}, {"bytes=-100", 206, "bytes 47944-48043/48044"},
      {"bytes=48044-", 416, "bytes */48044"},        {"bytes=0-1,4-5", 416, "bytes */48044"},
  };
  for (const Row& row : rows) {
    const auto part = client_->Get("/previews/tra.1001.wav", {{"Range", row.range}});
    ASSERT_TRUE(part) << row.range;
    EXPECT_EQ(part->status, row.status) << row.range;
    EXPECT_EQ(part->get_header_value("Content-Range"), row.contentRange) << row.range;
    if (row.status == 206) {
      const std::size_t first = std::stoul(row.contentRange.substr(6));
      EXPECT_EQ(part->body, whole->body.substr(first, part->body.size())) << row.range;
    }
  }
  EXPECT_EQ(client_->Get("/previews/tra.1001.wav")->body, whole->body);
  EXPECT_EQ(client_->Get("/previews/tra.0.wav")->status, 404);
}

TEST_F(CatalogServerTest, PlaysReachOpenEventStreamsAndReconnectsReplayMissedEvents) {
  EventStream history(catalog_->port(), catalog_->caPath(), token_, "history.updated");
  history.waitFor(": keep-alive");  // connected
  // A preview from byte 0 is a play; one from the middle is not.
  client_->Get("/previews/tra.1005.wav", {{"Range", "bytes=100-"}});
  client_->Get("/previews/tra.1007.wav", {{"Range", "bytes=0-99"}});
  // The end of an event's answer (a keep-alive comment also ends with a blank line).
  const std::string text = history.waitFor("]}}\n\n");
  const std::size_t start = text.find("id: ");
  ASSERT_NE(start, std::string::npos) << text;
  const std::string event = text.substr(start, text.find("\n\n", start) - start);
  EXPECT_NE(event.find("\nevent: history.updated\ndata: {\"user\":null,\"answer\":{\"tracks\":[{\"type\":\"track\",\"id\":\"tra.1007\""),
            std::string::npos)
      << event;
  EXPECT_EQ(json("/me/history?limit=1").at("tracks").at(0).at("id"), "tra.1007");
  const std::string id = event.substr(4, event.find('\n') - 4);

  // Missed while away: a refresh and a friend's change, replayed after the last seen id.
  send("POST", "/me/charts/refresh");
  ASSERT_TRUE(catalog_->pushForeignEvent("charts.updated", "friend.1"));
  EXPECT_FALSE(catalog_->pushForeignEvent("charts.refreshed", "friend.1"));
  EventStream charts(catalog_->port(), catalog_->caPath(), token_, "charts.refreshed,charts.updated", id);
  const std::string replayed = charts.waitFor("\"user\":\"friend.1\"");
  // In id order: the play's charts.updated, the refresh, the friend's change.
  EXPECT_LT(replayed.find("event: charts.updated"), replayed.find("event: charts.refreshed")) << replayed;
  EXPECT_NE(replayed.find("event: charts.refreshed"), std::string::npos);
  EXPECT_NE(replayed.find("\"user\":\"friend.1\""), std::string::npos);
  EXPECT_EQ(replayed.find("history.updated"), std::string::npos);

  EventStream unknown(catalog_->port(), catalog_->caPath(), token_, "charts.updated,weather");
  EXPECT_EQ(unknown.endedWithStatus(), 400);
}

TEST_F(CatalogServerTest, KeepsTheLast256EventsForReconnects) {
  for (int i = 1; i <= 257; ++i) ASSERT_TRUE(catalog_->pushForeignEvent("charts.updated", "friend." + std::to_string(i)));
  EventStream stream(catalog_->port(), catalog_->caPath(), token_, "charts.updated", "0");
  const std::string text = stream.waitFor("\"user\":\"friend.257\"");
  EXPECT_EQ(text.substr(0, 7), "id: 2\ne") << text.substr(0, 100);
}

TEST_F(CatalogServerTest, FaultKnobs) {
  EXPECT_TRUE(control("fail?n=2"));
  EXPECT_EQ(get("/genres")->status, 500);
  EXPECT_EQ(jsonOf(get("/genres")).at("error").at("status"), 500);
  EXPECT_EQ(get("/genres")->status, 200);

  EXPECT_TRUE(control("expire?n=2"));
  EXPECT_EQ(client_->Get("/previews/tra.1001.wav")->status, 200);  // carries no credentials: not taken
  EXPECT_EQ(client_->Get("/giphy/v1/gifs/gph0001?api_key=tunevo-giphy-key")->status, 401);
  const auto expired = get("/genres");
  EXPECT_EQ(expired->status, 401);
  EXPECT_EQ(expired->get_header_value("WWW-Authenticate"), "Bearer error=\"invalid_token\"");
  EXPECT_EQ(get("/genres")->status, 200);

  EXPECT_TRUE(control("drop"));
  EXPECT_FALSE(get("/genres"));
  EXPECT_EQ(get("/genres")->status, 200);

  EXPECT_TRUE(control("latency?ms=1"));
  EXPECT_EQ(get("/genres")->status, 200);
  EXPECT_FALSE(control("latency"));
  EXPECT_FALSE(control("event?topic=charts.refreshed&user=friend.2"));
  EXPECT_TRUE(control("event?topic=history.updated&user=friend.2"));
  EXPECT_EQ(client_->Get("/__control/catalog/abandoned")->body, R"({"abandoned":0})");
  EXPECT_EQ(jsonOf(client_->Get("/__control/catalog/requests")).as_array().back().at("path"), "/v1/genres");
  EXPECT_FALSE(control("unknown"));
  EXPECT_TRUE(control("reset"));
  EXPECT_TRUE(catalog_->requests().empty());
}

// Stopping ends the streams and the delayed answers still open (a client that goes away is seen
// by the services' tests).
TEST_F(CatalogServerTest, StoppingEndsOpenStreamsAndDelayedAnswers) {
  EventStream stream(catalog_->port(), catalog_->caPath(), token_, "charts.updated");
  stream.waitFor(": keep-alive");
  catalog_->setLatency(std::chrono::hours(1));
  // A delayed request is answered at once when the server stops, as the sign-in server does.
  std::thread delayed([&] {
    const auto result = client_->Get("/v1/genres", auth());
    EXPECT_TRUE(result && result->status == 200);
  });
  EXPECT_TRUE(eventually([&] { return catalog_->requests().size() == 2; }));
  catalog_.reset();
  EXPECT_NE(stream.endedWithStatus(), 0);
  delayed.join();
}

TEST_F(CatalogServerTest, TheSameSeedGivesTheSameAnswers) {
  const auto other = startCatalog();
  ASSERT_TRUE(other);
  auto otherClient = loopbackClient(other->port(), signIn_->caPath());
  for (const std::string path : {"/tracks/top?limit=500", "/me/history?limit=50", "/playlists/mp.1001/images"}) {
    const std::string mine = get(path)->body;
    std::string theirs = otherClient->Get("/v1" + path, auth())->body;
    // Only the port differs.
    for (std::size_t at = 0; (at = theirs.find(other->baseUrl(), at)) != std::string::npos;) {
      theirs.replace(at, other->baseUrl().size(), catalog_->baseUrl());
    }
    EXPECT_EQ(mine, theirs) << path;
  }
  EXPECT_NE(CatalogData(2).tracks()[0].name + CatalogData(2).tracks()[1].name,
            CatalogData(1).tracks()[0].name + CatalogData(1).tracks()[1].name);
}

// What a catalog in another process does: ask the sign-in server's control path.
TEST_F(CatalogServerTest, ChecksTokensThroughAnotherProcessesSignInServer) {
  const TokenVerifier remote = remoteTokenVerifier(signIn_->baseUrl(), signIn_->caPath());
  EXPECT_EQ(remote(token_), "tunevo.account.TESTLISTENER1");
  EXPECT_EQ(remote("not-a-token"), std::nullopt);
  EXPECT_EQ(remoteTokenVerifier(signIn_->baseUrl(), "/nonexistent/ca.pem")(token_), std::nullopt);
  clock_->advance(std::chrono::hours(1));
  EXPECT_EQ(remote(token_), std::nullopt);
}

TEST_F(CatalogServerTest, ServesGiphy) {
  const std::string key = "api_key=tunevo-giphy-key";
  EXPECT_EQ(client_->Get("/giphy/v1/gifs/trending?limit=2")->status, 401);
  EXPECT_EQ(jsonOf(client_->Get("/giphy/v1/gifs/trending?api_key=x")).at("meta").at("msg"), "Unauthorized");
  const value trending = jsonOf(client_->Get("/giphy/v1/gifs/trending?limit=2&rating=g&" + key));
  EXPECT_EQ(trending.at("data").as_array().size(), 2u);
  const value search = jsonOf(client_->Get("/giphy/v1/gifs/search?q=gif&limit=5&offset=58&rating=g&lang=en&" + key));
  EXPECT_EQ(boost::json::serialize(search.at("pagination")), R"({"total_count":60,"count":2,"offset":58})");
  const value picture = jsonOf(client_->Get("/giphy/v1/gifs/gph0004?" + key)).at("data");
  EXPECT_EQ(client_->Get("/giphy/v1/gifs/gph9999?" + key)->status, 404);
  const auto& still = picture.at("images").at("fixed_width_still");
  const std::string url(still.at("url").as_string());
  const auto gif = client_->Get(url.substr(catalog_->baseUrl().size()));
  ASSERT_TRUE(gif);
  EXPECT_EQ(gif->body.substr(0, 6), "GIF89a");
  EXPECT_EQ(std::to_string(static_cast<unsigned char>(gif->body[6]) + 256 * static_cast<unsigned char>(gif->body[7])),
            still.at("width").as_string());
}

}  // namespace
}  // namespace applogic::emulator
