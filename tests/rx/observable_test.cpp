#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "applogic/rx/rx.h"
#include "rx/recorder.h"

namespace applogic::rx {
namespace {

using test::Recorder;
using test::testError;
using Log = std::vector<std::string>;

TEST(JustAndError, JustEmitsOnceThenCompletesOnEverySubscriptionErrorFailsWithoutElements) {
  Recorder<int> first;
  Recorder<int> second;
  const auto source = just(5);
  EXPECT_TRUE(first.subscribeTo(source).isDisposed());
  second.subscribeTo(source);
  EXPECT_EQ(first.events(), (Log{"5", "completed"}));
  EXPECT_EQ(second.events(), (Log{"5", "completed"}));

  Recorder<int> failed;
  failed.subscribeTo(error<int>(testError("d", 3)));
  EXPECT_EQ(failed.events(), (Log{"error:d/3"}));
}

TEST(Create, EachSubscriptionRunsTheFunctionAgain) {
  int runs = 0;
  const auto source = create<int>([&runs](AnyObserver<int> observer) {
    observer.onNext(++runs);
    observer.onCompleted();
    return Disposable();
  });
  Recorder<int> first;
  Recorder<int> second;
  first.subscribeTo(source);
  second.subscribeTo(source);
  EXPECT_EQ(first.events(), (Log{"1", "completed"}));
  EXPECT_EQ(second.events(), (Log{"2", "completed"}));
}

TEST(Create, IgnoresEverythingAfterATerminalEvent) {
  Recorder<int> recorder;
  recorder.subscribeTo(create<int>([](AnyObserver<int> observer) {
    observer.onNext(1);
    observer.onError(testError());
    observer.onNext(2);
    observer.onCompleted();
    observer.onError(testError("again"));
    return Disposable();
  }));
  EXPECT_EQ(recorder.events(), (Log{"1", "error:test/7"}));
}

TEST(CreateResource, IsReleasedExactlyOnceAfterEveryKindOfEnding) {
  // `endedEarly`: the function completes before it returns the resource, which then arrives
  // after the ending and is released on arrival.
  enum class Ending { completed, failed, disposed, abandoned, endedEarly };
  for (const Ending ending :
       {Ending::completed, Ending::failed, Ending::disposed, Ending::abandoned, Ending::endedEarly}) {
    SCOPED_TRACE(static_cast<int>(ending));
    int releases = 0;
    std::optional<AnyObserver<int>> held;
    const auto source = create<int>([&](AnyObserver<int> observer) {
      if (ending != Ending::abandoned) held = observer;
      if (ending == Ending::endedEarly) observer.onCompleted();
      return Disposable::create([&releases] { ++releases; });
    });
    Disposable subscription = source.subscribe();
    EXPECT_EQ(releases, ending == Ending::abandoned || ending == Ending::endedEarly ? 1 : 0);
    switch (ending) {
      case Ending::completed: held->onCompleted(); break;
      case Ending::failed: held->onError(testError()); break;
      case Ending::disposed: subscription.dispose(); break;
      case Ending::abandoned:
      case Ending::endedEarly: break;
    }
    EXPECT_EQ(releases, 1);
    subscription.dispose();
    if (held) held->onCompleted();
    held.reset();
    EXPECT_EQ(releases, 1);
    EXPECT_TRUE(subscription.isDisposed());
  }
}

TEST(Dispose, StopsDeliveryAtOnce) {
  std::optional<AnyObserver<int>> held;
  const auto source = create<int>([&](AnyObserver<int> observer) {
    held = observer;
    return Disposable();
  });
  Recorder<int> recorder;
  Disposable subscription = recorder.subscribeTo(source.map([](int v) { return v * 10; }));
  held->onNext(1);
  EXPECT_FALSE(subscription.isDisposed());
  subscription.dispose();
  held->onNext(2);
  held->onCompleted();
  EXPECT_EQ(recorder.events(), (Log{"10"}));
  EXPECT_TRUE(subscription.isDisposed());
}

TEST(From, EmitsInOrderThenCompletes) {
  Recorder<int> recorder;
  recorder.subscribeTo(from(std::vector<int>{1, 2, 3}));
  EXPECT_EQ(recorder.events(), (Log{"1", "2", "3", "completed"}));
  Recorder<int> empty;
  empty.subscribeTo(from(std::vector<int>{}));
  EXPECT_EQ(empty.events(), (Log{"completed"}));
}

TEST(From, DisposingFromInsideOnNextStopsTheLoop) {
  Log stopped;
  auto stop = std::make_shared<Disposable>();
  const auto source = from(std::vector<int>{1, 2, 3});
  // Nested on the trampoline, the subscription returns before emitting, so the handle is there.
  from(std::vector<int>{0}).flatMap([&](int) {
              *stop = source.subscribe([&](int value) {
                stopped.push_back(std::to_string(value));
                if (value == 2) stop->dispose();
              });
              return just(0);
            })
      .subscribe();
  EXPECT_EQ(stopped, (Log{"1", "2"}));
}

TEST(From, NestedSubscriptionsInterleaveOneElementAtATime) {
  Recorder<int> recorder;
  recorder.subscribeTo(from(std::vector<int>{1, 2}).flatMap([](int x) {
    return from(std::vector<int>{x * 10, x * 10 + 1});
  }));
  // The outer emission yields after each element; the inner one queued meanwhile runs first.
  EXPECT_EQ(recorder.events(), (Log{"10", "11", "20", "21", "completed"}));
}

TEST(Map, TransformsEveryElementOncePerSubscriptionAndPassesTerminalEventsThrough) {
  int calls = 0;
  const auto source = from(std::vector<int>{1, 2}).map([&calls](int v) {
    ++calls;
    return std::to_string(v) + "!";
  });
  EXPECT_EQ(calls, 0);
  Recorder<std::string> recorder;
  recorder.subscribeTo(source);
  EXPECT_EQ(recorder.events(), (Log{"1!", "2!", "completed"}));
  source.subscribe();
  EXPECT_EQ(calls, 4);

  Recorder<int> failed;
  failed.subscribeTo(error<int>(testError()).map([](int v) { return v + 1; }));
  EXPECT_EQ(failed.events(), (Log{"error:test/7"}));
}

TEST(Disposables, BagDisposesOnDestructionAndCompositeDisposesLateAdditions) {
  int released = 0;
  {
    DisposeBag bag;
    Disposable::create([&] { ++released; }).disposed(bag);
    bag.insert(Disposable::create([&] { ++released; }));
    EXPECT_EQ(released, 0);
  }
  EXPECT_EQ(released, 2);

  auto composite = std::make_shared<CompositeDisposable>();
  composite->dispose();
  composite->add(Disposable::create([&] { ++released; }));
  EXPECT_EQ(released, 3);
  EXPECT_TRUE(Disposable().isDisposed());
}

// The slot that holds a stage's upstream or a resource: what it holds is disposed once, on
// `close()`; what arrives after `close()` is disposed on arrival.
TEST(Disposables, SlotDisposesItsHandleOnCloseAndAHandleArrivingAfterClose) {
  int released = 0;
  detail::DisposableSlot slot;
  slot.set(Disposable::create([&] { ++released; }));
  EXPECT_EQ(released, 0);
  slot.close();
  slot.close();
  EXPECT_EQ(released, 1);
  slot.set(Disposable::create([&] { ++released; }));
  EXPECT_EQ(released, 2);
}

}  // namespace
}  // namespace applogic::rx
