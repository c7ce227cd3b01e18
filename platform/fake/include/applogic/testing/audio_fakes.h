#pragma once

#include <memory>
#include <utility>

#include "applogic/platform/notification_center.h"
#include "applogic/platform/platform.h"
#include "applogic/testing/manual_main_thread.h"
#include "applogic/testing/scripted_audio_session.h"
#include "applogic/testing/scripted_media_player.h"

namespace applogic::testing {

/// The audio doubles wired together: one in-process notification center that the scripted
/// session backend and the scripted players post to, and a manual main thread. `platform()`
/// hands them out as a `Platform` (the members audio does not use stay null). The players report
/// the failures and ends they decide themselves (`setFaultPlan`, `playToEnd`) through the manual
/// main thread.
struct AudioFakes {
  /// The doubles over `center`, a new in-process center by default.
  explicit AudioFakes(std::shared_ptr<platform::NotificationCenter> center = platform::makeNotificationCenter())
      : notificationCenter(std::move(center)),
        audioSession(std::make_shared<ScriptedAudioSessionBackend>(notificationCenter)),
        media(std::make_shared<ScriptedMediaPlayerFactory>(notificationCenter, mainThread)) {}

  std::shared_ptr<ManualMainThread> mainThread = std::make_shared<ManualMainThread>();
  std::shared_ptr<platform::NotificationCenter> notificationCenter;
  std::shared_ptr<ScriptedAudioSessionBackend> audioSession;
  std::shared_ptr<ScriptedMediaPlayerFactory> media;

  /// Shared by the session backend and the players made from now on; null: nothing fails.
  void setFaultPlan(const std::shared_ptr<FaultPlan>& plan) {
    audioSession->setFaultPlan(plan);
    media->setFaultPlan(plan);
  }

  platform::Platform platform() const {
    platform::Platform result;
    result.mainThread = mainThread;
    result.notificationCenter = notificationCenter;
    result.audioSessionBackend = audioSession;
    result.mediaPlayers = media;
    return result;
  }
};

}  // namespace applogic::testing
