#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "applogic/platform/audio_session_backend.h"
#include "applogic/platform/notification_center.h"
#include "applogic/testing/fault_plan.h"

namespace applogic::testing {

/// An `AudioSessionBackend` that does what the test scripts: calls succeed until told to fail,
/// the route is what the test sets, and the notifications are posted (to the center given at
/// construction, with the backend as object, on the calling thread) only when the test asks.
/// Every call is recorded. Thread-safe.
class ScriptedAudioSessionBackend final : public platform::AudioSessionBackend {
 public:
  explicit ScriptedAudioSessionBackend(std::shared_ptr<platform::NotificationCenter> notificationCenter);

  bool setActive(bool active, Error* error) override;
  bool setCategory(std::string_view category, Error* error) override;
  bool setCategory(std::string_view category, platform::AudioSessionCategoryOptions options,
                   Error* error) override;
  std::string category() const override;
  platform::AudioSessionRouteDescription currentRoute() const override;
  void requestRecordPermission(std::function<void(bool granted)> response) override;

  // --- script --------------------------------------------------------------------------------

  /// From now on `setActive` fails with `error` (absent: succeeds again). A failed call leaves
  /// the session as it was.
  void failSetActive(std::optional<Error> error);
  /// From now on both `setCategory` fail with `error` (absent: succeed again).
  void failSetCategory(std::optional<Error> error);
  /// `setActive` ("session.setActive") and both `setCategory` ("session.setCategory") ask `plan`
  /// once per call; the call it picks fails like a scripted failure, with an error of domain
  /// "ScriptedAudioSessionBackend". Null: never fails (the default).
  void setFaultPlan(std::shared_ptr<FaultPlan> plan);
  void setCurrentRoute(platform::AudioSessionRouteDescription route);
  /// The answer of later `requestRecordPermission` calls, given inside the call. Default false.
  void setRecordPermission(bool granted);

  /// Posts a route change with these user-info values.
  void postRouteChange(int reason, platform::AudioSessionRouteDescription previousRoute);
  /// Posts an interruption: `type` 1 began, 0 ended; `option` is left out when absent.
  void postInterruption(int type, std::optional<int> option = std::nullopt);

  // --- what happened -------------------------------------------------------------------------

  bool isActive() const;
  /// The argument of every `setActive` call, failed ones included.
  std::vector<bool> setActiveCalls() const;
  /// The options of the last successful `setCategory` (0 after the form without options).
  platform::AudioSessionCategoryOptions categoryOptions() const;

 private:
  std::shared_ptr<platform::NotificationCenter> notificationCenter_;
  mutable std::mutex mutex_;
  std::optional<Error> setActiveError_;
  std::optional<Error> setCategoryError_;
  std::shared_ptr<FaultPlan> plan_;
  bool active_ = false;
  std::vector<bool> setActiveCalls_;
  std::string category_{platform::kAudioSessionCategorySoloAmbient};
  platform::AudioSessionCategoryOptions options_ = 0;
  platform::AudioSessionRouteDescription route_;
  bool recordPermission_ = false;
};

}  // namespace applogic::testing
