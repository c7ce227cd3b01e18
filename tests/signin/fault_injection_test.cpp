// Every sign-in flow, run once per failable call it makes, with that call failing: the store, the
// HTTP client at each step of each answer, the random source, the crypto and the presenter. Each
// run must answer each call exactly once, settle, leave nothing waiting, and keep the user's
// refresh token unless the flow signs out or the failing call was the read of that very item
// (which the token manager deletes as unreadable).

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include "applogic/signin/amazon_login_service.h"
#include "applogic/signin/client/ai_mobile_lib.h"
#include "applogic/testing/fault_plan.h"
#include "applogic/testing/faulty_crypto.h"
#include "signin/client_fixture.h"

namespace applogic::signin {
namespace {

using testing::FaultPlan;
using testing::HttpAnswer;
using test::kProfileUrl;
using test::kTokenUrl;

// One run: a client over fresh doubles that share one fault plan.
class FlowRun {
 public:
  FlowRun() {
    f.platform.crypto = std::make_shared<testing::FaultyCrypto>(f.platform.crypto, plan);
    f.store->setFaultPlan(plan);
    f.http->setFaultPlan(plan);
    f.random->setFaultPlan(plan);
    f.presenter->setFaultPlan(plan);
    f.http->script("POST", kTokenUrl, {HttpAnswer::response(200, test::tokenAnswer("at.new", "rt.new"))});
    f.http->script("GET", kProfileUrl, {HttpAnswer::response(200, R"({"user_id":"u1","email":"e@x"})")});
  }
  AIMobileLib lib() const { return f.lib(); }
  AITokenManager tokens() const { return f.tokens(); }
  void signedIn(std::chrono::seconds accessLifetime) {
    f.save(AIRefreshToken("rt.0", {"profile"}, *f.clock));
    f.save(AIAccessToken("at.0", {"profile"}, f.clock->now() + accessLifetime, *f.clock));
  }
  // Runs the main thread until nothing is left to run; false when it never gets there.
  bool settle() {
    for (int i = 0; i < 10'000; ++i) {
      if (!f.mainThread->runOne()) return true;
    }
    return false;
  }
  // When a sign-in page is shown, the user signs in and the app hands the redirect in.
  void userSignsIn() {
    if (f.presenter->opened().empty()) return;
    lib().handleOpenURL(f.redirect("code=c.1&state=" + f.shown()["state"]));
  }
  void failAt(std::size_t n) {
    storeCallsAtStart_ = f.store->calls().size();
    failAt_ = n;
    plan->failAt(n);
  }
  // The store service (the kind of token) that the failed call read, when it was a store read.
  std::optional<std::string> failedReadService() const {
    if (plan->failedSite() != "store.read") return std::nullopt;
    const auto sites = plan->sites();
    const auto storeCallsBefore = std::count_if(sites.begin(), sites.begin() + static_cast<std::ptrdiff_t>(failAt_ - 1),
                                                [](const std::string& site) { return site.starts_with("store."); });
    return f.store->calls().at(storeCallsAtStart_ + static_cast<std::size_t>(storeCallsBefore)).query.service;
  }

  test::ClientFixture f;
  std::shared_ptr<FaultPlan> plan = std::make_shared<FaultPlan>();
  std::shared_ptr<test::RecordingDelegate> delegate = std::make_shared<test::RecordingDelegate>();
  std::shared_ptr<AmazonLoginService> service;
  std::vector<Result<AmazonLoginInfo>> serviceResults;

 private:
  std::size_t storeCallsAtStart_ = 0;
  std::size_t failAt_ = 0;
};

struct Flow {
  const char* name;
  bool signedIn;        // a refresh token and an access token are stored first
  bool accessExpired;   // ... and the access token has expired
  std::function<void(FlowRun&)> act;
  std::size_t clientAnswers;   // answers the delegate must get
  std::size_t serviceReports;  // completions the login service must report
  bool signsOut;
};

void loginThroughService(FlowRun& run) {
  run.service = AmazonLoginService::make(run.lib());
  run.service->login(false, [&run](Result<AmazonLoginInfo> r) { run.serviceResults.push_back(std::move(r)); });
  run.settle();
  run.userSignsIn();
}

const Flow kFlows[] = {
    {"authorize with redirect", false, false,
     [](FlowRun& r) {
       r.lib().authorizeUserForScopes({"profile"}, r.delegate);
       r.settle();
       r.userSignsIn();
     },
     1, 0, false},
    {"access token from the store", true, false,
     [](FlowRun& r) { r.lib().getAccessTokenForScopes({"profile"}, {}, r.delegate); }, 1, 0, false},
    {"refresh of an expired access token", true, true,
     [](FlowRun& r) {
       r.f.http->script("POST", kTokenUrl,
                        {HttpAnswer::response(200, R"({"access_token":"at.new","expires_in":3600,"scope":"profile"})")});
       r.lib().getAccessTokenForScopes({"profile"}, {}, r.delegate);
     },
     1, 0, false},
    {"forced refresh with a rotated refresh token", true, false,
     [](FlowRun& r) { r.lib().getAccessTokenForScopes({"profile"}, {{"force_refresh", "YES"}}, r.delegate); }, 1, 0, false},
    {"profile", true, false, [](FlowRun& r) { r.lib().getProfile(r.delegate); }, 1, 0, false},
    {"profile refused for an expired access token, then refreshed", true, true,
     [](FlowRun& r) {
       r.f.http->script("GET", kProfileUrl,
                        {HttpAnswer::response(401, R"({"error":"invalid_token","error_description":"expired"})"),
                         HttpAnswer::response(200, R"({"user_id":"u1","email":"e@x"})")});
       r.lib().getProfile(r.delegate);
     },
     1, 0, false},
    {"sign-out", true, false, [](FlowRun& r) { r.lib().clearAuthorizationState(r.delegate); }, 1, 0, true},
    {"login service: login through the page", false, false, loginThroughService, 0, 1, false},
    {"login service: login when signed in", true, false, loginThroughService, 0, 1, false},
    {"login service: logout", true, false,
     [](FlowRun& r) {
       r.service = AmazonLoginService::make(r.lib());
       r.service->logOut();
     },
     0, 0, true},
};

void prepare(FlowRun& run, const Flow& flow) {
  if (flow.signedIn) run.signedIn(flow.accessExpired ? std::chrono::seconds(-1) : std::chrono::seconds(600));
}

TEST(SignInFaultInjectionTest, EveryFlowAnswersOnceAndLosesNothingWhicheverCallFails) {
  std::size_t total = 0;
  for (const Flow& flow : kFlows) {
    std::size_t points = 0;
    {
      FlowRun counting;
      prepare(counting, flow);
      counting.failAt(0);
      flow.act(counting);
      ASSERT_TRUE(counting.settle()) << flow.name;
      ASSERT_EQ(counting.delegate->failures.size(), 0u) << flow.name << " fails with nothing failing";
      points = counting.plan->count();
    }
    ASSERT_GT(points, 0u) << flow.name;
    std::cout << "[ fault points ] " << flow.name << ": " << points << "\n";
    total += points;
    for (std::size_t n = 1; n <= points; ++n) {
      FlowRun run;
      prepare(run, flow);
      run.failAt(n);
      flow.act(run);
      const std::string where = std::string(flow.name) + ", failing call " + std::to_string(n) + " (" +
                                run.plan->failedSite() + ")";
      ASSERT_TRUE(run.settle()) << where << ": never settles";
      EXPECT_EQ(run.delegate->answers(), flow.clientAnswers) << where;
      EXPECT_EQ(run.serviceResults.size(), flow.serviceReports) << where;
      const auto proxy = run.lib().proxy();
      EXPECT_TRUE(proxy->callContexts().empty()) << where;
      EXPECT_TRUE(proxy->openIdRequestStates().empty()) << where;
      EXPECT_TRUE(proxy->getAccessTokenRetriever()->callContexts().empty()) << where;
      EXPECT_TRUE(proxy->getRefreshTokenForAuthCodeRetriever()->callContexts().empty()) << where;
      EXPECT_TRUE(proxy->getProfileExchangeRetreiver()->callContexts().empty()) << where;
      EXPECT_EQ(run.f.http->openCount(), 0u) << where;
      for (const auto& opened : run.f.presenter->opened()) {
        auto query = AIUtils::getKeyValueDictionaryParseString(opened.url);
        EXPECT_FALSE(query["state"].empty() || query["code_challenge"].empty()) << where << ": " << opened.url;
      }
      const auto refreshRead = run.failedReadService();
      run.plan->failAt(0);
      if (flow.signedIn && !flow.signsOut && refreshRead != std::to_string(kTokenTypeRefreshToken)) {
        EXPECT_TRUE(test::storedToken(run.tokens(), kTokenTypeRefreshToken)) << where << ": the sign-in is lost";
      }
    }
  }
  std::cout << "[ fault points ] sign-in flows in all: " << total << "\n";
}

}  // namespace
}  // namespace applogic::signin
