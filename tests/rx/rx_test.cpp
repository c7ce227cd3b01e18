#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "applogic/rx/rx.h"
#include "rx/recorder.h"

namespace applogic::rx::test {
namespace {

// Cold: each of two subscriptions runs the source again and receives the same events.
TEST(Observable, EverySubscriptionReceivesTheWholeStream) {
  const auto ints = [](std::vector<int> items) { return from(std::move(items)); };
  const struct {
    Observable<int> source;
    Log expected;
  } rows[] = {
      {just(5), {"5", "completed"}},
      {just(5).map([](int v) { return v + 1; }), {"6", "completed"}},
      {error<int>(testError("d")).map([](int v) { return v + 1; }), {"error:d/7"}},
      {empty<int>().flatMapLatest([](int x) { return just(x); }), {"completed"}},
      {ints({}), {"completed"}},
      {create<int>([](AnyObserver<int> o) { return o.onNext(1), o.onError(testError()), o.onNext(2), o.onCompleted(), Disposable(); }),
       {"1", "error:test/7"}},
      {ints({1, 2, 3}).map([](int v) { return v * 10; }).flatMap([](int x) { return just(x + 1); }),
       {"11", "21", "31", "completed"}},
      {ints({1, 2, 3}).flatMap([](int x) { return x == 2 ? error<int>(testError("bad")) : just(x); }),
       {"1", "error:bad/7"}},
      {ints({1, 2}).flatMapLatest([](int x) { return just(x + 1); }), {"2", "3", "completed"}},
      {ints({1, 2}).flatMapLatest([](int x) { return x == 1 ? never<int>() : just(x); }), {"2", "completed"}},
      {ints({1, 2}).flatMapLatest([](int x) { return x == 1 ? error<int>(testError("bad")) : just(x); }),
       {"error:bad/7"}},
      // A subscription made during an emission on the same thread waits until that one yields;
      // an emission yields after every element to the work its element queued.
      {merge(std::vector<Observable<int>>{ints({1, 2, 3}), ints({4, 5, 6})}), {"1", "2", "4", "3", "5", "6", "completed"}},
      // The second element disposes the first inner, which stops before its next element.
      {ints({1, 2}).flatMapLatest([ints](int x) { return ints({x, x}); }), {"1", "2", "2", "completed"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.expected));
    Recorder first, second;
    first.subscribeTo(row.source);
    second.subscribeTo(row.source);
    EXPECT_EQ(first.events(), row.expected);
    EXPECT_EQ(second.events(), row.expected);
  }
}

// Released once, after the subscription ends in any way (`endedEarly`: before the function
// returned it, so on arrival); nothing is delivered after the end.
TEST(CreateResource, IsReleasedExactlyOnceAfterEveryKindOfEnding) {
  enum class Ending { completed, failed, disposed, abandoned, endedEarly };
  for (const Ending ending :
       {Ending::completed, Ending::failed, Ending::disposed, Ending::abandoned, Ending::endedEarly}) {
    int releases = 0;
    std::optional<AnyObserver<int>> held;
    Recorder recorder;
    Disposable subscription = recorder.subscribeTo(create<int>([&](AnyObserver<int> observer) {
      if (ending != Ending::abandoned) held = observer;
      if (ending == Ending::endedEarly) observer.onCompleted();
      return Disposable::create([&releases] { ++releases; });
    }));
    EXPECT_EQ(releases, ending == Ending::abandoned || ending == Ending::endedEarly ? 1 : 0);
    if (ending == Ending::completed) held->onCompleted();
    if (ending == Ending::failed) held->onError(testError());
    if (ending == Ending::disposed) subscription.dispose();
    EXPECT_EQ(releases, 1);
    subscription.dispose();
    if (held) held->onNext(1), held->onCompleted();
    held.reset();
    EXPECT_EQ(releases, 1);
    const Log ends[] = {{"completed"}, {"error:test/7"}, {}, {}, {"completed"}};
    EXPECT_EQ(recorder.events(), ends[static_cast<int>(ending)]);
  }
}

// A subscription counts as disposed once it ended, also while its source still holds it; with
// callbacks, nothing that was on its way when it was disposed is delivered.
TEST(Dispose, ASubscriptionCountsAsDisposedOnceItEndedAndReceivesNothingAfterwards) {
  for (int stage = 0; stage < 3; ++stage) {
    const auto held = std::make_shared<HeldSource<int>>();
    const auto inner = [&held](int) { return Observable<int>(held); };  // ends when its inner does
    const Observable<int> plain(held), source = stage == 0 ? plain : stage == 1 ? plain.flatMap(inner) : plain.flatMapLatest(inner);
    Recorder recorder;
    Log seen;
    const auto subscribe = [&] {
      return stage == 0 ? source.subscribe([&](int v) { seen.push_back(std::to_string(v)); }) : recorder.subscribeTo(source);
    };
    const Disposable ended[] = {subscribe(), subscribe(), subscribe(), subscribe()};
    ended[2].dispose();
    held->observers.at(2)->onNext(1);
    held->observers.at(0)->onNext(0);
    held->observers.at(1)->onError(testError());
    held->observers.at(3)->onCompleted();
    held->observers.at(0)->onCompleted();
    held->observers.back()->onCompleted();  // the inner of the first, or the disposed third
    for (const auto& subscription : ended) EXPECT_TRUE(subscription.isDisposed());
    EXPECT_EQ(seen, stage == 0 ? Log{"0"} : Log{});
  }
}

// A slot holds a stage's upstream or resource: disposed once on close, or on arrival after it.
TEST(Disposables, BagCompositeAndSlotDisposeWhatTheyHoldAndWhatArrivesLate) {
  int released = 0;
  auto count = [&released] { return Disposable::create([&released] { ++released; }); };
  {
    DisposeBag bag;
    count().disposed(bag);
    CompositeDisposable composite;
    composite.dispose();
    composite.add(count());
    detail::DisposableSlot slot;
    slot.set(count());
    EXPECT_EQ(released, 1);
    slot.close();
    slot.set(count());
    EXPECT_EQ(released, 3);
  }
  EXPECT_EQ(released, 4);
}

TEST(FlatMap, TheFirstErrorIsDeliveredOnceAndCancelsEverything) {
  PublishSubject<int> outer, live;
  auto held = std::make_shared<HeldSource<int>>();
  Recorder recorder;
  // Held weakly: the source keeps the operator's observers, so a strong hold would be a cycle.
  recorder.subscribeTo(outer.asObservable().flatMap([&, weak = std::weak_ptr(held)](int which) {
    return which == 0 ? live.asObservable() : Observable<int>(weak.lock());
  }));
  outer.onNext(0);
  outer.onNext(1);
  const auto failing = held->observers.at(0);
  failing->onError(testError("first"));
  EXPECT_FALSE(outer.hasObservers() || live.hasObservers());
  failing->onNext(9);
  failing->onError(testError("second"));
  EXPECT_EQ(recorder.events(), (Log{"error:first/7"}));
}

// The previous inner is disposed before the next one (or a scalar) takes its place. Events that
// arrive although it was disposed (on their way on another thread) are dropped: a superseded
// inner's error and completion do not end the stream.
TEST(FlatMapLatest, DisposesThePreviousInnerFirstAndDropsItsLateEvents) {
  auto inner = std::make_shared<HeldSource<int>>();
  PublishSubject<int> outer;
  Recorder recorder;
  recorder.subscribeTo(outer.asObservable().flatMapLatest(
      [weak = std::weak_ptr(inner)](int n) { return n < 0 ? just(n) : Observable<int>(weak.lock()); }));
  for (int n : {0, 0, -1}) outer.onNext(n);
  EXPECT_EQ(inner->disposedAt, (std::vector<std::size_t>{1, 2}));
  outer.onNext(0);
  const ObserverPtr<int> superseded = inner->observers.at(0), latest = inner->observers.at(2);
  superseded->onNext(1);
  superseded->onError(testError("stale"));
  superseded->onCompleted();
  latest->onNext(2);
  outer.onCompleted();
  EXPECT_EQ(recorder.events(), (Log{"-1", "2"}));
  latest->onError(testError("latest"));
  latest->onNext(3);
  EXPECT_EQ(recorder.events(), (Log{"-1", "2", "error:latest/7"}));
  EXPECT_FALSE(outer.hasObservers());
}

TEST(PublishSubject, DeliversWhatIsPushedWhileSubscribedAndLateSubscribersOnlyTheEnd) {
  PublishSubject<int> subject;
  subject.onNext(1);
  Recorder recorder, disposed, late;
  Disposable subscription;  // disposed by the first subscriber while 3 is delivered to both
  subject.asObservable().subscribe([&](int v) {
    recorder.sink->onNext(v);
    if (v == 3) subscription.dispose();
  }, [&](const Error& error) { recorder.sink->onError(error); });
  subscription = disposed.subscribeTo(subject.asObservable());
  subject.onNext(2);
  subject.onNext(3);
  subject.onError(testError());
  subject.onNext(4);
  subject.onCompleted();
  EXPECT_TRUE(late.subscribeTo(subject.asObservable()).isDisposed());
  EXPECT_EQ(recorder.events(), (Log{"2", "3", "error:test/7"}));
  EXPECT_EQ(disposed.events(), (Log{"2"}));
  EXPECT_EQ(late.events(), (Log{"error:test/7"}));
}

// Fed through its observer side too. What is pushed during the replay follows it, in order.
TEST(BehaviorSubject, ReplaysTheCurrentValueThenFollowsUntilTheEnd) {
  BehaviorSubject<int> subject(1);
  subject.onNext(2);
  const AnyObserver<int> input = subject.asObserver();
  Recorder recorder;
  subject.asObservable().subscribe([&](int v) {
    recorder.sink->onNext(v);
    if (v == 2) input.onNext(3);
    if (v == 3) input.onError(testError());
  }, [&](const Error& error) { recorder.sink->onError(error); });
  EXPECT_EQ(subject.value(), 3);
  EXPECT_EQ(recorder.events(), (Log{"2", "3", "error:test/7"}));
}

// Disposing a chain ends it up to its source. An observer may push back into the source on the
// same thread, while the operators hold their locks. A subject destroyed without terminating
// releases the chains subscribed to it, as nothing is left that could deliver.
TEST(Subjects, DisposingEndsAChainAndASubjectThatGoesReleasesIt) {
  auto probe = std::make_shared<int>(0);
  std::weak_ptr<int> watch = probe;
  Disposable disposed, abandoned;
  std::vector<int> seen;
  {
    PublishSubject<int> subject;
    const auto chain = subject.asObservable()
                           .map([probe](int v) { return v + *probe; })
                           .flatMap([probe](int v) { return just(v); })
                           .flatMapLatest([probe](int v) { return just(v); });
    disposed = chain.subscribe();
    disposed.dispose();
    EXPECT_FALSE(subject.hasObservers());
    abandoned = chain.subscribe([probe, &subject, &seen](int v) {
      seen.push_back(v);
      if (v < 3) subject.onNext(v + 1);
    });
    subject.onNext(1);
    probe.reset();
  }
  EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));
  EXPECT_TRUE(watch.expired());
}

TEST(Blocking, CollectsEverythingUntilTermination) {
  const auto events = blockingCollect(from(std::vector<int>{1, 2}));
  EXPECT_EQ(events.values, (std::vector<int>{1, 2}));
  EXPECT_TRUE(events.completed);
  EXPECT_FALSE(blockingCollect(never<int>(), std::chrono::milliseconds(1)).terminated());
}

}  // namespace
}  // namespace applogic::rx::test
