#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "applogic/support/error.h"
#include "applogic/support/result.h"

namespace applogic {

/// A value that arrives later: pending at first, then settled once, either resolved with a `T`
/// or rejected with an `Error`. The first `resolve` or `reject` settles it; every later attempt
/// is ignored (and returns false).
///
/// Continuations: `then` runs its function with the value if the deferred is resolved, `fail`
/// runs its function with the error if it is rejected, `done` registers one of each. They may be
/// registered before or after settlement; each registered function runs at most once, and
/// exactly once when the outcome is its kind (a `then` function never runs for a rejected
/// deferred). Functions registered before settlement run in registration order.
///
/// Thread contract: every member may be called from any thread, concurrently. A continuation
/// registered while the deferred is pending runs on the thread that settles it, after the
/// settling call has stored the outcome and outside any lock (so it may register further
/// continuations or settle other deferreds); one registered after settlement runs at once on the
/// registering thread, before `then`/`fail`/`done` returns.
///
/// A small handle: copies share the same deferred, which lives as long as any copy or any
/// pending continuation of it. A continuation that captures a copy of its own deferred keeps
/// it alive until it settles.
template <class T>
class ZDSDeferred {
 public:
  using OnResolved = std::function<void(const T&)>;
  using OnRejected = std::function<void(const Error&)>;

  /// A new pending deferred.
  ZDSDeferred() : state_(std::make_shared<State>()) {}

  /// Resolves with `value` if still pending; returns whether this call settled it.
  bool resolve(T value) const { return state_->settle(Result<T>::success(std::move(value))); }

  /// Rejects with `error` if still pending; returns whether this call settled it.
  bool reject(Error error) const { return state_->settle(Result<T>::failure(std::move(error))); }

  /// Runs `onResolved` with the value once resolved. An empty function is ignored.
  const ZDSDeferred& then(OnResolved onResolved) const {
    state_->add(std::move(onResolved), nullptr);
    return *this;
  }

  /// Runs `onRejected` with the error once rejected. An empty function is ignored.
  const ZDSDeferred& fail(OnRejected onRejected) const {
    state_->add(nullptr, std::move(onRejected));
    return *this;
  }

  /// `then(onResolved)` and `fail(onRejected)` in one registration.
  const ZDSDeferred& done(OnResolved onResolved, OnRejected onRejected) const {
    state_->add(std::move(onResolved), std::move(onRejected));
    return *this;
  }

  /// The outcome, or absent while pending. A snapshot: another thread may settle it right after.
  std::optional<Result<T>> outcome() const {
    std::lock_guard lock(state_->mutex);
    return state_->outcome;
  }

  bool isPending() const { return !outcome().has_value(); }

  /// Identity: true when both handles share the same deferred.
  friend bool operator==(const ZDSDeferred& a, const ZDSDeferred& b) noexcept { return a.state_ == b.state_; }

 private:
  struct Continuation {
    OnResolved onResolved;
    OnRejected onRejected;

    void run(const Result<T>& outcome) const {
      if (outcome.ok()) {
        if (onResolved) onResolved(outcome.value());
      } else if (onRejected) {
        onRejected(outcome.error());
      }
    }
  };

  struct State {
    bool settle(Result<T> result) {
      std::vector<Continuation> waiting;
      {
        std::lock_guard lock(mutex);
        if (outcome) return false;
        outcome.emplace(std::move(result));
        waiting.swap(continuations);
      }
      // The outcome never changes once stored, so it is read without the lock.
      for (const Continuation& continuation : waiting) continuation.run(*outcome);
      return true;
    }

    void add(OnResolved onResolved, OnRejected onRejected) {
      Continuation continuation{std::move(onResolved), std::move(onRejected)};
      {
        std::lock_guard lock(mutex);
        if (!outcome) {
          continuations.push_back(std::move(continuation));
          return;
        }
      }
      continuation.run(*outcome);
    }

    mutable std::mutex mutex;
    std::optional<Result<T>> outcome;
    std::vector<Continuation> continuations;
  };

  std::shared_ptr<State> state_;
};

}  // namespace applogic
