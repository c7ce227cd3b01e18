#include "applogic/platform/curl_http_client.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

#include "applogic/platform/run_loop.h"
#include "http/loopback.h"
#include "run_until_quit.h"

namespace applogic {
namespace {

using platform::HttpErrorCode;
using platform::HttpRequest;
using Events = std::vector<std::string>;

const std::string kHelloBody = [] {
  std::string body;
  // Large enough to arrive in several pieces.
  for (int i = 0; body.size() < 200'000; ++i) body += "line " + std::to_string(i) + "\n";
  return body;
}();

// A type the server never compresses by itself, so bodies arrive as written.
constexpr const char* kUncompressed = "application/octet-stream";

// What one request reported, in order; consecutive data pieces count as one "data" event.
struct Outcome {
  Events events;
  std::optional<platform::HttpResponse> response;
  std::string body;
  std::optional<Error> error;
  bool allOnMainThread = true;
};

platform::HttpHandlers recordInto(Outcome& outcome, platform::RunLoop& loop, bool quitOnData = false) {
  auto note = [&outcome, &loop](const std::string& event) {
    outcome.allOnMainThread = outcome.allOnMainThread && loop.isMainThread();
    if (event != "data" || outcome.events.empty() || outcome.events.back() != "data") outcome.events.push_back(event);
  };
  return {
      .onResponse = [&outcome, note](const platform::HttpResponse& response) { note("response"), outcome.response = response; },
      .onData = [&outcome, &loop, note, quitOnData](std::string_view data) {
        note("data"), outcome.body += data;
        if (quitOnData) loop.quit();
      },
      .onFailure = [&outcome, &loop, note](const Error& error) { note("failure"), outcome.error = error, loop.quit(); },
      .onFinish = [&loop, note] { note("finish"), loop.quit(); },
  };
}

class CurlHttpClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    http.server->set_logger([this](const httplib::Request&, const httplib::Response&) { ++plainRequests; });
    for (auto* server : {&http, &https}) {
      installRoutes(*server->server);
      server->start();
    }
  }

  void installRoutes(httplib::Server& server) {
    using Answer = httplib::Response;
    server.Get("/hello", [](auto&, Answer& response) { response.set_header("X-Test", "yes"), response.set_content(kHelloBody, kUncompressed); });
    server.Get("/fail", [](auto&, Answer& response) { response.status = 500, response.set_content(R"({"error":"server_error"})", "application/json"); });
    // The method, the content type, X-Custom in brackets when it was sent, the body.
    const auto echo = [](const httplib::Request& request, httplib::Response& response) {
      const std::string custom = request.has_header("X-Custom") ? "[" + request.get_header_value("X-Custom") + "]" : "";
      response.set_content(request.method + "|" + request.get_header_value("Content-Type") + "|" + custom + "|" + request.body,
                           "text/plain");
    };
    server.Get("/echo", echo).Post("/echo", echo).Put("/echo", echo).Delete("/echo", echo);
    server.Get("/one", [](auto&, Answer& response) { response.set_content("x", kUncompressed); });
    // Answers after the client's patience: the server's thread is held that long, not the test.
    server.Get("/stall", [](auto&, Answer& response) { std::this_thread::sleep_for(std::chrono::seconds(2)), response.set_content("late", "text/plain"); });
    // /chain/N: N redirects before an answer.
    server.Get(R"(/chain/(\d+))", [](auto& request, Answer& response) {
      const int left = std::stoi(request.matches[1]);
      left == 0 ? response.set_content("arrived", "text/plain") : response.set_redirect("/chain/" + std::to_string(left - 1));
    });
    // Text the server compresses in whichever encoding the request accepts.
    server.Get("/text", [](auto&, Answer& response) { response.set_content(kHelloBody.substr(0, 4000), "text/plain"); });
    // Headers and the first bytes of a longer body, then the connection closes.
    server.Get("/cut", [](auto&, Answer& response) {
      response.set_content_provider(1000, kUncompressed, [](std::size_t offset, std::size_t, httplib::DataSink& sink) {
        return offset == 0 && sink.write("partial", 7);
      });
    });
    // A 307 or 308 to /echo: "plain" on the plain server, "same" on this one.
    server.Post(R"(/move/(307|308)/(plain|same))", [this](const httplib::Request& request, httplib::Response& response) {
      response.set_redirect(request.matches[2] == "plain" ? http.url("/echo") : "/echo", request.matches[1] == "307" ? 307 : 308);
    });
    server.Get("/to-ftp", [](auto&, Answer& response) { response.set_redirect("ftp://127.0.0.1/clip"); });
    server.Get("/set-cookies", [](auto&, Answer& response) {
      for (const char* cookie : {"host=h; Path=/; HttpOnly", "parent=p; Domain=signin.localhost; Path=/", "deep=d; Path=/account",
                                 "secure=s; Domain=signin.localhost; Path=/; Secure"}) response.headers.emplace("Set-Cookie", cookie);
      response.set_content("set", "text/plain");
    });
    server.Get("/account/cookies", [](auto& request, Answer& response) { response.set_content(request.get_header_value("Cookie"), "text/plain"); });
    // A first piece, then one byte at a time until the client goes away, which it counts.
    server.Get("/hold", [this](auto&, Answer& response) {
      response.set_chunked_content_provider(kUncompressed, [this](std::size_t offset, httplib::DataSink& sink) {
        std::this_thread::sleep_for(std::chrono::milliseconds(offset == 0 ? 0 : 5));
        return sink.write(offset == 0 ? "first" : ".", offset == 0 ? 5 : 1) || (++clientsGone, false);
      });
    });
  }

  Outcome fetch(HttpRequest request, platform::HttpClient* with = nullptr) {
    Outcome outcome;
    auto connection = (with ? *with : *client).start(std::move(request), recordInto(outcome, *loop));
    EXPECT_TRUE(test::runUntilQuit(*loop)) << "the request never ended";
    return outcome;
  }

  static inline test::TestCertificate certificate;
  std::atomic<int> clientsGone{0};
  std::atomic<int> plainRequests{0};
  test::LoopbackServer http{std::make_unique<httplib::Server>(), "http"};
  test::LoopbackServer https{std::make_unique<httplib::SSLServer>(certificate.certificate(), certificate.key()), "https"};
  std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
  std::shared_ptr<platform::HttpClient> client =
      platform::makeCurlHttpClient(loop, platform::CurlHttpOptions{certificate.caFile()});
};

// Every answer arrives on the main thread as its response, all its data and its finish. Methods
// and bodies reach the server as given (a body typed as a form unless the request types it);
// redirects that keep the scheme or leave http are followed, the body sent again.
TEST_F(CurlHttpClientTest, AnswersArriveOnTheMainThreadAsResponseDataFinish) {
  const Events full{"response", "data", "finish"};
  const std::string form = "application/x-www-form-urlencoded";
  struct Row { HttpRequest request; std::string body; Events events; int status = 200; std::string finalUrl = ""; };
  const Row rows[] = {
      {{.url = http.url("/hello", "localhost")}, kHelloBody, full},
      {{.url = https.url("/hello", "localhost")}, kHelloBody, full},
      {{.url = http.url("/fail")}, R"({"error":"server_error"})", full, 500},
      {{.url = http.url("/hello"), .method = "HEAD"}, "", {"response", "finish"}},
      {{.url = http.url("/one")}, "x", full},
      // The first and last letters and digits of a token's alphabet, in a header name.
      {{.url = http.url("/echo"), .method = "DELETE", .headers = {{"X-azAZ09", "1"}}}, "DELETE|||", full},
      {{.url = http.url("/echo"), .method = "DELETE", .body = "q"}, "DELETE|" + form + "||q", full},
      {{.url = http.url("/echo"), .method = "POST", .headers = {{"X-Custom", "kept"}}, .body = "a=1&b=%2F"},
       "POST|" + form + "|[kept]|a=1&b=%2F", full},
      {{.url = http.url("/echo"), .method = "POST", .headers = {{"Content-Type", "application/json"}}, .body = "{}"},
       "POST|application/json||{}", full},
      {{.url = https.url("/move/307/same", "localhost"), .method = "POST", .body = "r"}, "POST|" + form + "||r", full, 200,
       https.url("/echo", "localhost")},
      {{.url = http.url("/move/307/plain"), .method = "POST", .body = "r"}, "POST|" + form + "||r", full, 200, http.url("/echo")},
      {{.url = http.url("/chain/16")}, "arrived", full, 200, http.url("/chain/0")},
      // Compressed answers are decoded, whatever Accept-Encoding the request sends.
      {{.url = http.url("/text")}, kHelloBody.substr(0, 4000), full},
      {{.url = http.url("/text"), .headers = {{"Accept-Encoding", "gzip"}}}, kHelloBody.substr(0, 4000), full},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.request.method + " " + row.request.url);
    const Outcome outcome = fetch(row.request);
    EXPECT_EQ(outcome.events, row.events);
    EXPECT_TRUE(outcome.allOnMainThread);
    EXPECT_EQ(outcome.body, row.body);
    ASSERT_TRUE(outcome.response);
    EXPECT_EQ(outcome.response->statusCode, row.status);
    EXPECT_EQ(outcome.response->url, row.finalUrl.empty() ? row.request.url : row.finalUrl);
    EXPECT_EQ(platform::findHttpHeader(outcome.response->headers, "x-test") == "yes", row.request.url.ends_with("/hello"));
    if (row.request.url.ends_with("/text")) {
      EXPECT_TRUE(platform::findHttpHeader(outcome.response->headers, "Content-Encoding"));
    }
  }
}

// Whatever goes wrong at the server, a request ends once, and nothing of it arrives after a later
// request's answer. A request made over https never continues over http: the plain server hears
// nothing of a redirect to it (a token request's form would cross in clear text).
TEST_F(CurlHttpClientTest, EachServerFaultEndsTheRequestOnceWithNothingAfter) {
  struct Row { HttpRequest request; Events events; HttpErrorCode code; };
  const Row rows[] = {{{.url = http.url("/cut")}, {"response", "data", "failure"}, HttpErrorCode::networkConnectionLost},
      {{.url = http.url("/chain/17")}, {"failure"}, HttpErrorCode::tooManyRedirects},
      {{.url = http.url("/stall"), .timeout = std::chrono::seconds(1)}, {"failure"}, HttpErrorCode::timedOut},
      {{.url = https.url("/move/307/plain", "localhost"), .method = "POST", .body = "refresh_token=r"}, {"failure"},
       HttpErrorCode::secureConnectionFailed},
      {{.url = https.url("/move/308/plain", "localhost"), .method = "POST", .body = ""}, {"failure"},
       HttpErrorCode::secureConnectionFailed},
      // A redirect to another scheme is no step down to http: the address is refused as such.
      {{.url = https.url("/to-ftp", "localhost")}, {"failure"}, HttpErrorCode::badUrl},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.request.url);
    Outcome outcome;
    plainRequests = 0;
    auto connection = client->start(row.request, recordInto(outcome, *loop));
    ASSERT_TRUE(test::runUntilQuit(*loop));
    EXPECT_EQ(fetch({.url = https.url("/one", "localhost")}).body, "x");
    EXPECT_EQ(outcome.events, row.events);
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->code, static_cast<std::int64_t>(row.code));
    if (row.code == HttpErrorCode::secureConnectionFailed) {
      EXPECT_EQ(plainRequests.load(), 0);
      const std::string description = platform::httpErrorDescription(*outcome.error);
      EXPECT_NE(description.find(http.url("/echo")), std::string::npos) << description;
    }
  }
}

TEST_F(CurlHttpClientTest, UnusableRequestsFailOnceWithACodeAndADescription) {
  ERR_clear_error();
  const auto trusting = platform::makeCurlHttpClient(loop, {certificate.caFile()});
  EXPECT_EQ(ERR_peek_error(), 0u) << "reading the CA file left an OpenSSL error behind";
  const auto untrusting = platform::makeCurlHttpClient(loop);
  const auto badCaFile = platform::makeCurlHttpClient(loop, {"/nonexistent/ca.pem"});
  struct Row { platform::HttpClient* client; HttpRequest request; HttpErrorCode code; const char* mentions = ""; };
  const Row rows[] = {
      // Port 1 of the loopback interface: nothing listens there, so the connection is refused.
      {client.get(), {.url = "http://127.0.0.1:1/"}, HttpErrorCode::cannotConnect, "(Connection refused)"},
      {untrusting.get(), {.url = https.url("/hello", "localhost")}, HttpErrorCode::secureConnectionFailed},
      {badCaFile.get(), {.url = http.url("/hello")}, HttpErrorCode::invalidRequest, "/nonexistent/ca.pem"},
      {client.get(), {.url = "ftp://127.0.0.1/"}, HttpErrorCode::badUrl},
      {client.get(), {.url = "hello world"}, HttpErrorCode::badUrl},
      {client.get(), {.url = http.url("/hello"), .headers = {{"X-Custom", "a\r\nInjected: b"}}}, HttpErrorCode::invalidRequest},
      {client.get(), {.url = http.url("/hello"), .method = "GE T"}, HttpErrorCode::invalidRequest},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.request.method + " " + row.request.url);
    const Outcome outcome = fetch(row.request, row.client);
    EXPECT_EQ(outcome.events, Events{"failure"});
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->domain, platform::kHttpErrorDomain);
    EXPECT_EQ(outcome.error->code, static_cast<std::int64_t>(row.code));
    const std::string description = platform::httpErrorDescription(*outcome.error);
    EXPECT_NE(description.find(row.mentions), std::string::npos) << description;
  }
}

TEST_F(CurlHttpClientTest, DestroyingTheConnectionOrTheClientStopsTheTransferWithoutCallingAnyHandler) {
  for (const bool destroyClient : {false, true}) {
    SCOPED_TRACE(destroyClient ? "the client" : "the connection");
    Outcome outcome;
    auto connection = client->start({.url = http.url("/hold")}, recordInto(outcome, *loop, /*quitOnData=*/true));
    ASSERT_TRUE(test::runUntilQuit(*loop));
    // More pieces are then waiting in the loop, and must not be delivered either.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const Outcome before = outcome;
    destroyClient ? client.reset() : connection.reset();
    // The server is waited for, with a bound only so a broken run ends.
    for (int i = 0; i < 3000 && clientsGone < 1 + destroyClient; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(clientsGone, 1 + destroyClient);
    loop->runUntilIdle();
    EXPECT_EQ(outcome.events, (Events{"response", "data"}));
    EXPECT_EQ(outcome.body, before.body);
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
  EXPECT_EQ(fetch({.url = http.url("/fail")}).events, (Events{"response", "data", "finish"}));
  EXPECT_EQ(outcome.events, Events{"response"});
}

TEST_F(CurlHttpClientTest, CookiesSetByTheServerAreSentBackAndDeletedForAUrl) {
  const auto at = [this](const std::string& host, const std::string& path) { return HttpRequest{.url = https.url(path, host)}; };
  const auto names = [this](const std::string& url) {
    std::vector<std::string> found;
    for (const auto& cookie : client->cookies().cookiesForUrl(url)) found.push_back(cookie.name + (cookie.httpOnly ? "!" : ""));
    std::sort(found.begin(), found.end());
    return found;
  };
  ASSERT_EQ(fetch(at("www.signin.localhost", "/set-cookies")).body, "set");
  EXPECT_EQ(names("https://www.signin.localhost/"), (Events{"host!", "parent", "secure"}));
  EXPECT_EQ(names("http://www.signin.localhost/account/x"), (Events{"deep", "host!", "parent"}));
  EXPECT_EQ(names("https://other.signin.localhost/"), (Events{"parent", "secure"}));
  EXPECT_EQ(names("https://other.localhost/"), Events{});
  const std::string sent = fetch(at("www.signin.localhost", "/account/cookies")).body;
  for (const char* pair : {"host=h", "parent=p", "deep=d", "secure=s"}) EXPECT_NE(sent.find(pair), std::string::npos) << sent;

  EXPECT_EQ(client->cookies().deleteCookiesForUrl("https://www.signin.localhost/"), 3u);
  EXPECT_EQ(names("https://www.signin.localhost/account/"), Events{"deep"});
  EXPECT_EQ(fetch(at("www.signin.localhost", "/account/cookies")).body, "deep=d");
  EXPECT_EQ(fetch(at("other.signin.localhost", "/account/cookies")).body, "");
  EXPECT_EQ(client->cookies().deleteCookiesForUrl("https://www.signin.localhost/"), 0u);
  EXPECT_EQ(client->cookies().deleteCookiesForUrl("https://www.signin.localhost/account/"), 1u);
  EXPECT_EQ(names("https://www.signin.localhost/account/"), Events{});
}

platform::HttpCookie cookie(std::string domain, bool hostOnly, std::string path = "/", bool secure = false) {
  return platform::HttpCookie{.name = "n", .value = "v", .domain = std::move(domain), .hostOnly = hostOnly,
                    .path = std::move(path), .secure = secure};
}

TEST(CookieWouldBeSentTo, FollowsTheDomainPathAndSecureRules) {
  struct Row {
    const char* name;
    platform::HttpCookie cookie;
    const char* url;
    bool sent;
  };
  const Row rows[] = {
      {"host-only, its host", cookie("www.example.com", true), "https://www.example.com/", true},
      {"host-only, a host below", cookie("example.com", true), "https://www.example.com/", false},
      {"domain cookie, a host below", cookie("example.com", false), "https://www.example.com/", true},
      {"domain cookie, the domain itself", cookie("example.com", false), "https://example.com/", true},
      {"domain cookie, a name that only ends alike", cookie("example.com", false), "https://badexample.com/", false},
      {"domain cookie, the parent", cookie("www.example.com", false), "https://example.com/", false},
      {"host in another case, port ignored", cookie("www.example.com", true), "https://WWW.Example.COM:8443/", true},
      {"an address only matches itself", cookie("0.0.1", false), "http://127.0.0.1/", false},
      {"an address, itself", cookie("127.0.0.1", true), "http://127.0.0.1:9/", true},
      {"path, the same", cookie("h.test", true, "/account"), "https://h.test/account", true},
      {"path, below", cookie("h.test", true, "/account"), "https://h.test/account/x", true},
      {"path, a sibling that starts alike", cookie("h.test", true, "/account"), "https://h.test/accounts", false},
      {"path, above", cookie("h.test", true, "/account"), "https://h.test/", false},
      {"the query is not the path", cookie("h.test", true, "/account"), "https://h.test/?to=/account", false},
      {"secure, https", cookie("h.test", true, "/", true), "https://h.test/", true},
      {"secure, http", cookie("h.test", true, "/", true), "http://h.test/", false},
      {"secure, http to localhost", cookie("localhost", true, "/", true), "http://localhost:8080/", true},
      {"not http", cookie("h.test", true), "ftp://h.test/", false},
      {"not an address", cookie("h.test", true), "h.test/", false},
      {"an empty domain matches nothing", cookie("", false), "https://h.test/", false},
  };
  for (const auto& row : rows) EXPECT_EQ(platform::cookieWouldBeSentTo(row.cookie, row.url), row.sent) << row.name;
}

}  // namespace
}  // namespace applogic
