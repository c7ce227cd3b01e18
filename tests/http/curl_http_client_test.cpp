#include "applogic/platform/curl_http_client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "applogic/platform/run_loop.h"
#include "http/loopback.h"

namespace applogic {
namespace {

using platform::HttpErrorCode;
using platform::HttpRequest;

const std::string kHelloBody = [] {
  std::string body;
  // Large enough to arrive in several pieces.
  for (int i = 0; body.size() < 200'000; ++i) body += "line " + std::to_string(i) + "\n";
  return body;
}();

// A type the server never compresses by itself (it would buffer a stream, and spend long on
// brotli), so bodies arrive as written.
constexpr const char* kUncompressed = "application/octet-stream";

// What one request reported, in order; consecutive data pieces count as one "data" event.
struct Outcome {
  std::vector<std::string> events;
  std::optional<platform::HttpResponse> response;
  std::string body;
  std::optional<Error> error;
  bool allOnMainThread = true;
};

platform::HttpHandlers recordInto(Outcome& outcome, platform::RunLoop& loop, bool quitOnData = false) {
  auto note = [&outcome, &loop](const std::string& event) {
    if (!loop.isMainThread()) outcome.allOnMainThread = false;
    if (event != "data" || outcome.events.empty() || outcome.events.back() != "data") outcome.events.push_back(event);
  };
  platform::HttpHandlers handlers;
  handlers.onResponse = [&outcome, note](const platform::HttpResponse& response) {
    note("response");
    outcome.response = response;
  };
  handlers.onData = [&outcome, &loop, note, quitOnData](std::string_view data) {
    note("data");
    outcome.body += data;
    if (quitOnData) loop.quit();
  };
  handlers.onFailure = [&outcome, &loop, note](const Error& error) {
    note("failure");
    outcome.error = error;
    loop.quit();
  };
  handlers.onFinish = [&loop, note] {
    note("finish");
    loop.quit();
  };
  return handlers;
}

std::string joinedNames(std::vector<platform::HttpCookie> cookies) {
  std::vector<std::string> names;
  for (const auto& cookie : cookies) names.push_back(cookie.name);
  std::sort(names.begin(), names.end());
  std::string joined;
  for (const auto& name : names) joined += (joined.empty() ? "" : ",") + name;
  return joined;
}

// A stream that never ends by itself: a first piece, then one byte at a time until the client
// goes away, which it reports. And a route that answers nothing until released.
class HoldingRoute {
 public:
  void install(httplib::Server& server) {
    server.Get("/stall", [this](const httplib::Request&, httplib::Response& response) {
      std::unique_lock lock(mutex_);
      changed_.wait_for(lock, std::chrono::seconds(30), [this] { return released_.load(); });
      response.set_content("late", "text/plain");
    });
    server.Get("/hold", [this](const httplib::Request&, httplib::Response& response) {
      response.set_chunked_content_provider(kUncompressed, [this](std::size_t offset, httplib::DataSink& sink) {
        if (offset == 0) return sink.write("first", 5);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (released_.load()) {
          sink.done();
          return true;
        }
        if (!sink.write(".", 1)) {
          std::lock_guard lock(mutex_);
          clientGone_ = true;
          changed_.notify_all();
          return false;
        }
        return true;
      });
    });
  }
  // Waits (at most 30 s, so that a stuck client fails the test) until a client went away.
  // Each client that went away is reported once.
  bool waitUntilClientGone() {
    std::unique_lock lock(mutex_);
    const bool gone = changed_.wait_for(lock, std::chrono::seconds(30), [this] { return clientGone_; });
    clientGone_ = false;
    return gone;
  }
  void release() {
    std::lock_guard lock(mutex_);
    released_.store(true);
    changed_.notify_all();
  }

 private:
  std::atomic<bool> released_{false};
  std::mutex mutex_;
  std::condition_variable changed_;
  bool clientGone_ = false;
};

class CurlHttpClientTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { certificates = new test::TestCertificates(); }
  static void TearDownTestSuite() {
    delete certificates;
    certificates = nullptr;
  }

  void SetUp() override {
    http.routes().set_logger([this](const httplib::Request&, const httplib::Response&) { ++plainRequests; });
    for (auto* server : {&http, &https}) {
      installRoutes(server->routes());
      server->start();
    }
  }
  void TearDown() override { holding.release(); }

  void installRoutes(httplib::Server& server) {
    server.Get("/hello", [](const httplib::Request&, httplib::Response& response) {
      response.set_header("X-Test", "yes");
      response.set_content(kHelloBody, kUncompressed);
    });
    server.Get("/fail", [](const httplib::Request&, httplib::Response& response) {
      response.status = 500;
      response.set_content(R"({"error":"server_error"})", "application/json");
    });
    server.Get("/redirect", [](const httplib::Request&, httplib::Response& response) {
      response.set_redirect("/hello");
    });
    const auto echo = [](const httplib::Request& request, httplib::Response& response) {
      response.set_content(request.method + "|" + request.get_header_value("Content-Type") + "|" +
                               request.get_header_value("X-Custom") + "|" + request.body,
                           "text/plain");
    };
    server.Get("/echo", echo);
    server.Post("/echo", echo);
    server.Put("/echo", echo);
    server.Delete("/echo", echo);
    server.Get("/one", [](const httplib::Request&, httplib::Response& response) { response.set_content("x", kUncompressed); });
    // Headers and the first bytes of a longer body, then the connection closes.
    server.Get("/cut", [](const httplib::Request&, httplib::Response& response) {
      response.set_content_provider(1000, kUncompressed, [](std::size_t offset, std::size_t, httplib::DataSink& sink) {
        return offset == 0 && sink.write("partial", 7);
      });
    });
    // A 307 or 308 to /echo: "plain" on the plain server, "same" on this one.
    server.Post(R"(/move/(307|308)/(plain|same))", [this](const httplib::Request& request, httplib::Response& response) {
      response.set_redirect(request.matches[2] == "plain" ? http.url("/echo") : "/echo", request.matches[1] == "307" ? 307 : 308);
    });
    server.Get("/gzip", [](const httplib::Request& request, httplib::Response& response) {
      const std::string accepted = request.get_header_value("Accept-Encoding");
      response.set_header("X-Accept-Encoding", accepted);
      if (accepted.find("gzip") == std::string::npos) return response.set_content(kHelloBody, kUncompressed);
      response.set_header("Content-Encoding", "gzip");
      response.set_content(test::gzip(kHelloBody), kUncompressed);
    });
    server.Get("/set-cookies", [](const httplib::Request&, httplib::Response& response) {
      response.headers.emplace("Set-Cookie", "host=h; Path=/");
      response.headers.emplace("Set-Cookie", "parent=p; Domain=signin.localhost; Path=/");
      response.headers.emplace("Set-Cookie", "deep=d; Path=/account");
      response.headers.emplace("Set-Cookie", "secure=s; Domain=signin.localhost; Path=/; Secure");
      response.set_content("set", "text/plain");
    });
    server.Get("/account/cookies", [](const httplib::Request& request, httplib::Response& response) {
      response.set_content(request.get_header_value("Cookie"), "text/plain");
    });
    holding.install(server);
  }

  Outcome fetch(HttpRequest request, platform::HttpClient& with) {
    Outcome outcome;
    auto connection = with.start(std::move(request), recordInto(outcome, *loop));
    EXPECT_TRUE(test::runUntilQuit(*loop)) << "the request never ended";
    return outcome;
  }
  Outcome fetch(HttpRequest request) { return fetch(std::move(request), *client); }
  Outcome get(const std::string& url) { return fetch(HttpRequest{.url = url}); }

  static std::unique_ptr<httplib::Server> makeHttpsServer() {
    return std::make_unique<httplib::SSLServer>(certificates->serverCertificate(), certificates->serverKey());
  }

  static inline test::TestCertificates* certificates = nullptr;
  HoldingRoute holding;
  std::atomic<int> plainRequests{0};
  test::LoopbackServer http{std::make_unique<httplib::Server>(), "http"};
  test::LoopbackServer https{makeHttpsServer(), "https"};
  std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
  std::shared_ptr<platform::HttpClient> client =
      platform::makeCurlHttpClient(loop, platform::CurlHttpOptions{certificates->caFile()});
};

struct AnswerRow {
  const char* name;
  bool overTls;
  const char* path;
  int status;
  std::string body;
  const char* finalPath;
};

TEST_F(CurlHttpClientTest, AnswersArriveOnTheMainThreadAsResponseDataFinish) {
  const AnswerRow rows[] = {
      {"plain", false, "/hello", 200, kHelloBody, "/hello"},
      {"over TLS with the CA file", true, "/hello", 200, kHelloBody, "/hello"},
      {"a redirect is followed", false, "/redirect", 200, kHelloBody, "/hello"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto& server = row.overTls ? https : http;
    const Outcome outcome = get(server.url(row.path, "localhost"));
    EXPECT_EQ(outcome.events, (std::vector<std::string>{"response", "data", "finish"}));
    EXPECT_TRUE(outcome.allOnMainThread);
    ASSERT_TRUE(outcome.response);
    EXPECT_EQ(outcome.response->statusCode, row.status);
    EXPECT_EQ(outcome.response->url, server.url(row.finalPath, "localhost"));
    EXPECT_EQ(outcome.body, row.body);
    if (row.finalPath == std::string("/hello")) {
      EXPECT_EQ(platform::findHttpHeader(outcome.response->headers, "x-test"), "yes");
    }
  }
}

// Each method reaches the server as itself with its body; a HEAD answer has no body to report,
// and a body of one byte is still reported.
TEST_F(CurlHttpClientTest, MethodsAndBodiesReachTheServerAsGivenAndEveryByteComesBack) {
  struct Row {
    HttpRequest request;
    std::vector<std::string> events;
    std::string body;
  };
  const Row rows[] = {
      {{.url = http.url("/echo"), .method = "PUT", .body = "v=1"}, {"response", "data", "finish"},
       "PUT|application/x-www-form-urlencoded||v=1"},
      // The first and last letters and digits of a token's alphabet, in a header name.
      {{.url = http.url("/echo"), .method = "DELETE", .headers = {{"X-azAZ09", "1"}}}, {"response", "data", "finish"},
       "DELETE|||"},
      {{.url = http.url("/echo"), .method = "DELETE", .body = "q"}, {"response", "data", "finish"},
       "DELETE|application/x-www-form-urlencoded||q"},
      {{.url = http.url("/hello"), .method = "HEAD"}, {"response", "finish"}, ""},
      {{.url = http.url("/one")}, {"response", "data", "finish"}, "x"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.request.method + " " + row.request.url);
    const Outcome outcome = fetch(row.request);
    EXPECT_EQ(outcome.events, row.events);
    EXPECT_EQ(outcome.body, row.body);
    ASSERT_TRUE(outcome.response);
    EXPECT_EQ(outcome.response->statusCode, 200);
  }
}

// A request made over https never continues over http: the plain server hears nothing of a
// redirect to it (a token request's form would cross in clear text), and the caller gets one
// failure. Redirects that keep the scheme are followed, the body sent again.
TEST_F(CurlHttpClientTest, RedirectsFromHttpsToHttpAreRefusedAndOthersFollowed) {
  struct Row {
    bool overTls;
    const char* path;
    bool refused;
  };
  const Row rows[] = {
      {true, "/move/307/plain", true}, {true, "/move/308/plain", true}, {true, "/move/307/same", false},
      {true, "/move/308/same", false}, {false, "/move/307/plain", false}, {false, "/move/308/same", false},
  };
  for (const auto& row : rows) {
    auto& server = row.overTls ? https : http;
    SCOPED_TRACE(server.url(row.path));
    plainRequests = 0;
    const Outcome outcome = fetch({.url = server.url(row.path, "localhost"), .method = "POST", .body = "refresh_token=r"});
    if (row.refused) {
      EXPECT_EQ(outcome.events, std::vector<std::string>{"failure"});
      ASSERT_TRUE(outcome.error);
      EXPECT_EQ(outcome.error->code, static_cast<std::int64_t>(HttpErrorCode::secureConnectionFailed));
      const std::string description = platform::httpErrorDescription(*outcome.error);
      EXPECT_NE(description.find(http.url("/echo")), std::string::npos) << description;
      EXPECT_EQ(plainRequests.load(), 0);
    } else {
      EXPECT_EQ(outcome.events, (std::vector<std::string>{"response", "data", "finish"}));
      EXPECT_EQ(outcome.body, "POST|application/x-www-form-urlencoded||refresh_token=r");
    }
  }
}

// Whatever goes wrong at the server, a request ends once (a failure or a finish, never both), and
// nothing of it arrives later: a request started after it is answered first.
TEST_F(CurlHttpClientTest, EachServerFaultEndsTheRequestOnceWithNothingAfter) {
  struct Row {
    const char* name;
    HttpRequest request;
    std::vector<std::string> events;
    int status;
    std::optional<HttpErrorCode> code;
  };
  const Row rows[] = {
      {"closes mid-answer", {.url = http.url("/cut")}, {"response", "data", "failure"}, 200,
       HttpErrorCode::networkConnectionLost},
      {"answers 500", {.url = http.url("/fail")}, {"response", "data", "finish"}, 500, std::nullopt},
      {"stalls past the timeout", {.url = http.url("/stall"), .timeout = std::chrono::seconds(1)}, {"failure"}, 0,
       HttpErrorCode::timedOut},
      {"redirects to http", {.url = https.url("/move/307/plain", "localhost"), .method = "POST", .body = ""}, {"failure"}, 0,
       HttpErrorCode::secureConnectionFailed},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Outcome outcome;
    auto connection = client->start(row.request, recordInto(outcome, *loop));
    ASSERT_TRUE(test::runUntilQuit(*loop));
    EXPECT_EQ(get(http.url("/one")).body, "x");
    EXPECT_EQ(outcome.events, row.events);
    EXPECT_EQ(outcome.response ? outcome.response->statusCode : 0, row.status);
    EXPECT_EQ(outcome.error ? std::optional(outcome.error->code) : std::nullopt,
              row.code ? std::optional(static_cast<std::int64_t>(*row.code)) : std::nullopt);
  }
}

TEST_F(CurlHttpClientTest, UnusableRequestsFailOnceWithACodeAndADescription) {
  const auto untrusting = platform::makeCurlHttpClient(loop);
  const auto badCaFile = platform::makeCurlHttpClient(loop, {"/nonexistent/ca.pem"});
  struct Row {
    const char* name;
    platform::HttpClient* client;
    HttpRequest request;
    HttpErrorCode code;
    const char* mentions = "";
  };
  const Row rows[] = {
      // Port 1 of the loopback interface: nothing listens there, so the connection is refused.
      {"refused", client.get(), {.url = "http://127.0.0.1:1/"}, HttpErrorCode::cannotConnect, "refused"},
      {"certificate of an unknown CA", untrusting.get(), {.url = https.url("/hello", "localhost")},
       HttpErrorCode::secureConnectionFailed},
      {"unreadable CA file", badCaFile.get(), {.url = http.url("/hello")}, HttpErrorCode::invalidRequest},
      {"not http", client.get(), {.url = "ftp://127.0.0.1/"}, HttpErrorCode::badUrl},
      {"not an address", client.get(), {.url = "hello world"}, HttpErrorCode::badUrl},
      {"header with a line break", client.get(),
       {.url = http.url("/hello"), .headers = {{"X-Custom", "a\r\nInjected: b"}}}, HttpErrorCode::invalidRequest},
      {"method with a blank", client.get(), {.url = http.url("/hello"), .method = "GE T"},
       HttpErrorCode::invalidRequest},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Outcome outcome = fetch(row.request, *row.client);
    EXPECT_EQ(outcome.events, std::vector<std::string>{"failure"});
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->domain, platform::kHttpErrorDomain);
    EXPECT_EQ(outcome.error->code, static_cast<std::int64_t>(row.code));
    const std::string description = platform::httpErrorDescription(*outcome.error);
    EXPECT_FALSE(description.empty());
    EXPECT_NE(description.find(row.mentions), std::string::npos) << description;
  }
}

TEST_F(CurlHttpClientTest, AFormBodyCarriesTheFormContentTypeUnlessTheRequestSetsOne) {
  struct Row {
    const char* name;
    platform::HttpHeaders headers;
    std::string expected;
  };
  const Row rows[] = {
      {"no content type of its own", {{"X-Custom", "kept"}}, "POST|application/x-www-form-urlencoded|kept|a=1&b=%2F"},
      {"its own content type", {{"Content-Type", "application/json"}}, "POST|application/json||a=1&b=%2F"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Outcome outcome =
        fetch({.url = http.url("/echo"), .method = "POST", .headers = row.headers, .body = "a=1&b=%2F"});
    EXPECT_EQ(outcome.body, row.expected);
  }
}

TEST_F(CurlHttpClientTest, GzipAnswersAreDecodedWhateverAcceptEncodingTheRequestSends) {
  const platform::HttpHeaders rows[] = {{}, {{"Accept-Encoding", "gzip, deflate"}}};
  for (const auto& headers : rows) {
    SCOPED_TRACE(headers.empty() ? "the client's own list" : "the request's header");
    const Outcome outcome = fetch({.url = http.url("/gzip"), .headers = headers});
    ASSERT_TRUE(outcome.response);
    EXPECT_EQ(platform::findHttpHeader(outcome.response->headers, "Content-Encoding"), "gzip");
    if (!headers.empty()) {
      EXPECT_EQ(platform::findHttpHeader(outcome.response->headers, "X-Accept-Encoding"), "gzip, deflate");
    }
    EXPECT_EQ(outcome.body, kHelloBody);
  }
}

TEST_F(CurlHttpClientTest, ManyRequestsAtOnceAllFinish) {
  constexpr int kCount = 12;
  std::vector<Outcome> outcomes(kCount);
  std::vector<std::unique_ptr<platform::HttpConnection>> connections;
  int finished = 0;
  for (int i = 0; i < kCount; ++i) {
    auto handlers = recordInto(outcomes[i], *loop);
    handlers.onFinish = [&] {
      if (++finished == kCount) loop->quit();
    };
    connections.push_back(client->start({.url = (i % 2 ? https : http).url("/hello", "localhost")}, handlers));
  }
  ASSERT_TRUE(test::runUntilQuit(*loop));
  for (const auto& outcome : outcomes) EXPECT_EQ(outcome.body, kHelloBody);
}

TEST_F(CurlHttpClientTest, DestroyingTheConnectionOrTheClientStopsTheTransferWithoutCallingAnyHandler) {
  for (const bool destroyClient : {false, true}) {
    SCOPED_TRACE(destroyClient ? "the client" : "the connection");
    Outcome outcome;
    auto connection = client->start({.url = http.url("/hold")}, recordInto(outcome, *loop, /*quitOnData=*/true));
    ASSERT_TRUE(test::runUntilQuit(*loop));
    ASSERT_EQ(outcome.events, (std::vector<std::string>{"response", "data"}));
    // More pieces are then waiting in the loop, and must not be delivered either.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const std::string bodyBefore = outcome.body;

    if (destroyClient) {
      client.reset();
    } else {
      connection.reset();
    }
    EXPECT_TRUE(holding.waitUntilClientGone());
    loop->runUntilIdle();
    EXPECT_EQ(outcome.events, (std::vector<std::string>{"response", "data"}));
    EXPECT_EQ(outcome.body, bodyBefore);
    connection.reset();  // outlives its client harmlessly
  }
}

TEST_F(CurlHttpClientTest, AHandlerMayDestroyItsOwnConnectionAndHearsNothingMore) {
  Outcome outcome;
  std::unique_ptr<platform::HttpConnection> connection;
  auto handlers = recordInto(outcome, *loop);
  handlers.onResponse = [&](const platform::HttpResponse&) {
    outcome.events.push_back("response");
    connection.reset();
    loop->quit();
  };
  connection = client->start({.url = http.url("/hello")}, handlers);
  ASSERT_TRUE(test::runUntilQuit(*loop));
  // The cancellation reaches the worker before this request, so once it finishes nothing of the
  // first one can still be queued.
  const Outcome later = get(http.url("/fail"));
  EXPECT_EQ(later.events, (std::vector<std::string>{"response", "data", "finish"}));
  EXPECT_EQ(outcome.events, std::vector<std::string>{"response"});
}

TEST_F(CurlHttpClientTest, CookiesSetByTheServerAreSentBackAndDeletedForAUrl) {
  const auto at = [this](const std::string& host, const std::string& path) { return https.url(path, host); };
  ASSERT_EQ(get(at("www.signin.localhost", "/set-cookies")).body, "set");

  auto& cookies = client->cookies();
  struct Row {
    std::string url;
    const char* names;
  };
  const Row rows[] = {
      {"https://www.signin.localhost/", "host,parent,secure"},
      {"http://www.signin.localhost/account/x", "deep,host,parent"},
      {"https://other.signin.localhost/", "parent,secure"},
      {"https://signin.localhost/", "parent,secure"},
      {"https://other.localhost/", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(joinedNames(cookies.cookiesForUrl(row.url)), row.names) << row.url;
  const std::string sent = get(at("www.signin.localhost", "/account/cookies")).body;
  for (const char* pair : {"host=h", "parent=p", "deep=d", "secure=s"}) EXPECT_NE(sent.find(pair), std::string::npos) << sent;

  EXPECT_EQ(cookies.deleteCookiesForUrl("https://www.signin.localhost/"), 3u);
  EXPECT_EQ(joinedNames(cookies.cookiesForUrl("https://www.signin.localhost/account/")), "deep");
  EXPECT_EQ(get(at("www.signin.localhost", "/account/cookies")).body, "deep=d");
  EXPECT_EQ(get(at("other.signin.localhost", "/account/cookies")).body, "");
  EXPECT_EQ(cookies.deleteCookiesForUrl("https://www.signin.localhost/"), 0u);
}

}  // namespace
}  // namespace applogic
