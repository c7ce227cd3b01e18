#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <type_traits>
#include <vector>

#include "applogic/rx/rx.h"
#include "rx/recorder.h"

namespace applogic::rx {
namespace {

// Spins for up to 100 µs (reacts within nanoseconds on a processor of its own), then yields.
template <class Done>
void spinUntil(Done done) {
  const auto spinEnd = std::chrono::steady_clock::now() + std::chrono::microseconds(100);
  while (!done()) {
    if (std::chrono::steady_clock::now() > spinEnd) std::this_thread::yield();
  }
}

// 3000 rounds of a race: `prepare`, then `mine` here and `theirs` on a second thread, released
// together once both run; then `check` (did it go right?) and `mineFirst` (who won). The winner
// is held back more next round, by a step that doubles while it keeps winning, so the sides soon
// meet within a race window on any machine (`offset` > 0 holds `mine` back). Goes on while the
// lead changed fewer than 300 times, for a second at most. Returns the wrong rounds.
template <class Prepare, class Mine, class Theirs, class Check, class MineFirst>
int raceRounds(Prepare prepare, Mine mine, Theirs theirs, Check check, MineFirst mineFirst) {
  const auto delay = [](int steps) {
    static std::atomic<int> sink{0};
    for (int i = 0; i < steps; ++i) sink.fetch_add(1, std::memory_order_relaxed);
  };
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  std::atomic<int> armed{0}, ready{0}, released{0}, finished{0}, offset{0};
  std::atomic<bool> stop{false};
  std::thread other([&] {
    for (int round = 1;; ++round) {
      spinUntil([&] { return armed >= round || stop; });
      if (armed < round) return;
      ready = round;
      spinUntil([&] { return released >= round; });
      delay(-offset);
      theirs();
      finished = round;
    }
  });
  int failed = 0, leadChanges = 0, step = 1;
  bool lastWinner = false;
  for (int round = 1; (round <= 3000 || leadChanges < 300) && std::chrono::steady_clock::now() < deadline; ++round) {
    prepare();
    armed = round;
    spinUntil([&] { return ready >= round; });
    released = round;
    delay(offset);
    mine();
    spinUntil([&] { return finished >= round; });
    if (!check()) ++failed;
    const bool winner = mineFirst();
    leadChanges += winner != lastWinner ? 1 : 0;
    step = winner == lastWinner ? std::min(step * 2, 64) : 1;
    lastWinner = winner;
    offset = std::clamp(offset + (winner ? step : -step), -2000, 2000);
  }
  stop = true;
  other.join();
  return failed;
}

// Notes overlapping calls and events after the end, and counts; lingers in the value 0 (the
// replay of a subject's initial value) until the other thread has `pushed`.
struct Probe final : Observer<int> {
  void onNext(const int& value) override {
    enter();
    if (first == -1) first = value;
    for (int i = 0; value == 0 && i < 2000 && !pushed; ++i) std::this_thread::yield();
    last = value;
    ++count;
    --inFlight;
  }
  void onError(const Error&) override { onCompleted(); }
  void onCompleted() override { enter(), ++ends, --inFlight; }
  void enter() { wrong = wrong || inFlight++ != 0 || ends != 0; }
  std::atomic<int> inFlight{0}, count{0}, first{-1}, last{-1}, ends{0};
  std::atomic<bool> pushed{false}, wrong{false};
};

// One thread subscribes to a subject holding 0 while another pushes 1 and 2 and completes it (a
// Variable completes when destroyed). Counts the rounds in which the new subscriber ended on
// another value than 2 (or on any, subscribed after the completion), saw overlapping calls or
// an event after the end, or did not see the end once.
template <class Subject>
int roundsWithAStaleOrOverlappingReplay() {
  constexpr bool isVariable = std::is_same_v<Subject, Variable<int>>;
  std::optional<Subject> subject;
  std::shared_ptr<Probe> probe;
  return raceRounds(
      [&] {
        subject.emplace(0);
        probe = std::make_shared<Probe>();
      },
      [&] { subject->asObservable().subscribe(probe); },
      [&] {
        for (int value : {1, 2}) {
          if constexpr (isVariable) subject->setValue(value); else subject->onNext(value);
        }
        probe->pushed = true;
        if constexpr (!isVariable) subject->onCompleted();
      },
      [&] {
        subject.reset();
        return (probe->last == 2 || (!isVariable && probe->last == -1)) && !probe->wrong && probe->ends == 1;
      },
      [&] { return probe->first == 0; });
}

TEST(Stress, ANewSubscriberOfABehaviorSubjectOrVariableNeverEndsOnAStaleValue) {
  EXPECT_EQ(roundsWithAStaleOrOverlappingReplay<BehaviorSubject<int>>(), 0);
  EXPECT_EQ(roundsWithAStaleOrOverlappingReplay<Variable<int>>(), 0);
}

// The latest inner fails on one thread while a new element supersedes it on another: the error
// ends the stream before the new inner is subscribed, or is dropped. Never both.
TEST(Stress, ASupersededInnersErrorNeverEndsFlatMapLatest) {
  std::optional<PublishSubject<int>> outer;
  std::shared_ptr<test::HeldSource<int>> first;
  std::atomic<bool> secondSubscribed{false}, failed{false};
  const int staleErrors = raceRounds(
      [&] {
        outer.emplace();
        first = std::make_shared<test::HeldSource<int>>();
        secondSubscribed = failed = false;
        // Held weakly: the source keeps the operator's observers, so a strong hold is a cycle.
        outer->asObservable()
            .flatMapLatest([held = std::weak_ptr(first), &secondSubscribed](int which) {
              if (which == 1) return Observable<int>(held.lock());
              return create<int>([&secondSubscribed](AnyObserver<int>) { return secondSubscribed = true, Disposable(); });
            })
            .subscribe({}, [&failed](const Error&) { failed = true; });
        outer->onNext(1);
      },
      [&] { first->observers.at(0)->onError(test::testError()); }, [&] { outer->onNext(2); },
      [&] { return !(failed && secondSubscribed); }, [&] { return failed.load(); });
  EXPECT_EQ(staleErrors, 0);
}

// Two threads push into the two sides of a merge: every element arrives, calls never overlap,
// and completion comes once, after both sides completed.
TEST(Stress, MergeSerialisesTwoThreadsPushingAtOnce) {
  PublishSubject<int> left, right;
  const auto probe = std::make_shared<Probe>();
  merge(std::vector<Observable<int>>{left.asObservable(), right.asObservable()})
      .flatMap([](int v) { return just(v); })
      .subscribe(probe);
  auto pusher = [](PublishSubject<int> subject) {
    for (int i = 1; i <= 20000; ++i) subject.onNext(i);
    subject.onCompleted();
  };
  std::thread a(pusher, left), b(pusher, right);
  a.join();
  b.join();
  EXPECT_FALSE(probe->wrong);
  EXPECT_EQ(probe->count, 40000);
  EXPECT_EQ(probe->ends, 1);
}

// While another thread pushes, chains are subscribed, and each is disposed by two threads at once
// together with a resource: nothing races (ThreadSanitizer) and the resource is released once.
TEST(Stress, SubscribingAndDisposingConcurrentlyWhileAnotherThreadPushes) {
  BehaviorSubject<int> subject(0);
  std::atomic<bool> done{false};
  std::thread pusher([&] {
    for (int i = 0; i < 20000; ++i) subject.onNext(i);
    done = true;
  });
  const auto chain = subject.asObservable()
                         .map([](int v) { return v + 1; })
                         .flatMap([](int v) {
                           return create<int>([v](AnyObserver<int> observer) {
                             observer.onNext(v);
                             return Disposable();
                           });
                         })
                         .flatMapLatest([](int v) { return just(v); });
  for (int round = 0; round < 200 || !done; ++round) {
    std::atomic<int> releases{0};
    Disposable subscription = chain.subscribe();
    Disposable resource = Disposable::create([&] { ++releases; });
    const auto disposeBoth = [&] { for (const Disposable& handle : {subscription, resource}) handle.dispose(); };
    std::thread first(disposeBoth), second(disposeBoth);
    first.join();
    second.join();
    EXPECT_EQ(releases, 1);
  }
  pusher.join();
}

}  // namespace
}  // namespace applogic::rx
