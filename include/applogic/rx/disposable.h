#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "applogic/export.h"

namespace applogic::rx {

namespace detail {

/// Anything that can be told to stop: a subscription stage, a resource, a composite.
class APPLOGIC_EXPORT DisposableBase {
 public:
  virtual ~DisposableBase() = default;
  /// Idempotent; may be called from any thread.
  virtual void dispose() noexcept = 0;
  virtual bool isDisposed() const noexcept = 0;
};

}  // namespace detail

class DisposeBag;

/// A handle that ends a subscription or releases a resource.
///
/// Two kinds exist, and both behave the same for the holder:
/// - the handle that `subscribe` returns refers to the subscription without keeping it alive: a
///   subscription lives as long as its source can still deliver to it, and ends when the source
///   terminates, when it is disposed, or when its source is gone (a subject destroyed without
///   completing). Dropping the handle does not end the subscription.
/// - a handle made with `create(action)` or from a `CompositeDisposable` owns what it refers to.
///
/// A default-constructed handle refers to nothing and counts as disposed. Copies refer to the
/// same target. `dispose()` and `isDisposed()` are thread-safe.
class APPLOGIC_EXPORT Disposable {
 public:
  Disposable() noexcept = default;

  /// An owning handle.
  explicit Disposable(std::shared_ptr<detail::DisposableBase> target) noexcept
      : strong_(std::move(target)) {}

  /// A non-owning handle (what `subscribe` returns).
  static Disposable weak(const std::shared_ptr<detail::DisposableBase>& target) noexcept {
    Disposable handle;
    handle.weak_ = target;
    return handle;
  }

  /// A handle that runs `action` once, on the first `dispose()`.
  static Disposable create(std::function<void()> action);

  /// A handle that refers to nothing (already disposed).
  static Disposable empty() noexcept { return {}; }

  void dispose() const noexcept {
    if (strong_) {
      strong_->dispose();
    } else if (auto target = weak_.lock()) {
      target->dispose();
    }
  }

  /// True once disposed, once the subscription has terminated, or when it refers to nothing.
  bool isDisposed() const noexcept {
    if (strong_) return strong_->isDisposed();
    auto target = weak_.lock();
    return !target || target->isDisposed();
  }

  /// Adds this handle to `bag`, which disposes it when the bag is destroyed.
  void disposed(DisposeBag& bag) const;

 private:
  std::shared_ptr<detail::DisposableBase> strong_;
  std::weak_ptr<detail::DisposableBase> weak_;
};

/// Owns a group of handles; disposing it disposes every handle in it and every handle added
/// later. Thread-safe.
class APPLOGIC_EXPORT CompositeDisposable final : public detail::DisposableBase {
 public:
  void add(Disposable handle) {
    {
      std::lock_guard lock(mutex_);
      if (!disposed_) {
        handles_.push_back(std::move(handle));
        return;
      }
    }
    handle.dispose();
  }

  void dispose() noexcept override {
    std::vector<Disposable> taken;
    {
      std::lock_guard lock(mutex_);
      disposed_ = true;
      taken.swap(handles_);
    }
    // Disposed outside the lock: a handle may reach back into this composite.
    for (const auto& handle : taken) handle.dispose();
  }

  bool isDisposed() const noexcept override {
    std::lock_guard lock(mutex_);
    return disposed_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Disposable> handles_;
  bool disposed_ = false;
};

/// Ends the subscriptions it holds when its owner goes (on destruction). Not copyable.
/// `insert` is thread-safe.
class APPLOGIC_EXPORT DisposeBag {
 public:
  DisposeBag() : composite_(std::make_shared<CompositeDisposable>()) {}
  ~DisposeBag() { composite_->dispose(); }
  DisposeBag(const DisposeBag&) = delete;
  DisposeBag& operator=(const DisposeBag&) = delete;

  void insert(Disposable handle) { composite_->add(std::move(handle)); }

 private:
  std::shared_ptr<CompositeDisposable> composite_;
};

inline void Disposable::disposed(DisposeBag& bag) const { bag.insert(*this); }

namespace detail {

class APPLOGIC_EXPORT ActionDisposable final : public DisposableBase {
 public:
  explicit ActionDisposable(std::function<void()> action) : action_(std::move(action)) {}
  void dispose() noexcept override {
    if (disposed_.exchange(true, std::memory_order_acq_rel)) return;
    if (action_) std::exchange(action_, nullptr)();
  }
  bool isDisposed() const noexcept override { return disposed_.load(std::memory_order_acquire); }

 private:
  std::atomic<bool> disposed_{false};
  std::function<void()> action_;
};

}  // namespace detail

inline Disposable Disposable::create(std::function<void()> action) {
  return Disposable(std::make_shared<detail::ActionDisposable>(std::move(action)));
}

}  // namespace applogic::rx
