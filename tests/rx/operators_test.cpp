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

// A hand-driven source: the test pushes into the observer of each subscription and can see
// whether that subscription is still live (its resource not yet released).
template <class T>
struct Manual {
  std::shared_ptr<std::vector<AnyObserver<T>>> observers = std::make_shared<std::vector<AnyObserver<T>>>();
  std::shared_ptr<int> live = std::make_shared<int>(0);
  std::shared_ptr<Log> trace;

  explicit Manual(std::shared_ptr<Log> sharedTrace = nullptr, std::string name = "")
      : trace(std::move(sharedTrace)), name_(std::move(name)) {}

  Observable<T> observable() const {
    auto list = observers;
    auto count = live;
    auto log = trace;
    auto name = name_;
    return create<T>([list, count, log, name](AnyObserver<T> observer) {
      list->push_back(observer);
      ++*count;
      if (log) log->push_back("subscribe " + name);
      return Disposable::create([count, log, name] {
        --*count;
        if (log) log->push_back("dispose " + name);
      });
    });
  }
  const AnyObserver<T>& operator[](std::size_t i) const { return (*observers)[i]; }

 private:
  std::string name_;
};

TEST(FlatMap, MergesInnerElementsAsTheyArrive) {
  Manual<int> a;
  Manual<int> b;
  PublishSubject<int> outer;
  Recorder<int> recorder;
  recorder.subscribeTo(outer.asObservable().flatMap([&](int which) {
    return which == 0 ? a.observable() : b.observable();
  }));
  outer.onNext(0);
  outer.onNext(1);
  a[0].onNext(1);
  b[0].onNext(2);
  a[0].onNext(3);
  EXPECT_EQ(recorder.events(), (Log{"1", "2", "3"}));
}

TEST(FlatMap, CompletesOnlyAfterTheSourceAndEveryInner) {
  Manual<int> inner;
  PublishSubject<int> outer;
  Recorder<int> recorder;
  recorder.subscribeTo(outer.asObservable().flatMap([&](int) { return inner.observable(); }));
  outer.onNext(0);
  outer.onNext(0);
  outer.onCompleted();
  inner[0].onCompleted();
  EXPECT_EQ(recorder.events(), Log{});
  inner[1].onNext(5);
  inner[1].onCompleted();
  EXPECT_EQ(recorder.events(), (Log{"5", "completed"}));
}

TEST(FlatMap, FirstErrorIsDeliveredOnceAndCancelsEverything) {
  Manual<int> inner;
  PublishSubject<int> outer;
  Recorder<int> recorder;
  recorder.subscribeTo(outer.asObservable().flatMap([&](int) { return inner.observable(); }));
  outer.onNext(0);
  outer.onNext(0);
  EXPECT_EQ(*inner.live, 2);
  inner[0].onError(testError("first"));
  EXPECT_EQ(*inner.live, 0);
  EXPECT_FALSE(outer.hasObservers());
  inner[1].onError(testError("second"));
  inner[1].onNext(9);
  EXPECT_EQ(recorder.events(), (Log{"error:first/7"}));
}

TEST(FlatMap, ScalarInnersAreDeliveredInOrderAndAnErrorInnerEndsTheStream) {
  Recorder<int> recorder;
  recorder.subscribeTo(from(std::vector<int>{1, 2, 3}).flatMap([](int x) { return just(x * 2); }));
  EXPECT_EQ(recorder.events(), (Log{"2", "4", "6", "completed"}));

  Recorder<int> failed;
  failed.subscribeTo(from(std::vector<int>{1, 2, 3}).flatMap([](int x) {
    return x == 2 ? error<int>(testError("bad", 1)) : just(x);
  }));
  EXPECT_EQ(failed.events(), (Log{"1", "error:bad/1"}));
}

TEST(FlatMapLatest, DisposesThePreviousInnerBeforeSubscribingTheNext) {
  auto trace = std::make_shared<Log>();
  Manual<int> a(trace, "a");
  Manual<int> b(trace, "b");
  PublishSubject<int> outer;
  outer.asObservable().flatMapLatest([&](int which) { return which == 0 ? a.observable() : b.observable(); }).subscribe();
  outer.onNext(0);
  outer.onNext(1);
  EXPECT_EQ(*trace, (Log{"subscribe a", "dispose a", "subscribe b"}));
}

TEST(FlatMapLatest, DropsEventsOfASupersededInner) {
  Manual<int> inner;
  PublishSubject<int> outer;
  Recorder<int> recorder;
  recorder.subscribeTo(outer.asObservable().flatMapLatest([&](int) { return inner.observable(); }));
  outer.onNext(0);
  outer.onNext(0);
  inner[0].onNext(1);
  inner[0].onError(testError("stale"));
  inner[1].onNext(2);
  outer.onCompleted();
  EXPECT_EQ(recorder.events(), (Log{"2"}));
  inner[1].onCompleted();
  EXPECT_EQ(recorder.events(), (Log{"2", "completed"}));
}

// Events of a superseded inner observable that arrive although it was disposed (they were on
// their way on another thread) are dropped too: its error and completion do not end the stream.
TEST(FlatMapLatest, DropsLateEventsOfASupersededInnerThatWereOnTheirWay) {
  auto inner = std::make_shared<test::HeldSource<int>>();
  PublishSubject<int> outer;
  Recorder<int> recorder;
  // Held weakly: the source keeps the operator's observers, so a strong hold would be a cycle.
  recorder.subscribeTo(outer.asObservable().flatMapLatest(
      [weak = std::weak_ptr(inner)](int) { return Observable<int>(weak.lock()); }));
  outer.onNext(0);
  outer.onNext(0);
  const ObserverPtr<int> superseded = inner->observers.at(0);
  const ObserverPtr<int> latest = inner->observers.at(1);
  superseded->onNext(1);
  superseded->onError(testError("stale"));
  superseded->onCompleted();
  latest->onNext(2);
  outer.onCompleted();
  EXPECT_EQ(recorder.events(), (Log{"2"}));
  latest->onError(testError("latest"));
  EXPECT_EQ(recorder.events(), (Log{"2", "error:latest/7"}));
}

TEST(FlatMapLatest, ScalarInnersPassAndCompletionFollowsTheSource) {
  Recorder<int> recorder;
  recorder.subscribeTo(from(std::vector<int>{1, 2}).flatMapLatest([](int x) { return just(x + 1); }));
  EXPECT_EQ(recorder.events(), (Log{"2", "3", "completed"}));
}

TEST(FlatMapLatest, ErrorOfTheLatestInnerEndsTheStreamAndTheSource) {
  Manual<int> inner;
  PublishSubject<int> outer;
  Recorder<int> recorder;
  recorder.subscribeTo(outer.asObservable().flatMapLatest([&](int) { return inner.observable(); }));
  outer.onNext(0);
  inner[0].onError(testError());
  EXPECT_FALSE(outer.hasObservers());
  EXPECT_EQ(*inner.live, 0);
  EXPECT_EQ(recorder.events(), (Log{"error:test/7"}));
}

TEST(Merge, InterleavesAndCompletesWhenAllComplete) {
  PublishSubject<int> a;
  PublishSubject<int> b;
  Recorder<int> recorder;
  recorder.subscribeTo(merge(std::vector<Observable<int>>{a.asObservable(), b.asObservable()}));
  a.onNext(1);
  b.onNext(2);
  a.onCompleted();
  b.onNext(3);
  b.onCompleted();
  EXPECT_EQ(recorder.events(), (Log{"1", "2", "3", "completed"}));
}

TEST(Merge, AFailureOfOneSourceEndsTheMergeAlsoForLaterElementsOfTheOther) {
  PublishSubject<int> a;
  PublishSubject<int> b;
  Recorder<int> recorder;
  recorder.subscribeTo(mergeAll(from(std::vector<Observable<int>>{a.asObservable(), b.asObservable()})));
  b.onNext(1);
  a.onError(testError("a"));
  b.onNext(2);
  b.onError(testError("b"));
  EXPECT_EQ(recorder.events(), (Log{"1", "error:a/7"}));
  EXPECT_FALSE(b.hasObservers());
}

TEST(Operators, ResubscribingAColdChainRunsTheSourceAgain) {
  int requests = 0;
  const auto chain = create<int>([&requests](AnyObserver<int> observer) {
                       observer.onNext(++requests);
                       observer.onCompleted();
                       return Disposable();
                     }).flatMap([](int v) { return just(v * 100); });
  Recorder<int> first;
  Recorder<int> second;
  first.subscribeTo(chain);
  second.subscribeTo(chain);
  EXPECT_EQ(requests, 2);
  EXPECT_EQ(second.events(), (Log{"200", "completed"}));
}

TEST(Operators, AnObserverThatPushesBackIntoTheStreamOnTheSameThreadDoesNotDeadlock) {
  PublishSubject<int> subject;
  std::vector<int> seen;
  // The push happens while merge's and flatMapLatest's locks are held by this very thread.
  merge(std::vector<Observable<int>>{subject.asObservable(), never<int>()})
      .flatMapLatest([](int v) { return just(v); })
      .subscribe([&](int v) {
        seen.push_back(v);
        if (v < 3) subject.onNext(v + 1);
      });
  subject.onNext(1);
  EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));
}

}  // namespace
}  // namespace applogic::rx
