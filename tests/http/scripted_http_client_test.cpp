#include "applogic/testing/scripted_http_client.h"

#include <gtest/gtest.h>

#include "applogic/testing/manual_main_thread.h"

namespace applogic {
namespace {

using platform::HttpRequest;
using testing::HttpAnswer;
using Events = std::vector<std::string>;

class ScriptedHttpClientTest : public ::testing::Test {
 protected:
  std::unique_ptr<platform::HttpConnection> start(HttpRequest request) {
    return client.start(std::move(request), {
        .onResponse = [this](const platform::HttpResponse& r) { events.push_back("response " + std::to_string(r.statusCode)); },
        .onData = [this](std::string_view data) { events.push_back("data " + std::string(data)); },
        .onFailure = [this](const Error& e) { events.push_back("failure " + platform::httpErrorDescription(e)); },
        .onFinish = [this] { events.push_back("finish"); },
    });
  }

  std::shared_ptr<testing::ManualMainThread> main = std::make_shared<testing::ManualMainThread>();
  testing::ScriptedHttpClient client{main};
  Events events;
};

// One handler per pumped task; the request is recorded as made. Answers come in order for the
// address without its query, the last one repeating; what nobody scripted fails.
TEST_F(ScriptedHttpClientTest, AnswersInOrderOneHandlerPerTaskAndRecordsTheRequests) {
  client.script("POST", "https://h.test/token", {HttpAnswer::chunked(500, {"a", "b"}), HttpAnswer::connectionFailure("offline")});
  const HttpRequest request{.url = "https://h.test/token?x=1", .method = "POST", .body = "x=1"};
  auto connection = start(request);
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(client.requests(), std::vector<HttpRequest>{request});
  EXPECT_EQ(client.openCount(), 1u);
  ASSERT_TRUE(main->runOne());
  EXPECT_EQ(events, Events{"response 500"});
  main->runPending();
  EXPECT_EQ(events, (Events{"response 500", "data a", "data b", "finish"}));
  EXPECT_EQ(client.openCount(), 0u);
  std::vector<std::unique_ptr<platform::HttpConnection>> connections;
  for (const char* url : {"https://h.test/token", "https://h.test/token", "https://h.test/other"}) {
    connections.push_back(start({.url = url, .method = "POST"}));
    main->runPending();
  }
  EXPECT_EQ(events, (Events{"response 500", "data a", "data b", "finish", "failure offline", "failure offline",
                            "failure no answer scripted for POST https://h.test/other"}));
  EXPECT_EQ(client.cancelledCount(), 0u);
}

TEST_F(ScriptedHttpClientTest, DestroyingTheConnectionCancelsWhatIsQueuedOrHeld) {
  client.script("GET", "https://h.test/a", {HttpAnswer::response(200, "body")});
  client.script("GET", "https://h.test/held", {HttpAnswer::held()});
  auto queued = start({.url = "https://h.test/a"});
  auto held = start({.url = "https://h.test/held"});
  auto keptHeld = start({.url = "https://h.test/held"});
  queued.reset();
  held.reset();
  main->runPending();
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(client.cancelledCount(), 2u);
  EXPECT_EQ(client.openCount(), 1u);
  EXPECT_EQ(client.answerHeld(HttpAnswer::response(204)), 1u);
  main->runPending();
  EXPECT_EQ(events, (Events{"response 204", "finish"}));
}

}  // namespace
}  // namespace applogic
