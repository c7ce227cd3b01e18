#include "applogic/testing/scripted_http_client.h"

#include <gtest/gtest.h>

#include "applogic/testing/manual_main_thread.h"

namespace applogic {
namespace {

using platform::HttpRequest;
using testing::HttpAnswer;

class ScriptedHttpClientTest : public ::testing::Test {
 protected:
  platform::HttpHandlers recording() {
    return {
        .onResponse = [this](const platform::HttpResponse& r) { events.push_back("response " + std::to_string(r.statusCode)); },
        .onData = [this](std::string_view data) { events.push_back("data " + std::string(data)); },
        .onFailure = [this](const Error& e) { events.push_back("failure " + platform::httpErrorDescription(e)); },
        .onFinish = [this] { events.push_back("finish"); },
    };
  }

  std::shared_ptr<testing::ManualMainThread> main = std::make_shared<testing::ManualMainThread>();
  testing::ScriptedHttpClient client{main};
  std::vector<std::string> events;
};

TEST_F(ScriptedHttpClientTest, DeliversOneHandlerPerPumpedTaskAndRecordsTheRequest) {
  client.script("POST", "https://h.test/token", {HttpAnswer::chunked(500, {"a", "b"})});
  const HttpRequest request{.url = "https://h.test/token", .method = "POST", .body = "x=1"};
  auto connection = client.start(request, recording());
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(client.requests(), std::vector<HttpRequest>{request});
  EXPECT_EQ(client.openCount(), 1u);

  ASSERT_TRUE(main->runOne());
  EXPECT_EQ(events, std::vector<std::string>{"response 500"});
  main->runPending();
  EXPECT_EQ(events, (std::vector<std::string>{"response 500", "data a", "data b", "finish"}));
  EXPECT_EQ(client.openCount(), 0u);
  EXPECT_EQ(client.cancelledCount(), 0u);
}

TEST_F(ScriptedHttpClientTest, AnswersInOrderTheLastRepeatingAndFailsWhatNobodyScripted) {
  client.script("GET", "https://h.test/profile",
                {HttpAnswer::response(200, "one"), HttpAnswer::connectionFailure("offline")});
  std::vector<std::unique_ptr<platform::HttpConnection>> connections;
  for (const char* url : {"https://h.test/profile?a=1", "https://h.test/profile", "https://h.test/profile?b=2",
                          "https://h.test/other"}) {
    connections.push_back(client.start({.url = url}, recording()));
    main->runPending();
  }
  EXPECT_EQ(events, (std::vector<std::string>{"response 200", "data one", "finish", "failure offline", "failure offline",
                                              "failure no answer scripted for GET https://h.test/other"}));
}

TEST_F(ScriptedHttpClientTest, DestroyingTheConnectionCancelsWhatIsQueuedOrHeld) {
  client.script("GET", "https://h.test/a", {HttpAnswer::response(200, "body")});
  client.script("GET", "https://h.test/held", {HttpAnswer::held()});
  auto queued = client.start({.url = "https://h.test/a"}, recording());
  auto held = client.start({.url = "https://h.test/held"}, recording());
  auto keptHeld = client.start({.url = "https://h.test/held"}, recording());
  queued.reset();
  held.reset();
  main->runPending();
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(client.cancelledCount(), 2u);
  EXPECT_EQ(client.openCount(), 1u);

  EXPECT_EQ(client.answerHeld(HttpAnswer::response(204)), 1u);
  main->runPending();
  EXPECT_EQ(events, (std::vector<std::string>{"response 204", "finish"}));
}

TEST_F(ScriptedHttpClientTest, CookieStoreDeletesWhatAUrlWouldSend) {
  client.addCookie({.name = "host", .domain = "www.h.test"});
  client.addCookie({.name = "parent", .domain = "h.test", .hostOnly = false});
  client.addCookie({.name = "elsewhere", .domain = "other.test"});
  EXPECT_EQ(client.cookies().cookiesForUrl("https://www.h.test/").size(), 2u);
  EXPECT_EQ(client.cookies().deleteCookiesForUrl("https://www.h.test/"), 2u);
  ASSERT_EQ(client.allCookies().size(), 1u);
  EXPECT_EQ(client.allCookies()[0].name, "elsewhere");
}

}  // namespace
}  // namespace applogic
