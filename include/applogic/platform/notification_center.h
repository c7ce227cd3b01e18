#pragma once

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "applogic/export.h"

namespace applogic::platform {

/// A notification's user information: values of any copyable type by key. Each notification
/// name documents the keys it carries and the C++ type of each value.
using NotificationUserInfo = std::map<std::string, std::any, std::less<>>;

/// One posted notification.
///
/// `object` identifies the object the notification is about (a media item, a session) by its
/// address; it is only ever compared, never dereferenced. Null means "about no object".
struct APPLOGIC_EXPORT Notification {
  std::string name;
  const void* object = nullptr;
  NotificationUserInfo userInfo;
};

/// The value under `key` when it is there with type `T`, else null. The pointer is valid while
/// the notification is.
template <class T>
const T* userInfoValue(const Notification& notification, std::string_view key) {
  const auto found = notification.userInfo.find(key);
  return found == notification.userInfo.end() ? nullptr : std::any_cast<T>(&found->second);
}

/// The registration of one observer; `NotificationCenter::removeObserver` takes it back. Two
/// registrations are the same only if they are the same object.
class APPLOGIC_EXPORT NotificationObserver {
 public:
  virtual ~NotificationObserver() = default;
};

using NotificationObserverToken = std::shared_ptr<const NotificationObserver>;

/// Delivers notifications by name and object to the observers registered for them, within the
/// process.
///
/// Thread contract: every member may be called from any thread, concurrently. A post calls the
/// matching handlers synchronously on the posting thread, in registration order, outside any
/// lock of the center: handlers may post, add and remove observers. Once `removeObserver`
/// returns on a thread, that thread's later posts no longer call the removed handler; a post
/// already running on another thread may still call it once.
class APPLOGIC_EXPORT NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;

  virtual ~NotificationCenter() = default;

  /// Registers `handler` for notifications named `name` (absent: every name) about `object`
  /// (null: any object). Returns the registration; keeping it does not keep anything else alive,
  /// and dropping it does not remove the observer.
  virtual NotificationObserverToken addObserver(std::optional<std::string> name, const void* object,
                                                Handler handler) = 0;

  /// Removes the registration; a token that is null, unknown or already removed is ignored.
  virtual void removeObserver(const NotificationObserverToken& token) = 0;

  /// Calls every handler registered for this name and object.
  virtual void post(const Notification& notification) = 0;
};

/// A new, empty in-process notification center: the implementation every platform uses.
APPLOGIC_EXPORT std::shared_ptr<NotificationCenter> makeNotificationCenter();

}  // namespace applogic::platform
