#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "applogic/rx/rx.h"

namespace applogic::rx::test {

// Records every event of one subscription as text, in order, so that a test can compare the
// whole history with one expectation ("1", "2", "completed", "error:domain/code").
template <class T>
struct Recorder {
  std::shared_ptr<std::vector<std::string>> log = std::make_shared<std::vector<std::string>>();

  Disposable subscribeTo(const Observable<T>& source) const {
    auto events = log;
    return source.subscribe([events](const T& value) { events->push_back(describe(value)); },
                            [events](const Error& error) {
                              events->push_back("error:" + error.domain + "/" + std::to_string(error.code));
                            },
                            [events] { events->push_back("completed"); });
  }

  const std::vector<std::string>& events() const { return *log; }

  static std::string describe(const T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
      return value;
    } else {
      return std::to_string(value);
    }
  }
};

// A source that ignores disposal: it keeps the observer of every subscription, so that a test
// can deliver what an observable would deliver when its event was already on its way as it was
// disposed (the usual case on another thread).
template <class T>
struct HeldSource final : detail::Source<T> {
  mutable std::vector<ObserverPtr<T>> observers;
  Disposable subscribe(const ObserverPtr<T>& observer) const override {
    observers.push_back(observer);
    return {};
  }
};

inline Error testError(std::string domain = "test", std::int64_t code = 7) {
  return Error{std::move(domain), code, {}};
}

}  // namespace applogic::rx::test
