#include "applogic/foundation/zds_deferred.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "applogic/foundation/zds_deferred_util.h"
#include "applogic/rx/rx.h"

namespace applogic {
namespace {

using Log = std::vector<std::string>;

std::string describe(const Error& error) { return "error:" + error.domain + "/" + std::to_string(error.code); }

std::string describe(const ZDSDeferred<int>& deferred) {
  const auto outcome = deferred.outcome();
  if (!outcome) return "pending";
  return outcome->ok() ? std::to_string(outcome->value()) : describe(outcome->error());
}

// Registers one of each kind of continuation, all writing to `log` with `tag`.
void registerAll(const ZDSDeferred<int>& deferred, Log& log, const std::string& tag) {
  deferred.then([&log, tag](int value) { log.push_back(tag + " then " + std::to_string(value)); })
      .fail([&log, tag](const Error& error) { log.push_back(tag + " fail " + describe(error)); })
      .done([&log, tag](int value) { log.push_back(tag + " done " + std::to_string(value)); },
            [&log, tag](const Error& error) { log.push_back(tag + " done " + describe(error)); });
}

TEST(ZDSDeferred, OnlyTheFirstSettlementCounts) {
  const Error first{"first", 1, {}};
  const Error second{"second", 2, {}};
  {
    const ZDSDeferred<int> deferred;
    EXPECT_EQ(describe(deferred), "pending");
    EXPECT_TRUE(deferred.resolve(1));
    EXPECT_FALSE(deferred.resolve(2));
    EXPECT_FALSE(deferred.reject(first));
    EXPECT_EQ(describe(deferred), "1");
  }
  {
    const ZDSDeferred<int> deferred;
    const ZDSDeferred<int> copy = deferred;
    EXPECT_TRUE(copy.reject(first));
    EXPECT_FALSE(deferred.reject(second));
    EXPECT_FALSE(deferred.resolve(1));
    EXPECT_EQ(describe(deferred), "error:first/1");
    EXPECT_EQ(copy, deferred);
    EXPECT_NE(ZDSDeferred<int>(), deferred);
  }
}

TEST(ZDSDeferred, EachContinuationRunsOnceForItsOutcomeBeforeOrAfterSettlement) {
  Log resolvedLog;
  const ZDSDeferred<int> resolved;
  registerAll(resolved, resolvedLog, "before");
  EXPECT_EQ(resolvedLog, Log{});
  resolved.resolve(7);
  EXPECT_EQ(resolvedLog, (Log{"before then 7", "before done 7"}));
  registerAll(resolved, resolvedLog, "after");  // runs before registerAll returns
  resolved.resolve(8);
  resolved.reject(Error{"late", 1, {}});
  EXPECT_EQ(resolvedLog, (Log{"before then 7", "before done 7", "after then 7", "after done 7"}));

  Log rejectedLog;
  const ZDSDeferred<int> rejected;
  registerAll(rejected, rejectedLog, "before");
  rejected.reject(Error{"e", 3, {}});
  registerAll(rejected, rejectedLog, "after");
  rejected.resolve(1);
  EXPECT_EQ(rejectedLog, (Log{"before fail error:e/3", "before done error:e/3", "after fail error:e/3",
                              "after done error:e/3"}));
}

TEST(ZDSDeferred, ContinuationsMayRegisterMoreAndSettleOthers) {
  const ZDSDeferred<int> first;
  const ZDSDeferred<int> second;
  Log log;
  first.then([&](int value) {
    first.then([&log](int v) { log.push_back("nested " + std::to_string(v)); });
    second.resolve(value * 2);
  });
  second.then([&log](int value) { log.push_back("second " + std::to_string(value)); });
  first.resolve(21);
  EXPECT_EQ(log, (Log{"nested 21", "second 42"}));
}

TEST(ZDSDeferred, PendingContinuationsRunOnTheSettlingThread) {
  const ZDSDeferred<int> deferred;
  std::thread::id ranOn;
  deferred.then([&ranOn](int) { ranOn = std::this_thread::get_id(); });
  std::thread settler([deferred] { deferred.resolve(1); });
  const std::thread::id settlerId = settler.get_id();
  settler.join();
  EXPECT_EQ(ranOn, settlerId);
}

// For ThreadSanitizer as much as for its assertions: settlers race each other and registrations
// race the settlement; every continuation must run exactly once and see the one outcome.
TEST(ZDSDeferred, ConcurrentSettlersAndRegistrationsAgreeOnOneOutcome) {
  constexpr int kRounds = 50;
  constexpr int kSettlers = 4;
  constexpr int kRegistrars = 4;
  constexpr int kPerRegistrar = 25;
  for (int round = 0; round < kRounds; ++round) {
    const ZDSDeferred<int> deferred;
    std::atomic<int> wins{0};
    std::atomic<int> runs{0};
    std::mutex mutex;
    std::vector<int> seen;
    std::vector<std::thread> threads;
    for (int r = 0; r < kRegistrars; ++r) {
      threads.emplace_back([&] {
        for (int i = 0; i < kPerRegistrar; ++i) {
          deferred.done(
              [&](int value) {
                runs.fetch_add(1);
                std::lock_guard lock(mutex);
                seen.push_back(value);
              },
              [&](const Error& error) {
                runs.fetch_add(1);
                std::lock_guard lock(mutex);
                seen.push_back(static_cast<int>(-error.code));
              });
        }
      });
    }
    for (int s = 0; s < kSettlers; ++s) {
      threads.emplace_back([&, s] {
        const bool won = s % 2 == 0 ? deferred.resolve(s + 1) : deferred.reject(Error{"settler", s + 1, {}});
        if (won) wins.fetch_add(1);
      });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(wins.load(), 1);
    ASSERT_EQ(runs.load(), kRegistrars * kPerRegistrar);
    const auto outcome = deferred.outcome();
    ASSERT_TRUE(outcome.has_value());
    const int expected = outcome->ok() ? outcome->value() : static_cast<int>(-outcome->error().code);
    ASSERT_EQ(seen, std::vector<int>(seen.size(), expected));
  }
}

// ---- from an observable ----

struct Probe {
  std::atomic<int> subscriptions{0};
  std::atomic<int> disposals{0};
};

// Emits `values` during subscription unless the subscription was disposed meanwhile, then
// completes; records subscriptions and the disposal of the resource.
rx::Observable<int> probed(const std::shared_ptr<Probe>& probe, std::vector<int> values, bool complete = true) {
  return rx::create<int>([probe, values, complete](rx::AnyObserver<int> observer) {
    probe->subscriptions.fetch_add(1);
    for (int value : values) observer.onNext(value);
    if (complete) observer.onCompleted();
    return rx::Disposable::create([probe] { probe->disposals.fetch_add(1); });
  });
}

TEST(ZDSDeferredUtil, SettlesWithTheStreamsFirstEvent) {
  struct Row {
    const char* name;
    rx::Observable<int> source;
    std::string outcome;
  };
  const Row rows[] = {
      {"the first of several values", rx::from<int>({4, 5, 6}), "4"},
      {"a just", rx::just(9), "9"},
      {"an error", rx::error<int>(Error{"net", 7, {}}), "error:net/7"},
      {"completion without a value", rx::empty<int>(), "error:ZDSDeferredUtil/1"},
      {"no event", rx::never<int>(), "pending"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(describe(ZDSDeferredUtil::fromObservable(row.source)), row.outcome) << row.name;
  }
  EXPECT_EQ(ZDSDeferredUtil::noValueError(), (Error{"ZDSDeferredUtil", 1, {}}));
}

TEST(ZDSDeferredUtil, SubscribesOnceAndEndsTheSubscriptionAfterTheFirstValue) {
  auto probe = std::make_shared<Probe>();
  const ZDSDeferred<int> deferred = ZDSDeferredUtil::fromObservable(probed(probe, {1, 2}, false));
  EXPECT_EQ(describe(deferred), "1");
  EXPECT_EQ(probe->subscriptions.load(), 1);
  EXPECT_EQ(probe->disposals.load(), 1);

  rx::PublishSubject<int> subject;
  const ZDSDeferred<int> later = ZDSDeferredUtil::fromObservable(subject.asObservable());
  EXPECT_TRUE(subject.hasObservers());
  std::thread emitter([subject] {
    subject.onNext(3);
    subject.onNext(4);
  });
  emitter.join();
  EXPECT_EQ(describe(later), "3");
  EXPECT_FALSE(subject.hasObservers());
}

}  // namespace
}  // namespace applogic
