#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "applogic/rx/rx.h"

namespace applogic::rx {
namespace {

constexpr int kPushesPerThread = 20000;

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
