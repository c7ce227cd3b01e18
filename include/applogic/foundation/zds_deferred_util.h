#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "applogic/export.h"
#include "applogic/foundation/zds_deferred.h"
#include "applogic/rx/observable.h"
#include "applogic/support/error.h"

namespace applogic {

/// Conversions between reactive streams and deferred values. Stateless.
class APPLOGIC_EXPORT ZDSDeferredUtil {
 public:
  /// The error of a stream that completed without a value: domain "ZDSDeferredUtil", code 1,
  /// no user information.
  [[nodiscard]] static Error noValueError();

  /// Subscribes to `source` at once and returns a deferred that settles with the stream's first
  /// event: resolved with the first value (the subscription is then disposed, so later values
  /// and the stream's end are not waited for), rejected with the stream's error, or rejected
  /// with `noValueError()` when it completes without a value.
  ///
  /// Thread contract: may be called from any thread. The deferred settles on the thread the
  /// stream delivers that first event on, which is the calling thread, before this function
  /// returns, when the stream delivers during subscription. Dropping every copy of the deferred
  /// does not end the subscription; it ends with its first event or with its source.
  template <class T>
  static ZDSDeferred<T> fromObservable(const rx::Observable<T>& source) {
    ZDSDeferred<T> deferred;
    // The first value may arrive during `subscribe`, before its handle exists; whichever of the
    // two comes second disposes the subscription.
    struct Link {
      std::mutex mutex;
      bool settled = false;
      rx::Disposable subscription;

      void settledNow() {
        rx::Disposable handle;
        {
          std::lock_guard lock(mutex);
          settled = true;
          handle = std::exchange(subscription, rx::Disposable());
        }
        handle.dispose();
      }
    };
    auto link = std::make_shared<Link>();
    rx::Disposable subscription = source.subscribe(
        [deferred, link](const T& value) {
          if (deferred.resolve(value)) link->settledNow();
        },
        [deferred](const Error& error) { deferred.reject(error); },
        [deferred] { deferred.reject(noValueError()); });
    {
      std::lock_guard lock(link->mutex);
      if (!link->settled) {
        link->subscription = std::move(subscription);
        return deferred;
      }
    }
    subscription.dispose();
    return deferred;
  }
};

}  // namespace applogic
