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

TEST(PublishSubject, DeliversOnlyWhatIsPushedAfterSubscribingAndLateSubscribersOnlyTheEnd) {
  PublishSubject<int> subject;
  subject.onNext(1);
  Recorder<int> recorder;
  recorder.subscribeTo(subject.asObservable());
  subject.onNext(2);
  subject.onCompleted();
  subject.onNext(3);
  EXPECT_EQ(recorder.events(), (Log{"2", "completed"}));

  PublishSubject<int> failed;
  failed.onError(testError());
  Recorder<int> late;
  EXPECT_TRUE(late.subscribeTo(failed.asObservable()).isDisposed());
  EXPECT_EQ(late.events(), (Log{"error:test/7"}));
}

TEST(PublishSubject, DisposedSubscriberIsRemoved) {
  PublishSubject<int> subject;
  Recorder<int> recorder;
  Disposable subscription = recorder.subscribeTo(subject.asObservable());
  EXPECT_TRUE(subject.hasObservers());
  subscription.dispose();
  EXPECT_FALSE(subject.hasObservers());
  subject.onNext(1);
  EXPECT_EQ(recorder.events(), Log{});
}

// Fed through its observer side too; after completion, subscribers get only the completion.
TEST(BehaviorSubject, ReplaysTheCurrentValueThenFollowsUntilCompletion) {
  BehaviorSubject<int> subject(1);
  subject.onNext(2);
  Recorder<int> recorder;
  recorder.subscribeTo(subject.asObservable());
  const AnyObserver<int> input = subject.asObserver();
  input.onNext(3);
  EXPECT_EQ(subject.value(), 3);
  input.onCompleted();
  EXPECT_EQ(recorder.events(), (Log{"2", "3", "completed"}));
  Recorder<int> late;
  late.subscribeTo(subject.asObservable());
  EXPECT_EQ(late.events(), (Log{"completed"}));
  EXPECT_EQ(subject.value(), 3);
}

TEST(BehaviorSubject, AValuePushedDuringTheReplayReachesTheNewSubscriber) {
  BehaviorSubject<int> subject(1);
  std::vector<int> seen;
  subject.asObservable().subscribe([&](int v) {
    seen.push_back(v);
    if (v == 1) subject.onNext(2);
  });
  EXPECT_EQ(seen, (std::vector<int>{1, 2}));
  EXPECT_EQ(subject.value(), 2);
}

TEST(Variable, HoldsAValueReplaysItAndCompletesSubscribersWhenDestroyed) {
  Recorder<std::string> recorder;
  {
    Variable<std::string> variable("a");
    EXPECT_EQ(variable.value(), "a");
    recorder.subscribeTo(variable.asObservable());
    variable.setValue("b");
    EXPECT_EQ(variable.value(), "b");
  }
  EXPECT_EQ(recorder.events(), (Log{"a", "b", "completed"}));
}

TEST(Subjects, ASubjectDestroyedWithoutTerminatingReleasesItsSubscriptions) {
  auto probe = std::make_shared<int>(0);
  std::weak_ptr<int> watch = probe;
  Disposable subscription;
  {
    PublishSubject<int> subject;
    subscription = subject.asObservable()
                       .map([probe](int v) { return v + *probe; })
                       .flatMap([probe](int v) { return just(v); })
                       .flatMapLatest([probe](int v) { return just(v); })
                       .subscribe([probe](int) {});
    subject.onNext(1);
    probe.reset();
    EXPECT_FALSE(watch.expired());
  }
  // Nothing is left that could deliver, so nothing may keep the chain alive.
  EXPECT_TRUE(watch.expired());
  EXPECT_TRUE(subscription.isDisposed());
}

TEST(Blocking, CollectsEverythingUntilTermination) {
  const auto events = blockingCollect(from(std::vector<int>{1, 2}));
  EXPECT_EQ(events.values, (std::vector<int>{1, 2}));
  EXPECT_TRUE(events.completed);
  const auto timedOut = blockingCollect(never<int>(), std::chrono::milliseconds(1));
  EXPECT_FALSE(timedOut.terminated());
}

}  // namespace
}  // namespace applogic::rx
