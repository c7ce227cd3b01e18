#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "applogic/export.h"
#include "applogic/rx/disposable.h"
#include "applogic/support/error.h"

namespace applogic::rx {

/// Receives the events of one subscription: `onNext* (onError | onCompleted)?`.
/// Calls on one observer never overlap when the source follows the contract.
template <class T>
class Observer {
 public:
  virtual ~Observer() = default;
  virtual void onNext(const T& value) = 0;
  virtual void onError(const Error& error) = 0;
  virtual void onCompleted() = 0;
};

template <class T>
using ObserverPtr = std::shared_ptr<Observer<T>>;

/// A copyable handle to an observer: what `create` hands to its function and what subjects
/// offer as their input side.
template <class T>
class AnyObserver {
 public:
  explicit AnyObserver(ObserverPtr<T> observer) : observer_(std::move(observer)) {}
  void onNext(const T& value) const { observer_->onNext(value); }
  void onError(const Error& error) const { observer_->onError(error); }
  void onCompleted() const { observer_->onCompleted(); }

 private:
  ObserverPtr<T> observer_;
};

template <class T>
class Observable;

namespace detail {

template <class T>
struct IsObservable : std::false_type {};
template <class T>
struct IsObservable<Observable<T>> : std::true_type {
  using Element = T;
};

/// What an `Observable` erases: something that can be subscribed to.
///
/// `subscribe` returns the handle of the stage it created (non-owning, see `Disposable`), or an
/// empty handle when the subscription already ended.
template <class T>
class Source {
 public:
  virtual ~Source() = default;
  virtual Disposable subscribe(const ObserverPtr<T>& observer) const = 0;
};

// The lock of operators whose inputs may arrive on several threads. Recursive, because an
// observer that pushes back into the same stream on the same thread re-enters it.
using Lock = std::recursive_mutex;
using Guard = std::lock_guard<Lock>;

/// Holds one handle that arrives once (the subscription above a stage, or a `create` resource)
/// and is disposed once: by `close()`, or on arrival when the slot was closed first.
class APPLOGIC_EXPORT DisposableSlot {
 public:
  void set(Disposable handle) {
    {
      std::lock_guard lock(mutex_);
      if (!closed_) {
        handle_ = std::move(handle);
        return;
      }
    }
    handle.dispose();
  }

  void close() noexcept {
    Disposable handle;
    {
      std::lock_guard lock(mutex_);
      closed_ = true;
      handle = std::exchange(handle_, Disposable());
    }
    handle.dispose();
  }

 private:
  std::mutex mutex_;
  bool closed_ = false;
  Disposable handle_;
};

/// The current-thread scheduler: the outermost `schedule` on a thread runs its task at once and
/// then every task scheduled meanwhile, in order; a nested `schedule` only queues.
class APPLOGIC_EXPORT Trampoline {
 public:
  class Task {
   public:
    virtual ~Task() = default;
    virtual void run() = 0;
  };

  static void schedule(std::shared_ptr<Task> task) {
    Trampoline*& current = active();
    if (current != nullptr) {
      current->queue_.push_back(std::move(task));
      return;
    }
    Trampoline trampoline;
    current = &trampoline;
    struct Reset {
      Trampoline*& slot;
      ~Reset() { slot = nullptr; }
    } reset{current};
    task->run();
    while (!trampoline.queue_.empty()) {
      auto next = std::move(trampoline.queue_.front());
      trampoline.queue_.pop_front();
      next->run();
    }
  }

  /// True when a task scheduled from inside the running one is waiting its turn.
  static bool hasWaitingTasks() noexcept {
    const Trampoline* current = active();
    return current != nullptr && !current->queue_.empty();
  }

 private:
  static Trampoline*& active() noexcept {
    thread_local Trampoline* current = nullptr;
    return current;
  }

  std::deque<std::shared_ptr<Task>> queue_;
};

/// The final stage of `subscribe(onNext, onError, onCompleted)`: enforces the grammar and stops
/// delivering as soon as it is disposed.
template <class T>
class LambdaObserver final : public Observer<T>, public DisposableBase {
 public:
  LambdaObserver(std::function<void(const T&)> next, std::function<void(const Error&)> error,
                 std::function<void()> completed)
      : next_(std::move(next)), error_(std::move(error)), completed_(std::move(completed)) {}

  void onNext(const T& value) override {
    if (stopped_.load(std::memory_order_acquire)) return;
    if (next_) next_(value);
  }
  void onError(const Error& error) override {
    if (stopped_.exchange(true, std::memory_order_acq_rel)) return;
    if (error_) error_(error);
  }
  void onCompleted() override {
    if (stopped_.exchange(true, std::memory_order_acq_rel)) return;
    if (completed_) completed_();
  }

  void dispose() noexcept override {
    stopped_.store(true, std::memory_order_release);
    upstream_.close();
  }
  bool isDisposed() const noexcept override { return stopped_.load(std::memory_order_acquire); }

  void setUpstream(Disposable upstream) { upstream_.set(std::move(upstream)); }

 private:
  std::atomic<bool> stopped_{false};
  std::function<void(const T&)> next_;
  std::function<void(const Error&)> error_;
  std::function<void()> completed_;
  DisposableSlot upstream_;
};

}  // namespace detail

/// A cold stream of `T`: nothing happens until `subscribe`, and each subscription runs the
/// source again.
///
/// Events follow `onNext* (onError | onCompleted)?`; none arrives after the subscription is
/// disposed. Operators apply no scheduler: events arrive on the thread the source emits on.
/// Copies share the source. Building and subscribing are thread-safe.
template <class T>
class Observable {
 public:
  using Element = T;

  explicit Observable(std::shared_ptr<const detail::Source<T>> source) : source_(std::move(source)) {}

  /// Subscribes with callbacks; each may be empty. Returns the subscription's handle.
  Disposable subscribe(std::function<void(const T&)> onNext = {},
                       std::function<void(const Error&)> onError = {},
                       std::function<void()> onCompleted = {}) const {
    auto observer = std::make_shared<detail::LambdaObserver<T>>(std::move(onNext), std::move(onError),
                                                                std::move(onCompleted));
    if (scalar_) {
      observer->onNext(*scalar_);
      observer->onCompleted();
      return {};
    }
    observer->setUpstream(source_->subscribe(observer));
    return Disposable::weak(observer);
  }

  /// Subscribes an observer of one's own. The returned handle ends the subscription upstream;
  /// the observer itself decides whether it accepts events after that.
  Disposable subscribe(const ObserverPtr<T>& observer) const {
    if (scalar_) {
      observer->onNext(*scalar_);
      observer->onCompleted();
      return {};
    }
    return source_->subscribe(observer);
  }

  /// Applies `transform` to every element.
  template <class F>
  auto map(F transform) const -> Observable<std::decay_t<std::invoke_result_t<F&, const T&>>>;

  /// Subscribes to the observable that `transform` makes of each element and merges their
  /// elements. The first error, from any of them, is delivered once and ends everything;
  /// completion waits for the source and every inner observable.
  template <class F>
  auto flatMap(F transform) const
      -> Observable<typename detail::IsObservable<std::decay_t<std::invoke_result_t<F&, const T&>>>::Element>;

  /// Like `flatMap`, but a new element disposes the inner observable of the previous one
  /// before subscribing the new one; late events of a superseded inner observable are dropped.
  template <class F>
  auto flatMapLatest(F transform) const
      -> Observable<typename detail::IsObservable<std::decay_t<std::invoke_result_t<F&, const T&>>>::Element>;

  /// The value of a `just`, when this observable is one. Lets operators skip a subscription.
  const T* scalarValue() const noexcept { return scalar_ ? &*scalar_ : nullptr; }

 private:
  template <class U>
  friend Observable<std::decay_t<U>> just(U&& value);

  struct ScalarTag {};
  template <class U>
  Observable(ScalarTag, U&& value) : scalar_(std::in_place, std::forward<U>(value)) {}

  std::shared_ptr<const detail::Source<T>> source_;
  std::optional<T> scalar_;
};

/// Emits `value`, then completes, at once on subscription.
template <class U>
Observable<std::decay_t<U>> just(U&& value) {
  return Observable<std::decay_t<U>>(typename Observable<std::decay_t<U>>::ScalarTag{},
                                     std::forward<U>(value));
}

namespace detail {

template <class T>
class ErrorSource final : public Source<T> {
 public:
  explicit ErrorSource(Error error) : error_(std::move(error)) {}
  Disposable subscribe(const ObserverPtr<T>& observer) const override {
    observer->onError(error_);
    return {};
  }

 private:
  Error error_;
};

template <class T>
class EmptySource final : public Source<T> {
 public:
  Disposable subscribe(const ObserverPtr<T>& observer) const override {
    observer->onCompleted();
    return {};
  }
};

template <class T>
class NeverSource final : public Source<T> {
 public:
  Disposable subscribe(const ObserverPtr<T>&) const override { return {}; }
};

// --- create ---------------------------------------------------------------------------------

template <class T>
class CreateSink final : public Observer<T>, public DisposableBase {
 public:
  explicit CreateSink(ObserverPtr<T> downstream) : downstream_(std::move(downstream)) {}
  ~CreateSink() override {
    // Unreachable means no one can deliver any more: that is an ending too.
    releaseResource();
  }

  void onNext(const T& value) override {
    if (stopped_.load(std::memory_order_acquire)) return;
    downstream_->onNext(value);
  }
  void onError(const Error& error) override {
    if (stopped_.exchange(true, std::memory_order_acq_rel)) return;
    downstream_->onError(error);
    releaseResource();
  }
  void onCompleted() override {
    if (stopped_.exchange(true, std::memory_order_acq_rel)) return;
    downstream_->onCompleted();
    releaseResource();
  }
  void dispose() noexcept override {
    stopped_.store(true, std::memory_order_release);
    releaseResource();
  }
  bool isDisposed() const noexcept override { return stopped_.load(std::memory_order_acquire); }

  void setResource(Disposable resource) { resource_.set(std::move(resource)); }

 private:
  void releaseResource() noexcept { resource_.close(); }

  ObserverPtr<T> downstream_;
  std::atomic<bool> stopped_{false};
  DisposableSlot resource_;
};

template <class T, class F>
class CreateSource final : public Source<T> {
 public:
  explicit CreateSource(F function) : function_(std::move(function)) {}
  Disposable subscribe(const ObserverPtr<T>& observer) const override {
    auto sink = std::make_shared<CreateSink<T>>(observer);
    sink->setResource(function_(AnyObserver<T>(sink)));
    return Disposable::weak(sink);
  }

 private:
  F function_;
};

// --- from -----------------------------------------------------------------------------------

template <class T>
class FromSink final : public Trampoline::Task,
                       public DisposableBase,
                       public std::enable_shared_from_this<FromSink<T>> {
 public:
  FromSink(ObserverPtr<T> downstream, std::shared_ptr<const std::vector<T>> items)
      : downstream_(std::move(downstream)), items_(std::move(items)) {}

  void run() override {
    const auto& items = *items_;
    while (!disposed_.load(std::memory_order_acquire)) {
      if (next_ == items.size()) {
        disposed_.store(true, std::memory_order_release);
        downstream_->onCompleted();
        return;
      }
      downstream_->onNext(items[next_++]);
      // Emission is one scheduled step per element: let work queued by this element run first.
      if (Trampoline::hasWaitingTasks()) {
        Trampoline::schedule(this->shared_from_this());
        return;
      }
    }
  }

  void dispose() noexcept override { disposed_.store(true, std::memory_order_release); }
  bool isDisposed() const noexcept override { return disposed_.load(std::memory_order_acquire); }

 private:
  ObserverPtr<T> downstream_;
  std::shared_ptr<const std::vector<T>> items_;
  std::size_t next_ = 0;
  std::atomic<bool> disposed_{false};
};

template <class T>
class FromSource final : public Source<T> {
 public:
  explicit FromSource(std::vector<T> items)
      : items_(std::make_shared<const std::vector<T>>(std::move(items))) {}
  Disposable subscribe(const ObserverPtr<T>& observer) const override {
    auto sink = std::make_shared<FromSink<T>>(observer, items_);
    Trampoline::schedule(sink);
    return Disposable::weak(sink);
  }

 private:
  std::shared_ptr<const std::vector<T>> items_;
};

// --- map ------------------------------------------------------------------------------------

template <class T, class U, class F>
class MapSink final : public Observer<T>, public DisposableBase {
 public:
  MapSink(ObserverPtr<U> downstream, const F& transform)
      : downstream_(std::move(downstream)), transform_(transform) {}

  void onNext(const T& value) override { downstream_->onNext(transform_(value)); }
  void onError(const Error& error) override { downstream_->onError(error); }
  void onCompleted() override { downstream_->onCompleted(); }

  void dispose() noexcept override {
    disposed_.store(true, std::memory_order_release);
    upstream_.close();
  }
  bool isDisposed() const noexcept override { return disposed_.load(std::memory_order_acquire); }

  void setUpstream(Disposable upstream) { upstream_.set(std::move(upstream)); }

 private:
  ObserverPtr<U> downstream_;
  F transform_;
  std::atomic<bool> disposed_{false};
  DisposableSlot upstream_;
};

template <class T, class U, class F>
class MapSource final : public Source<U> {
 public:
  MapSource(Observable<T> upstream, F transform)
      : upstream_(std::move(upstream)), transform_(std::move(transform)) {}

  Disposable subscribe(const ObserverPtr<U>& observer) const override {
    if (const T* value = upstream_.scalarValue()) {
      observer->onNext(transform_(*value));
      observer->onCompleted();
      return {};
    }
    auto sink = std::make_shared<MapSink<T, U, F>>(observer, transform_);
    sink->setUpstream(upstream_.subscribe(sink));
    return Disposable::weak(sink);
  }

 private:
  Observable<T> upstream_;
  F transform_;
};

// --- flatMap / mergeAll ---------------------------------------------------------------------

template <class T, class U, class F>
class FlatMapSink final : public Observer<T>,
                          public DisposableBase,
                          public std::enable_shared_from_this<FlatMapSink<T, U, F>> {
  class Inner final : public Observer<U> {
   public:
    Inner(std::shared_ptr<FlatMapSink> parent, std::uint64_t id) : parent_(std::move(parent)), id_(id) {}
    void onNext(const U& value) override { parent_->innerNext(value); }
    void onError(const Error& error) override { parent_->fail(error); }
    void onCompleted() override { parent_->innerCompleted(id_); }

   private:
    std::shared_ptr<FlatMapSink> parent_;
    std::uint64_t id_;
  };

 public:
  FlatMapSink(ObserverPtr<U> downstream, const F& transform)
      : downstream_(std::move(downstream)), transform_(transform) {}

  void onNext(const T& value) override {
    if (isDisposed()) return;
    auto inner = transform_(value);
    if (const U* scalar = inner.scalarValue()) {
      Guard guard(lock_);
      if (!stopped_) downstream_->onNext(*scalar);
      return;
    }
    std::uint64_t id = 0;
    {
      Guard guard(lock_);
      if (stopped_) return;
      id = nextId_++;
      active_.push_back({id, Disposable()});
    }
    Disposable subscription = inner.subscribe(std::make_shared<Inner>(this->shared_from_this(), id));
    {
      Guard guard(lock_);
      if (!stopped_) {
        for (auto& entry : active_) {
          if (entry.id == id) {
            entry.subscription = std::move(subscription);
            return;
          }
        }
        return;  // already completed during its subscription
      }
    }
    subscription.dispose();
  }

  void onError(const Error& error) override { fail(error); }

  void onCompleted() override {
    Guard guard(lock_);
    if (stopped_) return;
    outerDone_ = true;
    if (active_.empty()) {
      stopped_ = true;
      disposed_.store(true, std::memory_order_release);
      downstream_->onCompleted();
    }
  }

  void dispose() noexcept override {
    std::vector<Disposable> taken;
    {
      Guard guard(lock_);
      stopped_ = true;
      disposed_.store(true, std::memory_order_release);
      taken = takeSubscriptions();
    }
    for (const auto& subscription : taken) subscription.dispose();
  }
  bool isDisposed() const noexcept override { return disposed_.load(std::memory_order_acquire); }

  void setUpstream(Disposable upstream) {
    {
      Guard guard(lock_);
      if (!stopped_) {
        outer_ = std::move(upstream);
        return;
      }
    }
    upstream.dispose();
  }

 private:
  struct Active {
    std::uint64_t id;
    Disposable subscription;
  };

  void innerNext(const U& value) {
    Guard guard(lock_);
    if (!stopped_) downstream_->onNext(value);
  }

  void innerCompleted(std::uint64_t id) {
    Guard guard(lock_);
    if (stopped_) return;
    for (auto it = active_.begin(); it != active_.end(); ++it) {
      if (it->id == id) {
        active_.erase(it);
        break;
      }
    }
    if (outerDone_ && active_.empty()) {
      stopped_ = true;
      disposed_.store(true, std::memory_order_release);
      downstream_->onCompleted();
    }
  }

  void fail(const Error& error) {
    std::vector<Disposable> taken;
    {
      Guard guard(lock_);
      if (stopped_) return;
      stopped_ = true;
      disposed_.store(true, std::memory_order_release);
      taken = takeSubscriptions();
      downstream_->onError(error);
    }
    // Never dispose others while holding the lock: their locks would be taken in reverse order.
    for (const auto& subscription : taken) subscription.dispose();
  }

  std::vector<Disposable> takeSubscriptions() {
    std::vector<Disposable> taken;
    taken.reserve(active_.size() + 1);
    taken.push_back(std::move(outer_));
    outer_ = Disposable();
    for (auto& entry : active_) taken.push_back(std::move(entry.subscription));
    active_.clear();
    return taken;
  }

  ObserverPtr<U> downstream_;
  F transform_;
  Lock lock_;
  std::atomic<bool> disposed_{false};
  bool stopped_ = false;
  bool outerDone_ = false;
  std::uint64_t nextId_ = 0;
  std::vector<Active> active_;
  Disposable outer_;
};

// --- flatMapLatest --------------------------------------------------------------------------

template <class T, class U, class F>
class SwitchSink final : public Observer<T>,
                         public DisposableBase,
                         public std::enable_shared_from_this<SwitchSink<T, U, F>> {
  class Inner final : public Observer<U> {
   public:
    Inner(std::shared_ptr<SwitchSink> parent, std::uint64_t id) : parent_(std::move(parent)), id_(id) {}
    void onNext(const U& value) override { parent_->innerNext(id_, value); }
    void onError(const Error& error) override { parent_->innerError(id_, error); }
    void onCompleted() override { parent_->innerCompleted(id_); }

   private:
    std::shared_ptr<SwitchSink> parent_;
    std::uint64_t id_;
  };

 public:
  SwitchSink(ObserverPtr<U> downstream, const F& transform)
      : downstream_(std::move(downstream)), transform_(transform) {}

  void onNext(const T& value) override {
    if (isDisposed()) return;
    auto inner = transform_(value);
    const U* scalar = inner.scalarValue();
    std::uint64_t id = 0;
    Disposable previous;
    {
      Guard guard(lock_);
      if (stopped_) return;
      id = ++latest_;
      if (scalar != nullptr && !hasCurrent_) {
        // Nothing to dispose first: deliver within the same critical section.
        downstream_->onNext(*scalar);
        innerActive_ = false;
        completeIfDone();
        return;
      }
      previous = std::move(current_);
      current_ = Disposable();
      hasCurrent_ = false;
      innerActive_ = true;
    }
    // The previous inner observable is gone before the new one is subscribed.
    previous.dispose();

    if (scalar != nullptr) {
      Guard guard(lock_);
      if (stopped_ || id != latest_) return;
      downstream_->onNext(*scalar);
      innerActive_ = false;
      completeIfDone();
      return;
    }
    Disposable subscription = inner.subscribe(std::make_shared<Inner>(this->shared_from_this(), id));
    {
      Guard guard(lock_);
      if (!stopped_ && id == latest_) {
        if (innerActive_) {
          current_ = std::move(subscription);
          hasCurrent_ = true;
        }
        return;
      }
    }
    subscription.dispose();
  }

  void onError(const Error& error) override { fail(error); }

  void onCompleted() override {
    Guard guard(lock_);
    if (stopped_) return;
    outerDone_ = true;
    completeIfDone();
  }

  void dispose() noexcept override {
    Disposable outer;
    Disposable current;
    {
      Guard guard(lock_);
      stopped_ = true;
      disposed_.store(true, std::memory_order_release);
      outer = std::move(outer_);
      current = std::move(current_);
    }
    outer.dispose();
    current.dispose();
  }
  bool isDisposed() const noexcept override { return disposed_.load(std::memory_order_acquire); }

  void setUpstream(Disposable upstream) {
    {
      Guard guard(lock_);
      if (!stopped_) {
        outer_ = std::move(upstream);
        return;
      }
    }
    upstream.dispose();
  }

 private:
  void innerNext(std::uint64_t id, const U& value) {
    Guard guard(lock_);
    if (!stopped_ && id == latest_) downstream_->onNext(value);
  }

  void innerError(std::uint64_t id, const Error& error) { fail(error, id); }

  void innerCompleted(std::uint64_t id) {
    Guard guard(lock_);
    if (stopped_ || id != latest_) return;
    innerActive_ = false;
    current_ = Disposable();
    hasCurrent_ = false;
    completeIfDone();
  }

  // Called with the lock held.
  void completeIfDone() {
    if (!outerDone_ || innerActive_) return;
    stopped_ = true;
    disposed_.store(true, std::memory_order_release);
    downstream_->onCompleted();
  }

  // Ends the stream with `error`: from the source, or from the inner observable `inner`, which
  // must still be the latest one at that moment. Checking that and ending under one hold of the
  // lock keeps a newer element, arriving on another thread, from superseding the failing inner
  // observable in between.
  void fail(const Error& error, std::optional<std::uint64_t> inner = std::nullopt) {
    Disposable outer;
    Disposable current;
    {
      Guard guard(lock_);
      if (stopped_ || (inner && *inner != latest_)) return;
      stopped_ = true;
      disposed_.store(true, std::memory_order_release);
      outer = std::move(outer_);
      current = std::move(current_);
      downstream_->onError(error);
    }
    outer.dispose();
    current.dispose();
  }

  ObserverPtr<U> downstream_;
  F transform_;
  Lock lock_;
  std::atomic<bool> disposed_{false};
  bool stopped_ = false;
  bool outerDone_ = false;
  bool innerActive_ = false;
  bool hasCurrent_ = false;
  std::uint64_t latest_ = 0;
  Disposable outer_;
  Disposable current_;
};

template <class T, class U, class F, template <class, class, class> class Sink>
class InnerObservableSource final : public Source<U> {
 public:
  InnerObservableSource(Observable<T> upstream, F transform)
      : upstream_(std::move(upstream)), transform_(std::move(transform)) {}

  Disposable subscribe(const ObserverPtr<U>& observer) const override {
    auto sink = std::make_shared<Sink<T, U, F>>(observer, transform_);
    sink->setUpstream(upstream_.subscribe(sink));
    return Disposable::weak(sink);
  }

 private:
  Observable<T> upstream_;
  F transform_;
};

struct APPLOGIC_EXPORT Identity {
  template <class V>
  const V& operator()(const V& value) const noexcept {
    return value;
  }
};

}  // namespace detail

template <class T>
template <class F>
auto Observable<T>::map(F transform) const -> Observable<std::decay_t<std::invoke_result_t<F&, const T&>>> {
  using U = std::decay_t<std::invoke_result_t<F&, const T&>>;
  return Observable<U>(std::make_shared<const detail::MapSource<T, U, F>>(*this, std::move(transform)));
}

template <class T>
template <class F>
auto Observable<T>::flatMap(F transform) const
    -> Observable<typename detail::IsObservable<std::decay_t<std::invoke_result_t<F&, const T&>>>::Element> {
  using U = typename detail::IsObservable<std::decay_t<std::invoke_result_t<F&, const T&>>>::Element;
  return Observable<U>(std::make_shared<const detail::InnerObservableSource<T, U, F, detail::FlatMapSink>>(
      *this, std::move(transform)));
}

template <class T>
template <class F>
auto Observable<T>::flatMapLatest(F transform) const
    -> Observable<typename detail::IsObservable<std::decay_t<std::invoke_result_t<F&, const T&>>>::Element> {
  using U = typename detail::IsObservable<std::decay_t<std::invoke_result_t<F&, const T&>>>::Element;
  return Observable<U>(std::make_shared<const detail::InnerObservableSource<T, U, F, detail::SwitchSink>>(
      *this, std::move(transform)));
}

/// Fails with `error` at once on subscription.
template <class T>
Observable<T> error(Error error) {
  return Observable<T>(std::make_shared<const detail::ErrorSource<T>>(std::move(error)));
}

/// Completes at once on subscription.
template <class T>
Observable<T> empty() {
  return Observable<T>(std::make_shared<const detail::EmptySource<T>>());
}

/// Never emits and never terminates.
template <class T>
Observable<T> never() {
  return Observable<T>(std::make_shared<const detail::NeverSource<T>>());
}

/// An observable whose every subscription calls `function` with an observer to push events to.
/// `function` returns the subscription's resource; it is disposed exactly once, after the
/// subscription ends in any way (termination, disposal, or no one left to deliver). Events
/// after a terminal event or after disposal are ignored.
template <class T, class F>
Observable<T> create(F function) {
  static_assert(std::is_invocable_r_v<Disposable, F&, AnyObserver<T>>,
                "create's function takes an AnyObserver<T> and returns a Disposable");
  return Observable<T>(std::make_shared<const detail::CreateSource<T, F>>(std::move(function)));
}

/// Emits the elements in order, then completes, on the current thread's trampoline: the
/// outermost subscription on a thread runs the emission; a subscription made during another
/// emission on the same thread is queued until that one yields, one element at a time.
template <class T>
Observable<T> from(std::vector<T> items) {
  return Observable<T>(std::make_shared<const detail::FromSource<T>>(std::move(items)));
}

/// Merges the observables emitted by `sources`, with `flatMap`'s error and completion rules.
template <class T>
Observable<T> mergeAll(const Observable<Observable<T>>& sources) {
  return sources.flatMap(detail::Identity{});
}

/// Merges `sources`: subscribed to in order (through `from`), elements interleaved as they come.
template <class T>
Observable<T> merge(std::vector<Observable<T>> sources) {
  return mergeAll(from(std::move(sources)));
}

}  // namespace applogic::rx
