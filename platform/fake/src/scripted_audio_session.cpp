#include "applogic/testing/scripted_audio_session.h"

#include <utility>

namespace applogic::testing {
namespace {

// The error of a call that the fault plan picked, else the scripted one.
std::optional<Error> failure(const std::shared_ptr<FaultPlan>& plan, std::string_view site,
                             const std::optional<Error>& scripted) {
  if (plan && plan->fails(site)) return Error{"ScriptedAudioSessionBackend", 1, {}};
  return scripted;
}

}  // namespace

using platform::AudioSessionCategoryOptions;
using platform::AudioSessionRouteDescription;

ScriptedAudioSessionBackend::ScriptedAudioSessionBackend(std::shared_ptr<platform::NotificationCenter> notificationCenter)
    : notificationCenter_(std::move(notificationCenter)) {}

bool ScriptedAudioSessionBackend::setActive(bool active, Error* error) {
  std::lock_guard lock(mutex_);
  setActiveCalls_.push_back(active);
  if (const auto failed = failure(plan_, "session.setActive", setActiveError_)) {
    if (error != nullptr) *error = *failed;
    return false;
  }
  active_ = active;
  return true;
}

bool ScriptedAudioSessionBackend::setCategory(std::string_view category, Error* error) {
  return setCategory(category, 0, error);
}

bool ScriptedAudioSessionBackend::setCategory(std::string_view category, AudioSessionCategoryOptions options,
                                              Error* error) {
  std::lock_guard lock(mutex_);
  if (const auto failed = failure(plan_, "session.setCategory", setCategoryError_)) {
    if (error != nullptr) *error = *failed;
    return false;
  }
  category_ = category;
  options_ = options;
  return true;
}

std::string ScriptedAudioSessionBackend::category() const {
  std::lock_guard lock(mutex_);
  return category_;
}

AudioSessionRouteDescription ScriptedAudioSessionBackend::currentRoute() const {
  std::lock_guard lock(mutex_);
  return route_;
}

void ScriptedAudioSessionBackend::requestRecordPermission(std::function<void(bool granted)> response) {
  bool granted = false;
  {
    std::lock_guard lock(mutex_);
    granted = recordPermission_;
  }
  if (response) response(granted);
}

void ScriptedAudioSessionBackend::failSetActive(std::optional<Error> error) {
  std::lock_guard lock(mutex_);
  setActiveError_ = std::move(error);
}

void ScriptedAudioSessionBackend::failSetCategory(std::optional<Error> error) {
  std::lock_guard lock(mutex_);
  setCategoryError_ = std::move(error);
}

void ScriptedAudioSessionBackend::setFaultPlan(std::shared_ptr<FaultPlan> plan) {
  std::lock_guard lock(mutex_);
  plan_ = std::move(plan);
}

void ScriptedAudioSessionBackend::setCurrentRoute(AudioSessionRouteDescription route) {
  std::lock_guard lock(mutex_);
  route_ = std::move(route);
}

void ScriptedAudioSessionBackend::setRecordPermission(bool granted) {
  std::lock_guard lock(mutex_);
  recordPermission_ = granted;
}

void ScriptedAudioSessionBackend::postRouteChange(int reason, AudioSessionRouteDescription previousRoute) {
  platform::Notification notification{std::string(platform::kAudioSessionRouteChangeNotification), this, {}};
  notification.userInfo.emplace(platform::kAudioSessionRouteChangeReasonKey, reason);
  notification.userInfo.emplace(platform::kAudioSessionRouteChangePreviousRouteKey, std::move(previousRoute));
  notificationCenter_->post(notification);
}

void ScriptedAudioSessionBackend::postInterruption(int type, std::optional<int> option) {
  platform::Notification notification{std::string(platform::kAudioSessionInterruptionNotification), this, {}};
  notification.userInfo.emplace(platform::kAudioSessionInterruptionTypeKey, type);
  if (option) notification.userInfo.emplace(platform::kAudioSessionInterruptionOptionKey, *option);
  notificationCenter_->post(notification);
}

bool ScriptedAudioSessionBackend::isActive() const {
  std::lock_guard lock(mutex_);
  return active_;
}

std::vector<bool> ScriptedAudioSessionBackend::setActiveCalls() const {
  std::lock_guard lock(mutex_);
  return setActiveCalls_;
}

AudioSessionCategoryOptions ScriptedAudioSessionBackend::categoryOptions() const {
  std::lock_guard lock(mutex_);
  return options_;
}

}  // namespace applogic::testing
