#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "applogic/rx/observable.h"

namespace applogic::rx {

namespace detail {

// The shared state of a subject: its subscribers and, once terminated, how it ended.
//
// Subscribers are kept in an immutable list that is replaced on every change, so that an
// emission takes one snapshot under the lock and delivers outside it. Each entry is a
// subscription that refers back to the state weakly: a subject destroyed without terminating
// releases its subscribers instead of being kept alive by them.
//
// A new subscriber is registered under the lock and replayed the current value outside it.
// Until that replay is over, events pushed meanwhile (on other threads, or from inside the
// replay) are queued on the subscription and delivered by the replaying thread after it, in
// order: the subscriber never receives overlapping calls and never ends on the replayed value
// when a newer one was pushed.
template <class T>
class SubjectState : public std::enable_shared_from_this<SubjectState<T>> {
 public:
  class Subscription final : public DisposableBase {
   public:
    Subscription(std::weak_ptr<SubjectState> state, ObserverPtr<T> observer, bool replaying)
        : state_(std::move(state)), observer_(std::move(observer)), replaying_(replaying) {}

    void dispose() noexcept override {
      if (disposed_.exchange(true, std::memory_order_acq_rel)) return;
      if (auto state = state_.lock()) state->remove(this);
    }
    bool isDisposed() const noexcept override { return disposed_.load(std::memory_order_acquire); }

    // An event pushed by the subject (a value, or the end when `value` is empty): delivered at
    // once, or queued while the replay runs.
    void deliver(const SubjectState& state, const T* value) {
      if (replaying_.load(std::memory_order_acquire)) {
        std::lock_guard lock(pendingMutex_);
        if (replaying_.load(std::memory_order_relaxed)) {
          pending_.push_back(value != nullptr ? std::optional<T>(*value) : std::nullopt);
          return;
        }
      }
      deliverNow(state, value);
    }

    // Runs on the subscribing thread: the replayed value, then what was queued meanwhile, until
    // nothing is left; from then on events are delivered by the threads that push them.
    void replay(const SubjectState& state, const T& value) {
      deliverNow(state, &value);
      for (;;) {
        std::vector<std::optional<T>> batch;
        {
          std::lock_guard lock(pendingMutex_);
          if (pending_.empty()) {
            replaying_.store(false, std::memory_order_release);
            return;
          }
          batch.swap(pending_);
        }
        for (const auto& event : batch) deliverNow(state, event ? &*event : nullptr);
      }
    }

   private:
    void deliverNow(const SubjectState& state, const T* value) {
      if (isDisposed()) return;
      if (value != nullptr) {
        observer_->onNext(*value);
      } else {
        state.deliverTerminal(*observer_);
      }
    }

    std::weak_ptr<SubjectState> state_;
    ObserverPtr<T> observer_;
    std::atomic<bool> disposed_{false};
    std::atomic<bool> replaying_;
    std::mutex pendingMutex_;
    std::vector<std::optional<T>> pending_;  // in order; an empty entry is the end
  };

  using List = std::vector<std::shared_ptr<Subscription>>;

  explicit SubjectState(std::optional<T> value = std::nullopt) : value_(std::move(value)) {}

  // Registers `observer` before anything is replayed to it, so that values pushed during the
  // replay reach it as well. Replays the current value (if any) or the terminal event.
  Disposable subscribe(const ObserverPtr<T>& observer) {
    std::optional<T> replay;
    std::shared_ptr<Subscription> subscription;
    {
      Guard guard(lock_);
      replay = value_;
      if (!terminated_) {
        subscription = std::make_shared<Subscription>(this->weak_from_this(), observer, replay.has_value());
        auto next = std::make_shared<List>(*subscribers_);
        next->push_back(subscription);
        subscribers_ = std::move(next);
      }
    }
    if (!subscription) {
      deliverTerminal(*observer);
      return {};
    }
    if (replay) subscription->replay(*this, *replay);
    return Disposable::weak(subscription);
  }

  void onNext(const T& value, bool keepValue) {
    std::shared_ptr<const List> snapshot;
    {
      Guard guard(lock_);
      if (terminated_) return;
      if (keepValue) value_ = value;
      snapshot = subscribers_;
    }
    for (const auto& subscription : *snapshot) subscription->deliver(*this, &value);
  }

  void terminate(std::optional<Error> error) {
    std::shared_ptr<const List> snapshot;
    {
      Guard guard(lock_);
      if (terminated_) return;
      terminated_ = true;
      error_ = std::move(error);
      snapshot = std::exchange(subscribers_, std::make_shared<const List>());
    }
    for (const auto& subscription : *snapshot) subscription->deliver(*this, nullptr);
  }

  std::optional<T> value() const {
    Guard guard(lock_);
    return value_;
  }

  bool hasObservers() const {
    Guard guard(lock_);
    return !subscribers_->empty();
  }

 private:
  void remove(const Subscription* subscription) {
    Guard guard(lock_);
    auto next = std::make_shared<List>();
    next->reserve(subscribers_->size());
    for (const auto& entry : *subscribers_) {
      if (entry.get() != subscription) next->push_back(entry);
    }
    subscribers_ = std::move(next);
  }

  void deliverTerminal(Observer<T>& observer) const {
    // Read after `terminated_` was set under the lock and never written again.
    if (error_) {
      observer.onError(*error_);
    } else {
      observer.onCompleted();
    }
  }

  mutable Lock lock_;
  std::shared_ptr<const List> subscribers_ = std::make_shared<const List>();
  std::optional<T> value_;
  bool terminated_ = false;
  std::optional<Error> error_;
};

template <class T>
class SubjectSource final : public Source<T> {
 public:
  explicit SubjectSource(std::shared_ptr<SubjectState<T>> state) : state_(std::move(state)) {}
  Disposable subscribe(const ObserverPtr<T>& observer) const override { return state_->subscribe(observer); }

 private:
  std::shared_ptr<SubjectState<T>> state_;
};

template <class T>
class SubjectInput final : public Observer<T> {
 public:
  SubjectInput(std::shared_ptr<SubjectState<T>> state, bool keepValue)
      : state_(std::move(state)), keepValue_(keepValue) {}
  void onNext(const T& value) override { state_->onNext(value, keepValue_); }
  void onError(const Error& error) override { state_->terminate(error); }
  void onCompleted() override { state_->terminate(std::nullopt); }

 private:
  std::shared_ptr<SubjectState<T>> state_;
  bool keepValue_;
};

}  // namespace detail

/// A hot stream that the owner pushes into; subscribers receive what is pushed after they
/// subscribed. After a terminal event, new subscribers receive that terminal event at once.
///
/// Copies share one subject. Pushing and subscribing are thread-safe; delivery happens on the
/// pushing thread, outside the subject's lock, so concurrent pushes must be serialised by the
/// caller (the stream contract). A subject destroyed without terminating ends its subscriptions
/// silently and releases them.
template <class T>
class PublishSubject {
 public:
  PublishSubject() : state_(std::make_shared<detail::SubjectState<T>>()) {}

  void onNext(const T& value) const { state_->onNext(value, false); }
  void onError(const Error& error) const { state_->terminate(error); }
  void onCompleted() const { state_->terminate(std::nullopt); }

  Observable<T> asObservable() const {
    return Observable<T>(std::make_shared<const detail::SubjectSource<T>>(state_));
  }
  AnyObserver<T> asObserver() const {
    return AnyObserver<T>(std::make_shared<detail::SubjectInput<T>>(state_, false));
  }
  bool hasObservers() const { return state_->hasObservers(); }

 private:
  std::shared_ptr<detail::SubjectState<T>> state_;
};

/// Like `PublishSubject`, with a current value that every new subscriber receives first.
///
/// The current value is replayed on the subscribing thread. What is pushed while that replay
/// runs (from another thread, or from inside the replay) reaches the new subscriber after it,
/// in order and on that same thread: a new subscriber never receives overlapping calls and never
/// ends on a value older than the last one pushed.
template <class T>
class BehaviorSubject {
 public:
  explicit BehaviorSubject(T initial) : state_(std::make_shared<detail::SubjectState<T>>(std::move(initial))) {}

  void onNext(const T& value) const { state_->onNext(value, true); }
  void onError(const Error& error) const { state_->terminate(error); }
  void onCompleted() const { state_->terminate(std::nullopt); }

  /// The last value pushed (or the initial one); still readable after termination.
  T value() const { return *state_->value(); }

  Observable<T> asObservable() const {
    return Observable<T>(std::make_shared<const detail::SubjectSource<T>>(state_));
  }
  AnyObserver<T> asObserver() const {
    return AnyObserver<T>(std::make_shared<detail::SubjectInput<T>>(state_, true));
  }
  bool hasObservers() const { return state_->hasObservers(); }

 private:
  std::shared_ptr<detail::SubjectState<T>> state_;
};

/// A holder of a current value that can be observed: each subscriber receives the current
/// value at once and every later one. Destroying the variable completes its subscribers.
/// Not copyable; `value` and `setValue` are thread-safe (see `BehaviorSubject` for delivery).
template <class T>
class Variable {
 public:
  explicit Variable(T initial) : subject_(std::move(initial)) {}
  ~Variable() { subject_.onCompleted(); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

  T value() const { return subject_.value(); }
  void setValue(const T& value) { subject_.onNext(value); }
  Observable<T> asObservable() const { return subject_.asObservable(); }

 private:
  BehaviorSubject<T> subject_;
};

}  // namespace applogic::rx
