#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/support/error.h"

namespace applogic::platform {

/// One input or output of an audio route; `portType` names its kind ("Speaker", "Headphones").
struct APPLOGIC_EXPORT AudioSessionPortDescription {
  std::string portType;

  friend bool operator==(const AudioSessionPortDescription&, const AudioSessionPortDescription&) = default;
};

/// An audio route: where sound currently comes from and goes to. Either list may be empty.
struct APPLOGIC_EXPORT AudioSessionRouteDescription {
  std::vector<AudioSessionPortDescription> inputs;
  std::vector<AudioSessionPortDescription> outputs;

  friend bool operator==(const AudioSessionRouteDescription&, const AudioSessionRouteDescription&) = default;
};

/// Category options, a bit set.
using AudioSessionCategoryOptions = std::uint32_t;
/// Mix with other apps' sound instead of interrupting it.
inline constexpr AudioSessionCategoryOptions kAudioSessionCategoryOptionMixWithOthers = 1;

/// The category of an app whose main job is playing sound.
inline constexpr std::string_view kAudioSessionCategoryPlayback = "AVAudioSessionCategoryPlayback";
/// The category a session has before anyone sets one.
inline constexpr std::string_view kAudioSessionCategorySoloAmbient = "AVAudioSessionCategorySoloAmbient";

/// Posted by the backend, with the backend as object, when the audio route changed. User info:
/// `kAudioSessionRouteChangeReasonKey` (`int`, 0-8: unknown, new device available, old device
/// unavailable, category change, override, -, wake from sleep, no suitable route for category,
/// route configuration change) and `kAudioSessionRouteChangePreviousRouteKey`
/// (`AudioSessionRouteDescription`).
inline constexpr std::string_view kAudioSessionRouteChangeNotification = "AVAudioSessionRouteChangeNotification";
inline constexpr std::string_view kAudioSessionRouteChangeReasonKey = "AVAudioSessionRouteChangeReasonKey";
inline constexpr std::string_view kAudioSessionRouteChangePreviousRouteKey =
    "AVAudioSessionRouteChangePreviousRouteKey";

/// Posted by the backend, with the backend as object, when another app or the system took the
/// sound away or gave it back. User info: `kAudioSessionInterruptionTypeKey` (`int`: 1 began,
/// 0 ended) and, when it ended, `kAudioSessionInterruptionOptionKey` (`int`: 1 means the app
/// should resume).
inline constexpr std::string_view kAudioSessionInterruptionNotification = "AVAudioSessionInterruptionNotification";
inline constexpr std::string_view kAudioSessionInterruptionTypeKey = "AVAudioSessionInterruptionTypeKey";
inline constexpr std::string_view kAudioSessionInterruptionOptionKey = "AVAudioSessionInterruptionOptionKey";

/// The platform's audio session: the process's claim on the sound output, its category and the
/// current route. Posts its route-change and interruption notifications to the notification
/// center it was made with.
///
/// Thread contract: members may be called from any thread; the host serialises calls that must
/// not overlap. Notifications are posted on a thread of the backend's choosing (documented by
/// each port); the record-permission answer arrives on such a thread too.
class APPLOGIC_EXPORT AudioSessionBackend {
 public:
  virtual ~AudioSessionBackend() = default;

  /// Switches the session on or off. On failure returns false and, when `error` is not null,
  /// writes the platform's error there.
  virtual bool setActive(bool active, Error* error) = 0;

  /// Sets the category with no options. Failure as for `setActive`.
  virtual bool setCategory(std::string_view category, Error* error) = 0;

  /// Sets the category and its options. Failure as for `setActive`.
  virtual bool setCategory(std::string_view category, AudioSessionCategoryOptions options, Error* error) = 0;

  /// The current category.
  virtual std::string category() const = 0;

  /// The route sound takes now.
  virtual AudioSessionRouteDescription currentRoute() const = 0;

  /// Asks the user, when needed, for permission to record; `response` is called once with the
  /// answer.
  virtual void requestRecordPermission(std::function<void(bool granted)> response) = 0;
};

}  // namespace applogic::platform
