#include <gtest/gtest.h>

#include <atomic>
#include <span>
#include <thread>
#include <vector>

#include "applogic/foundation/dispatch_group.h"
#include "applogic/foundation/find_first.h"
#include "applogic/foundation/serial_queue.h"
#include "applogic/foundation/zds_deferred_util.h"
#include "applogic/rx/rx.h"
#include "applogic/testing/manual_main_thread.h"

namespace applogic {
namespace {

TEST(DispatchGroup, NotifiesOnceTheLastPieceLeavesAlwaysByPosting) {
  const auto main = std::make_shared<testing::ManualMainThread>();
  std::vector<int> ran;
  DispatchGroup group;
  group.notify(main, [&] { ran.push_back(0); });  // nothing in progress: posted at once
  EXPECT_TRUE(ran.empty() && main->runPending() == 1u);
  group.enter(), group.enter();
  group.notify(main, [&] { ran.push_back(1); }), group.notify(main, [&] { ran.push_back(2); });
  group.notify(nullptr, [&] { ran.push_back(-1); }), group.notify(main, nullptr);  // ignored
  group.leave();
  EXPECT_EQ(main->runPending(), 0u);
  DispatchGroup(group).leave();  // a copy is the same group; the tasks are posted, not run
  EXPECT_TRUE(ran == std::vector<int>{0} && main->runPending() == 2u);
  EXPECT_EQ(ran, (std::vector<int>{0, 1, 2}));
  group.enter(), group.leave();  // notified tasks are forgotten
  EXPECT_EQ(main->runPending(), 0u);
  EXPECT_DEATH(group.leave(), "without a matching enter");
}

TEST(SerialQueue, CopiesAreTheSameQueueAndALabelIsNotAnIdentity) {
  const SerialQueue queue("AppLogic.Test");
  EXPECT_TRUE(SerialQueue(queue) == queue && !(SerialQueue("AppLogic.Test") == queue));
}

bool isEven(int value) { return value % 2 == 0; }

// A pointer into a temporary would dangle, so temporaries are refused at compile time.
template <class Range>
concept Searchable = requires(Range&& range) { findFirst(std::forward<Range>(range), isEven); };
static_assert(Searchable<const std::vector<int>&> && Searchable<std::span<const int>> && !Searchable<std::vector<int>>);

// Asks in order, stops at the first match and points at it inside the range; null for none or an empty range.
TEST(FindFirst, PointsAtTheFirstMatchInsideTheRangeOrIsNull) {
  std::vector<int> values{5, 2, 7, 4}, asked;
  EXPECT_EQ(findFirst(values, [&asked](int v) { return asked.push_back(v), isEven(v); }), &values[1]);
  EXPECT_EQ(asked, (std::vector<int>{5, 2}));
  EXPECT_EQ(findFirst(std::span(values).subspan(2, 1), isEven), nullptr);
  EXPECT_EQ(findFirst(std::span(values).subspan(4), isEven), nullptr);
}

using Log = std::vector<std::string>;

std::string describe(const ZDSDeferred<int>& deferred) {
  const auto outcome = deferred.outcome();
  return !outcome ? "pending" : outcome->ok() ? std::to_string(outcome->value()) : outcome->error().domain;
}

// Settled by a copy, then twice more (ignored), with one continuation of each kind (and two empty
// ones) registered before and after; each logs when it was registered, its kind and what it got.
TEST(ZDSDeferred, TheFirstSettlementWinsAndEachContinuationRunsOnceForItsKind) {
  for (const bool resolve : {true, false}) {
    const ZDSDeferred<int> deferred, copy = deferred;
    Log log;
    const auto registerAll = [&](const std::string& tag) {
      const auto value = [&](const char* kind) { return [&log, tag, kind](int v) { log.push_back(tag + kind + std::to_string(v)); }; };
      const auto error = [&](const char* kind) { return [&log, tag, kind](const Error& e) { log.push_back(tag + kind + e.domain); }; };
      deferred.then(nullptr).fail(nullptr).then(value(" then ")).fail(error(" fail ")).done(value(" done "), error(" done "));
    };
    registerAll("before");
    EXPECT_TRUE(deferred.isPending() && log.empty());
    EXPECT_TRUE(resolve ? copy.resolve(7) : copy.reject(Error{"e", 3, {}}));
    EXPECT_FALSE(deferred.resolve(8) || deferred.reject(Error{"late", 1, {}}) || deferred.isPending());
    registerAll("after");  // runs before it returns
    const std::string got = resolve ? "7" : "e", kind = resolve ? " then " : " fail ";
    EXPECT_EQ(describe(deferred), got);
    EXPECT_EQ(log, (Log{"before" + kind + got, "before done " + got, "after" + kind + got, "after done " + got}));
    EXPECT_TRUE(copy == deferred && !(ZDSDeferred<int>() == deferred));
  }
}

// Continuations run outside the lock: they may register more on their deferred and settle others.
TEST(ZDSDeferred, ContinuationsMayRegisterMoreAndSettleOthers) {
  const ZDSDeferred<int> first, second;
  Log log;
  first.then([&](int v) { first.then([&](int w) { log.push_back("nested " + std::to_string(w)); }), second.resolve(v * 2); });
  second.then([&log](int value) { log.push_back("second " + std::to_string(value)); });
  first.resolve(21);
  EXPECT_EQ(log, (Log{"nested 21", "second 42"}));
}

// Settlers race each other and registrations race the settlement (for ThreadSanitizer too): one
// settler wins and every continuation runs exactly once with the one outcome.
TEST(ZDSDeferred, ConcurrentSettlersAndRegistrationsAgreeOnOneOutcome) {
  for (int round = 0; round < 50; ++round) {
    const ZDSDeferred<int> deferred;
    std::atomic<int> wins{0}, runs{0};
    const auto check = [&](std::int64_t got) {
      ++runs;
      EXPECT_EQ(got, std::stoi(describe(deferred)));
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] { for (int i = 0; i < 25; ++i) deferred.done([&](int v) { check(v); }, [&](const Error& e) { check(e.code); }); });
    }
    for (int t = 1; t <= 4; ++t) {
      threads.emplace_back([&, t] { wins += t % 2 == 1 ? deferred.resolve(t) : deferred.reject(Error{std::to_string(t), t, {}}); });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(wins.load() * 1000 + runs.load(), 1100);
  }
}

TEST(ZDSDeferredUtil, SettlesWithTheStreamsFirstEvent) {
  const struct { rx::Observable<int> source; const char* outcome; } rows[] = {
      {rx::from<int>({4, 5, 6}), "4"}, {rx::error<int>(Error{"net", 7, {}}), "net"},
      {rx::empty<int>(), "ZDSDeferredUtil"}, {rx::never<int>(), "pending"}};
  for (const auto& row : rows) EXPECT_EQ(describe(ZDSDeferredUtil::fromObservable(row.source)), row.outcome);
}

// The subscription ends after the first value, whether it comes during subscription or later.
TEST(ZDSDeferredUtil, SubscribesOnceAndEndsTheSubscriptionAfterTheFirstValue) {
  auto subscriptions = std::make_shared<std::atomic<int>>(0), disposals = std::make_shared<std::atomic<int>>(0);
  auto observers = std::make_shared<std::vector<rx::AnyObserver<int>>>();  // kept: only disposing ends it
  const auto during = rx::create<int>([=](rx::AnyObserver<int> observer) {
    ++*subscriptions, observers->push_back(observer), observer.onNext(1), observer.onNext(2);
    return rx::Disposable::create([disposals] { ++*disposals; });
  });
  EXPECT_EQ(describe(ZDSDeferredUtil::fromObservable(during)), "1");
  EXPECT_EQ(subscriptions->load() * 10 + disposals->load(), 11);
  observers->clear();
  rx::PublishSubject<int> subject;
  const ZDSDeferred<int> later = ZDSDeferredUtil::fromObservable(subject.asObservable());
  subject.onNext(3), subject.onNext(4);
  EXPECT_EQ(describe(later), "3");
  EXPECT_FALSE(subject.hasObservers());
}

}  // namespace
}  // namespace applogic
