#pragma once

#include <memory>
#include <string>
#include <vector>

#include "applogic/rx/rx.h"

namespace applogic::rx::test {

using Log = std::vector<std::string>;

// Records events as text ("1", "completed", "error:d/7"). Unlike `subscribe` with callbacks it
// has no guard of its own, so an operator that delivers after its end is seen.
struct Recorder {
  struct Sink final : Observer<int> {
    std::shared_ptr<Log> log = std::make_shared<Log>();
    void onNext(const int& value) override { log->push_back(std::to_string(value)); }
    void onError(const Error& error) override { log->push_back("error:" + error.domain + "/" + std::to_string(error.code)); }
    void onCompleted() override { log->push_back("completed"); }
  };
  std::shared_ptr<Sink> sink = std::make_shared<Sink>();

  Disposable subscribeTo(const Observable<int>& source) const { return source.subscribe(sink); }
  const Log& events() const { return *sink->log; }
};

// Keeps the observer of every subscription and ignores disposal (noting how many subscriptions
// there were then): a test delivers what was on its way (on another thread) at the disposal.
template <class T>
struct HeldSource final : detail::Source<T> {
  mutable std::vector<ObserverPtr<T>> observers;
  mutable std::vector<std::size_t> disposedAt;
  Disposable subscribe(const ObserverPtr<T>& observer) const override {
    observers.push_back(observer);
    return Disposable::create([this] { disposedAt.push_back(observers.size()); });
  }
};

inline Error testError(std::string domain = "test") { return Error{std::move(domain), 7, {}}; }

}  // namespace applogic::rx::test
