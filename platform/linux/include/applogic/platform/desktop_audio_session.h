#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "applogic/platform/audio_session_backend.h"
#include "applogic/platform/notification_center.h"

namespace applogic::platform {

/// The Linux `AudioSessionBackend`. A desktop has no session to claim: activation and category
/// changes always succeed (the category is remembered), recording needs no permission (the
/// answer is "granted", inside the call), and the route is one output, "Speaker".
///
/// Thread contract: any thread, concurrently. It posts no notifications yet.
class DesktopAudioSession final : public AudioSessionBackend {
 public:
  explicit DesktopAudioSession(std::shared_ptr<NotificationCenter> notificationCenter);

  bool setActive(bool active, Error* error) override;
  bool setCategory(std::string_view category, Error* error) override;
  bool setCategory(std::string_view category, AudioSessionCategoryOptions options, Error* error) override;
  std::string category() const override;
  AudioSessionRouteDescription currentRoute() const override;
  void requestRecordPermission(std::function<void(bool granted)> response) override;

 private:
  std::shared_ptr<NotificationCenter> notificationCenter_;
  mutable std::mutex mutex_;
  std::string category_{kAudioSessionCategorySoloAmbient};
};

}  // namespace applogic::platform
