#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/platform/audio_session_backend.h"
#include "applogic/platform/notification_center.h"
#include "applogic/platform/platform.h"
#include "applogic/rx/observable.h"
#include "applogic/support/error.h"

namespace applogic {

/// Whether another app or the system has taken the sound away. Any `int32_t` may be stored.
enum VXAudioSessionInterruptState : std::int32_t {
  /// The initial state; also an interruption notification of an unknown type.
  VXAudioSessionInterruptStateNone = 0,
  /// An interruption began.
  VXAudioSessionInterruptStateInterrupted = 1,
  /// An interruption ended.
  VXAudioSessionInterruptStateEnded = 2,
};

/// The domain of the errors `VXAudioSession` makes itself (code 0: the platform refused to
/// switch the session on or off).
inline constexpr std::string_view VXAudioSessionErrorDomain = "VXAudioSessionErrorDomain";
/// The user-info key of those errors, under which the status number 0 is stored.
inline constexpr std::string_view VXAudioSessionOSStatusKey = "VXAudioSessionOSStatusKey";

/// The process's audio session shared by several independent players.
///
/// - Activation is counted: the platform session is switched on by the first `setActive(true)`
///   and off by the matching last `setActive(false)`, and the host's `isApplicationInBackground`
///   vetoes both while the app is in the background.
/// - Route changes and interruptions posted by the platform are handed to any number of
///   watchers, in the order they were registered. Listening to the platform happens exactly while
///   at least one watcher of that kind is registered.
///
/// Thread contract: the class takes no locks. The host serialises activation, category changes
/// and watcher registration (one thread, or its own lock); `activeCount` alone may be read and
/// written from any thread. Watchers run synchronously on the thread that posts the platform
/// notification (see the backend's contract) or that calls `send...Message`/`doInterrupt`.
///
/// Instances are owned by a `std::shared_ptr` (`sharedSession()`, or `std::make_shared` in tests
/// and hosts with several sessions); `owningAudioSession` requires it.
class APPLOGIC_EXPORT VXAudioSession : public std::enable_shared_from_this<VXAudioSession> {
 public:
  /// Called with (reason 0-8, name of the old route's first output, name of the current route's
  /// first output); a route without outputs gives an absent name.
  using RouteWatcher =
      std::function<void(int reason, const std::optional<std::string>& fromRoute, const std::optional<std::string>& toRoute)>;
  /// Called with (new state, whether the app should resume now that the interruption ended).
  using InterruptWatcher = std::function<void(VXAudioSessionInterruptState state, bool shouldResumeOnEnd)>;
  /// The registration of a watcher: the stored copy itself, compared by identity.
  using RouteWatcherToken = std::shared_ptr<const RouteWatcher>;
  using InterruptWatcherToken = std::shared_ptr<const InterruptWatcher>;

  /// A session over `session` that listens on `notificationCenter` (the center the backend posts
  /// to). No watchers, count 0, state none. Both must be non-null.
  VXAudioSession(std::shared_ptr<platform::AudioSessionBackend> session,
                 std::shared_ptr<platform::NotificationCenter> notificationCenter);
  /// Stops listening to the platform.
  ~VXAudioSession();
  VXAudioSession(const VXAudioSession&) = delete;
  VXAudioSession& operator=(const VXAudioSession&) = delete;

  // --- the process-wide session --------------------------------------------------------------

  /// Sets where `sharedSession` takes its backend and notification center from
  /// (`platform.audioSessionBackend`, `platform.notificationCenter`). Hosts call it once at start,
  /// before the first `sharedSession()`; later calls only matter after `resetSharedSession`.
  /// Thread-safe.
  static void installPlatform(const platform::Platform& platform);

  /// The process's session, made on the first call from the installed platform and kept until
  /// `resetSharedSession`. Thread-safe; every call returns the same object. Stops the program
  /// (`fatalError`) when no platform with both members was installed: that is a host bug.
  static std::shared_ptr<VXAudioSession> sharedSession();

  /// Forgets the shared session and the installed platform, so that a test starts from a clean
  /// process. Holders of the old session keep it. Thread-safe.
  static void resetSharedSession();

  /// `doInterrupt` of the shared session.
  static void sharedDoInterrupt(VXAudioSessionInterruptState state, bool canResume);
  /// `getAudioProperty` of the shared session.
  static std::optional<std::string> sharedGetAudioProperty(int property);

  // --- properties ----------------------------------------------------------------------------

  /// Outstanding activations; negative after unmatched deactivations (it is not clamped).
  std::int32_t activeCount() const { return activeCount_.load(); }
  void setActiveCount(std::int32_t count) { activeCount_.store(count); }

  /// The platform session.
  platform::AudioSessionBackend& session() const { return *session_; }

  VXAudioSessionInterruptState interruptState() const { return interruptState_; }
  void setInterruptState(VXAudioSessionInterruptState state) { interruptState_ = state; }

  /// The registered watchers, in registration order.
  const std::vector<RouteWatcherToken>& routeWatchers() const { return routeWatchers_; }
  const std::vector<InterruptWatcherToken>& interruptWatchers() const { return interruptWatchers_; }

  /// The platform session's category.
  std::string category() const;

  /// The host's answer to "is the app in the background now?". It must be set before the first
  /// `setActive`, which stops the program (`fatalError`) when it is not.
  const std::function<bool()>& isApplicationInBackground() const { return isApplicationInBackground_; }
  void setIsApplicationInBackground(std::function<bool()> block) { isApplicationInBackground_ = std::move(block); }

  // --- operations ----------------------------------------------------------------------------

  /// Counted activation. In the background: returns true and changes nothing. Otherwise counts
  /// up or down and switches the platform session on the 0→1 and 1→0 steps only; when the
  /// platform refuses, returns false, writes a `VXAudioSessionErrorDomain` error (code 0,
  /// `VXAudioSessionOSStatusKey`: 0) to `error` when it is not null, and rolls the count back
  /// (to 0 after a failed activation, to 1 after a failed deactivation). A deactivation at 0
  /// leaves the platform alone and brings the count to -1.
  bool setActive(bool active, Error* error);

  /// Sets the platform category; the platform's result and error, unchanged.
  bool setCategory(std::string_view category, Error* error);

  /// Sets the playback category, with the mix-with-others option only when both flags are true
  /// (`mediaPlayback` chooses no category of its own). The platform's result and error.
  bool setMediaPlayback(bool mediaPlayback, bool mixWithOthers, Error* error);

  /// Asks the platform for permission to record; `response` is called as the backend says.
  void requestRecordPermission(std::function<void(bool granted)> response);

  /// Registers `watcher` and returns its token; the first registration starts listening to the
  /// platform's route changes. Listening to the notification center cannot fail: the token is
  /// never null and `error` is left as it was.
  RouteWatcherToken doWhenRouteChanges(RouteWatcher watcher, Error* error);
  /// Removes the watcher with this identity; removing the last stops listening. Unknown or null
  /// tokens are ignored.
  void stopWhenRouteChanges(const RouteWatcherToken& token);

  /// As `doWhenRouteChanges`, for interruptions.
  InterruptWatcherToken doWhenInterrupted(InterruptWatcher watcher, Error* error);
  void stopWhenInterrupted(const InterruptWatcherToken& token);

  /// Injects an interruption: `sendInterruptMessage(state, canResume)`.
  void doInterrupt(VXAudioSessionInterruptState state, bool canResume);

  /// Calls every route watcher with these arguments.
  void sendRouteChangeMessage(int reason, const std::optional<std::string>& fromRoute,
                              const std::optional<std::string>& toRoute);

  /// Stores `state` in `interruptState`, then calls every interrupt watcher.
  void sendInterruptMessage(VXAudioSessionInterruptState state, bool shouldResumeOnEnd);

  /// Property 1: the kind of the current route's first output ("Speaker" when it has none).
  /// Any other property: absent.
  std::optional<std::string> getAudioProperty(int property) const;

  /// Whether this app owns the sound: each subscription gets `interruptState != interrupted` at
  /// once and again after every interruption message, on the thread that delivers it; disposal
  /// unregisters its watcher. A subscription made after the session was destroyed completes at
  /// once. The session must be
  /// owned by a `std::shared_ptr` (the program stops otherwise).
  rx::Observable<bool> owningAudioSession();

 private:
  bool intSetActive(bool active, Error* error);
  void setUpRouteChangeListener();
  void tearDownRouteChangeListener();
  void setUpInterruptListener();
  void tearDownInterruptListener();
  void routeChanged(const platform::Notification& notification);
  void interruptChanged(const platform::Notification& notification);

  std::shared_ptr<platform::AudioSessionBackend> session_;
  std::shared_ptr<platform::NotificationCenter> notificationCenter_;
  std::atomic<std::int32_t> activeCount_{0};
  VXAudioSessionInterruptState interruptState_ = VXAudioSessionInterruptStateNone;
  std::vector<RouteWatcherToken> routeWatchers_;
  std::vector<InterruptWatcherToken> interruptWatchers_;
  std::function<bool()> isApplicationInBackground_;
  platform::NotificationObserverToken routeListener_;
  platform::NotificationObserverToken interruptListener_;
};

}  // namespace applogic
