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

constexpr int kPushesPerThread = 20000;
constexpr int kRaceRounds = 3000;

// Waits until `done()`: spins for up to 100 µs first, so that a waiter that runs on a processor
// of its own reacts within nanoseconds, then yields, so that threads sharing one take turns.
template <class Done>
void spinUntil(Done done) {
  const auto spinEnd = std::chrono::steady_clock::now() + std::chrono::microseconds(100);
  while (!done()) {
    if (std::chrono::steady_clock::now() > spinEnd) std::this_thread::yield();
  }
}

// Busy work of `steps` atomic increments: holds one side of a race back by a few nanoseconds.
void delay(int steps) {
  static std::atomic<int> sink{0};
  for (int i = 0; i < steps; ++i) sink.fetch_add(1, std::memory_order_relaxed);
}

// Runs rounds of a race: `prepare` here, then `mine` here and `theirs` on a second thread,
// released together once both are known to be running, then `check` here once both finished.
// `check` returns whether the round went right, and `mineFirst` which side won it. The winner
// is held back a little more in the next round, by a step that doubles while the same side
// keeps winning, so that the two sides soon meet within the nanoseconds of a race window,
// whatever the machine's speed, and find each other again after a stall. Runs `rounds` rounds,
// and more while the lead changed fewer than `rounds / 10` times (the two sides seldom ran at
// once on a busy machine), for a second at most in all. Returns the number of rounds that went
// wrong.
template <class Prepare, class Mine, class Theirs, class Check, class MineFirst>
int raceRounds(int rounds, Prepare prepare, Mine mine, Theirs theirs, Check check, MineFirst mineFirst) {
  constexpr int kMaxOffset = 2000;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  std::atomic<int> armed{0};     // the round `theirs` may get ready for
  std::atomic<int> ready{0};     // the round the second thread is waiting to start
  std::atomic<int> released{0};  // the round that starts
  std::atomic<int> finished{0};  // the round whose `theirs` returned
  std::atomic<bool> stop{false};
  std::atomic<int> offset{0};  // > 0 holds `mine` back, < 0 holds `theirs` back
  std::thread other([&] {
    for (int round = 1;; ++round) {
      spinUntil([&] { return armed.load() >= round || stop.load(); });
      if (armed.load() < round) return;
      ready.store(round);
      spinUntil([&] { return released.load() >= round; });
      delay(-offset.load());
      theirs();
      finished.store(round);
    }
  });
  int failed = 0;
  int leadChanges = 0;
  int step = 1;
  bool lastWinner = false;
  for (int round = 1;
       (round <= rounds || leadChanges < rounds / 10) && std::chrono::steady_clock::now() < deadline; ++round) {
    prepare();
    armed.store(round);
    spinUntil([&] { return ready.load() >= round; });
    released.store(round);
    delay(offset.load());
    mine();
    spinUntil([&] { return finished.load() >= round; });
    if (!check()) ++failed;
    const bool winner = mineFirst();
    if (winner != lastWinner) ++leadChanges;
    step = winner == lastWinner ? std::min(step * 2, 64) : 1;
    lastWinner = winner;
    // Bounded: two sides that share one processor cannot be brought together by holding one back.
    offset.store(std::clamp(offset.load() + (winner ? step : -step), -kMaxOffset, kMaxOffset));
  }
  stop = true;
  other.join();
  return failed;
}

// Yields until `flag` is set, a bounded number of times.
void waitBriefly(const std::atomic<bool>& flag) {
  for (int i = 0; i < 2000 && !flag.load(std::memory_order_acquire); ++i) std::this_thread::yield();
}

// An observer that notices overlapping calls and events after the end, and that lingers in
// the replay of the initial value 0 until the other thread has pushed.
struct ReplayProbe final : Observer<int> {
  explicit ReplayProbe(const std::atomic<bool>& pushed) : pushed(pushed) {}
  void onNext(const int& value) override {
    enter();
    if (first.load() == -1) first.store(value);
    if (value == 0) waitBriefly(pushed);
    last.store(value);
    leave();
  }
  void onError(const Error&) override { ended(); }
  void onCompleted() override { ended(); }
  void enter() {
    if (inFlight.fetch_add(1) != 0) overlapped = true;
    if (completions.load() != 0) afterEnd = true;
  }
  void leave() { inFlight.fetch_sub(1); }
  void ended() {
    enter();
    completions.fetch_add(1);
    leave();
  }

  const std::atomic<bool>& pushed;
  std::atomic<int> inFlight{0};
  std::atomic<bool> overlapped{false};
  std::atomic<bool> afterEnd{false};
  std::atomic<int> first{-1};
  std::atomic<int> last{-1};
  std::atomic<int> completions{0};
};

// One thread subscribes to a subject holding 0 while another pushes 1 and 2 (and, for a
// BehaviorSubject, completes it). Returns the rounds in which the new subscriber ended on
// another value than 2 (none at all is right when it subscribed after the completion), saw
// overlapping calls, saw an event after the completion, or missed the completion.
template <class Subject>
int roundsWithAStaleOrOverlappingReplay() {
  constexpr bool isVariable = std::is_same_v<Subject, Variable<int>>;
  std::optional<Subject> subject;
  std::atomic<bool> pushed{false};
  std::shared_ptr<ReplayProbe> probe;
  return raceRounds(
      kRaceRounds,
      [&] {
        subject.emplace(0);
        pushed = false;
        probe = std::make_shared<ReplayProbe>(pushed);
      },
      [&] { subject->asObservable().subscribe(probe); },
      [&] {
        if constexpr (isVariable) {
          subject->setValue(1);
          subject->setValue(2);
          pushed = true;
        } else {
          subject->onNext(1);
          subject->onNext(2);
          pushed = true;
          subject->onCompleted();
        }
      },
      [&] {
        subject.reset();  // a Variable completes here
        const int last = probe->last.load();
        return (last == 2 || (!isVariable && last == -1)) && !probe->overlapped && !probe->afterEnd &&
               probe->completions.load() == 1;
      },
      [&] { return probe->first.load() == 0; });  // subscribed before the push
}

// The replay of a new subscriber's first value and a push on another thread: the subscriber
// never ends on the replayed (stale) value and never receives two calls at once.
TEST(Stress, ANewSubscriberOfABehaviorSubjectNeverEndsOnAStaleValue) {
  EXPECT_EQ(roundsWithAStaleOrOverlappingReplay<BehaviorSubject<int>>(), 0);
}

TEST(Stress, ANewSubscriberOfAVariableNeverEndsOnAStaleValue) {
  EXPECT_EQ(roundsWithAStaleOrOverlappingReplay<Variable<int>>(), 0);
}

// The latest inner observable fails on one thread while a new element supersedes it on
// another: either the error comes first and the new element is ignored, or the new element
// comes first and the superseded inner's error is dropped. Never both.
TEST(Stress, ASupersededInnersErrorNeverEndsFlatMapLatest) {
  std::optional<PublishSubject<int>> outer;
  std::shared_ptr<test::HeldSource<int>> first;
  std::atomic<bool> secondSubscribed{false};
  std::atomic<bool> failed{false};
  const int staleErrors = raceRounds(
      kRaceRounds,
      [&] {
        outer.emplace();
        first = std::make_shared<test::HeldSource<int>>();
        secondSubscribed = false;
        failed = false;
        // Held weakly: the source keeps the operator's observers, so a strong hold would be a cycle.
        const std::weak_ptr<test::HeldSource<int>> held = first;
        outer->asObservable()
            .flatMapLatest([held, &secondSubscribed](int which) {
              if (which == 1) return Observable<int>(held.lock());
              return create<int>([&secondSubscribed](AnyObserver<int>) {
                secondSubscribed = true;
                return Disposable();
              });
            })
            .subscribe({}, [&failed](const Error&) { failed = true; });
        outer->onNext(1);
      },
      [&] { first->observers.at(0)->onError(test::testError()); },
      [&] { outer->onNext(2); },
      [&] { return !(failed && secondSubscribed); }, [&] { return failed.load(); });
  EXPECT_EQ(staleErrors, 0);
}

// Two threads push into the two sides of a merge at once: every element arrives, calls into the
// observer never overlap, and completion comes once, after both sides completed.
TEST(Stress, MergeSerialisesTwoThreadsPushingAtOnce) {
  PublishSubject<int> left;
  PublishSubject<int> right;
  std::atomic<int> inFlight{0};
  std::atomic<bool> overlapped{false};
  long long sum = 0;
  int completions = 0;
  merge(std::vector<Observable<int>>{left.asObservable(), right.asObservable()})
      .flatMap([](int v) { return just(v); })
      .subscribe(
          [&](int v) {
            if (inFlight.fetch_add(1) != 0) overlapped = true;
            sum += v;
            inFlight.fetch_sub(1);
          },
          {}, [&] { ++completions; });
  auto pusher = [](PublishSubject<int> subject) {
    for (int i = 1; i <= kPushesPerThread; ++i) subject.onNext(i);
    subject.onCompleted();
  };
  std::thread a(pusher, left);
  std::thread b(pusher, right);
  a.join();
  b.join();
  EXPECT_FALSE(overlapped);
  EXPECT_EQ(sum, 2LL * kPushesPerThread * (kPushesPerThread + 1) / 2);
  EXPECT_EQ(completions, 1);
}

// One thread pushes while another subscribes and disposes over and over: no event reaches a
// disposed subscriber's callback after its dispose returned on that same thread, and nothing
// races (run under ThreadSanitizer).
TEST(Stress, SubscribingAndDisposingWhileAnotherThreadPushes) {
  BehaviorSubject<int> subject(0);
  std::atomic<bool> done{false};
  std::thread pusher([&] {
    for (int i = 0; i < kPushesPerThread; ++i) subject.onNext(i);
    done = true;
  });
  int rounds = 0;
  while (!done.load() || rounds < 100) {
    auto received = std::make_shared<std::atomic<int>>(0);
    Disposable subscription = subject.asObservable()
                                  .map([](int v) { return v + 1; })
                                  .flatMapLatest([](int v) { return just(v); })
                                  .subscribe([received](int) { received->fetch_add(1); });
    subscription.dispose();
    EXPECT_TRUE(subscription.isDisposed());
    ++rounds;
  }
  pusher.join();
}

// Two threads dispose the same subscription while a third pushes.
TEST(Stress, ConcurrentDisposalIsIdempotent) {
  for (int round = 0; round < 200; ++round) {
    PublishSubject<int> subject;
    std::atomic<int> releases{0};
    Disposable subscription =
        subject.asObservable()
            .flatMap([](int v) {
              return create<int>([v](AnyObserver<int> observer) {
                observer.onNext(v);
                return Disposable();
              });
            })
            .subscribe();
    Disposable resource = Disposable::create([&] { releases.fetch_add(1); });
    std::thread pusher([&] {
      for (int i = 0; i < 50; ++i) subject.onNext(i);
    });
    std::thread first([&] { subscription.dispose(); resource.dispose(); });
    std::thread second([&] { subscription.dispose(); resource.dispose(); });
    pusher.join();
    first.join();
    second.join();
    EXPECT_EQ(releases.load(), 1);
    EXPECT_TRUE(subscription.isDisposed());
  }
}

}  // namespace
}  // namespace applogic::rx
