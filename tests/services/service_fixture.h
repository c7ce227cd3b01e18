#pragma once

// What the service clients' tests share: the clients over a scripted HTTP client and a manual
// main thread, a token source that counts what it is asked, and a recorder of one subscription.

#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <boost/json/parse.hpp>

#include "applogic/rx/rx.h"
#include "applogic/services/http_services.h"
#include "applogic/testing/manual_main_thread.h"
#include "applogic/testing/scripted_http_client.h"

namespace applogic::services {

/// Answers the tokens it holds in order (the last one repeats), or `failure` when set.
class CountingTokenSource final : public AccessTokenSource {
 public:
  explicit CountingTokenSource(std::vector<std::string> tokens) : tokens_(std::move(tokens)) {}

  void accessToken(bool forceRefresh, Completion completion) override {
    forced_.push_back(forceRefresh);
    if (forceRefresh && holdForced) {
      held = std::move(completion);
      return;
    }
    if (failure) {
      completion(Result<std::string>::failure(*failure));
      return;
    }
    const std::size_t index = std::min(next_++, tokens_.size() - 1);
    completion(Result<std::string>::success(tokens_[index]));
  }

  /// Whether each request for a token forced a refresh, in order.
  const std::vector<bool>& forced() const { return forced_; }

  std::optional<Error> failure;
  /// Forced refreshes wait in `held` until the test answers them.
  bool holdForced = false;
  Completion held;

 private:
  std::vector<std::string> tokens_;
  std::vector<bool> forced_;
  std::size_t next_ = 0;
};

/// Everything one subscription received.
template <class T>
struct Recorded {
  std::vector<T> values;
  std::optional<Error> error;
  bool completed = false;
  rx::Disposable subscription;

  bool ended() const { return error.has_value() || completed; }
};

template <class T>
std::shared_ptr<Recorded<T>> record(const rx::Observable<T>& source) {
  auto recorded = std::make_shared<Recorded<T>>();
  recorded->subscription = source.subscribe([recorded](const T& value) { recorded->values.push_back(value); },
                                            [recorded](const Error& error) { recorded->error = error; },
                                            [recorded] { recorded->completed = true; });
  return recorded;
}

/// Runs `pump` (a main thread's pending tasks; it answers how many ran) until `done` holds, also
/// waiting for tasks that other threads post (a reconnection timer, an answer over loopback), for
/// at most 20 s.
template <class Pump, class Condition>
bool pumpUntil(Pump pump, Condition done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!done()) {
    if (pump() == 0) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  return true;
}

inline constexpr const char* kBase = "https://catalog.test/v1";

class ServiceFixture : public ::testing::Test {
 public:
  ServiceFixture() {
    ServiceConfiguration configuration;
    configuration.baseUrl = kBase;
    configuration.http = http;
    configuration.mainThread = mainThread;
    configuration.accessTokens = tokens;
    configuration.reconnect = ReconnectPolicy{std::chrono::milliseconds(1), std::chrono::milliseconds(4)};
    Result<HttpServices> made = makeHttpServices(configuration);
    EXPECT_TRUE(made.ok());
    services = made.value();
    Result<std::shared_ptr<HttpGiphyService>> giphyMade =
        HttpGiphyService::make(GiphyConfiguration{"https://giphy.test/v1", "key 1", http, mainThread});
    EXPECT_TRUE(giphyMade.ok());
    giphy = giphyMade.value();
  }

  template <class Condition>
  bool pumpUntil(Condition done) {
    return services::pumpUntil([this] { return mainThread->runPending(); }, done);
  }

  std::shared_ptr<testing::ManualMainThread> mainThread = std::make_shared<testing::ManualMainThread>();
  std::shared_ptr<testing::ScriptedHttpClient> http = std::make_shared<testing::ScriptedHttpClient>(mainThread);
  std::shared_ptr<CountingTokenSource> tokens = std::make_shared<CountingTokenSource>(std::vector<std::string>{"t1", "t2"});
  HttpServices services;
  std::shared_ptr<HttpGiphyService> giphy;
};

}  // namespace applogic::services
