#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "applogic/rx/observable.h"

namespace applogic::rx {

/// What one subscription delivered.
template <class T>
struct Events {
  std::vector<T> values;
  std::optional<Error> error;
  bool completed = false;

  bool terminated() const noexcept { return completed || error.has_value(); }
};

/// Subscribes to `source` and waits, on the calling thread, until it terminates or `timeout`
/// passes; then disposes the subscription and returns what arrived. Events delivered on the
/// calling thread during `subscribe` count too. Must not be called from the thread that would
/// have to deliver the events later (it would wait for the whole timeout).
template <class T>
Events<T> blockingCollect(const Observable<T>& source,
                          std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
  struct Shared {
    std::mutex mutex;
    std::condition_variable changed;
    Events<T> events;
  };
  auto shared = std::make_shared<Shared>();
  Disposable subscription = source.subscribe(
      [shared](const T& value) {
        std::lock_guard lock(shared->mutex);
        shared->events.values.push_back(value);
      },
      [shared](const Error& error) {
        std::lock_guard lock(shared->mutex);
        shared->events.error = error;
        shared->changed.notify_all();
      },
      [shared] {
        std::lock_guard lock(shared->mutex);
        shared->events.completed = true;
        shared->changed.notify_all();
      });
  Events<T> result;
  {
    std::unique_lock lock(shared->mutex);
    shared->changed.wait_for(lock, timeout, [&] { return shared->events.terminated(); });
    result = shared->events;
  }
  subscription.dispose();
  return result;
}

}  // namespace applogic::rx
