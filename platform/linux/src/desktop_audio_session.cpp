#include "applogic/platform/desktop_audio_session.h"

#include <utility>

namespace applogic::platform {

DesktopAudioSession::DesktopAudioSession(std::shared_ptr<NotificationCenter> notificationCenter)
    : notificationCenter_(std::move(notificationCenter)) {}

bool DesktopAudioSession::setActive(bool /*active*/, Error* /*error*/) { return true; }

bool DesktopAudioSession::setCategory(std::string_view category, Error* error) {
  return setCategory(category, 0, error);
}

bool DesktopAudioSession::setCategory(std::string_view category, AudioSessionCategoryOptions /*options*/,
                                      Error* /*error*/) {
  std::lock_guard lock(mutex_);
  category_ = category;
  return true;
}

std::string DesktopAudioSession::category() const {
  std::lock_guard lock(mutex_);
  return category_;
}

AudioSessionRouteDescription DesktopAudioSession::currentRoute() const {
  return AudioSessionRouteDescription{{}, {AudioSessionPortDescription{"Speaker"}}};
}

void DesktopAudioSession::requestRecordPermission(std::function<void(bool granted)> response) {
  if (response) response(true);
}

}  // namespace applogic::platform
