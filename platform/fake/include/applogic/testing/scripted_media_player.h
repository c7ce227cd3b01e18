#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "applogic/platform/main_thread.h"
#include "applogic/platform/media_player.h"
#include "applogic/platform/notification_center.h"
#include "applogic/testing/fault_plan.h"

namespace applogic::testing {

/// An item of the scripted player: only its address.
class ScriptedMediaPlayerItem final : public platform::MediaPlayerItem {
 public:
  explicit ScriptedMediaPlayerItem(Url url) : url_(std::move(url)) {}
  const Url& url() const override { return url_; }

 private:
  Url url_;
};

/// A `MediaPlayer` that plays nothing. `play` and `pause` set the rate to 1 and 0 at once, as
/// the platform's player does; everything else the player would do by itself (stalling, reaching
/// the end, failing) happens only when the test calls `setRate` or `post...`. Rate handlers run
/// on the calling thread, outside the player's lock. Every call is recorded in `calls()` as one
/// line: "replace <url>" / "replace none", "play", "pause", "seek <nanoseconds>",
/// "waitsToMinimizeStalling <true|false>". Thread-safe.
///
/// With a fault plan, the player fails as the platform's does: opening an item ("player.preroll",
/// in `replaceCurrentItem` and in `play` of an item dropped by a failure), starting it
/// ("player.start", in `play`) and playing it through (`playToEnd`, "player.midClip") each ask
/// the plan. A failure drops what was loaded (rate 0) and posts the failed-to-reach-end
/// notification once; afterwards `pause` and `seek` do not open the item again, `play` does.
/// These reports go through the main thread when one was given (the test pumps it), else they
/// are posted inside the call.
class ScriptedMediaPlayer final : public platform::MediaPlayer,
                                  public std::enable_shared_from_this<ScriptedMediaPlayer> {
 public:
  explicit ScriptedMediaPlayer(std::shared_ptr<platform::NotificationCenter> notificationCenter,
                               std::shared_ptr<platform::MainThread> mainThread = nullptr);

  void replaceCurrentItem(std::shared_ptr<platform::MediaPlayerItem> item) override;
  std::shared_ptr<platform::MediaPlayerItem> currentItem() const override;
  void play() override;
  void pause() override;
  float rate() const override;
  [[nodiscard]] std::unique_ptr<platform::MediaPlayerRateObservation> observeRate(
      std::function<void(float rate)> handler) override;
  void seek(std::chrono::nanoseconds time) override;
  void setAutomaticallyWaitsToMinimizeStalling(bool waits) override;
  std::chrono::nanoseconds currentTime() const override;
  std::optional<std::chrono::nanoseconds> duration() const override;

  // --- script --------------------------------------------------------------------------------

  /// Changes the rate as the player would on its own; handlers run when it differs.
  void setRate(float rate);
  /// What `currentTime` and `duration` answer from now on (`seek` also moves the position).
  void setTimes(std::chrono::nanoseconds currentTime, std::optional<std::chrono::nanoseconds> duration);
  /// Posts the end notification about `item` (the current item when null).
  void postDidPlayToEnd(const std::shared_ptr<platform::MediaPlayerItem>& item = nullptr);
  /// Posts the failed-to-reach-end notification about `item` (the current item when null).
  void postFailedToPlayToEnd(const std::shared_ptr<platform::MediaPlayerItem>& item = nullptr);
  /// Null: never fails (the default).
  void setFaultPlan(std::shared_ptr<FaultPlan> plan);
  /// While the current item plays (rate above 0): it plays through to its end ("player.midClip"
  /// asks the plan) and the player reports the end, or the failure, as it would on its own.
  /// Otherwise nothing.
  void playToEnd();

  // --- what happened -------------------------------------------------------------------------

  std::vector<std::string> calls() const;
  void clearCalls();
  std::size_t rateObserverCount() const;
  bool automaticallyWaitsToMinimizeStalling() const;
  /// How many times an item was opened: by `replaceCurrentItem`, and by `play` after a failure.
  std::size_t loadCount() const;

 private:
  struct RateObserver;
  class Observation;

  void changeRate(float rate);
  void postAbout(std::string_view name, const std::shared_ptr<platform::MediaPlayerItem>& item);
  bool fails(std::string_view site) const;
  // The player's own report about the current item: the end, or a failure that drops it.
  void report(bool failure);
  void deliver(bool failure, std::uint64_t generation);

  std::shared_ptr<platform::NotificationCenter> notificationCenter_;
  std::shared_ptr<platform::MainThread> mainThread_;
  mutable std::mutex mutex_;
  std::shared_ptr<FaultPlan> plan_;
  std::shared_ptr<platform::MediaPlayerItem> item_;
  bool loaded_ = false;
  std::uint64_t generation_ = 0;
  std::size_t loads_ = 0;
  float rate_ = 0.0f;
  bool waits_ = true;
  std::chrono::nanoseconds currentTime_{0};
  std::optional<std::chrono::nanoseconds> duration_;
  std::vector<std::string> calls_;
  std::vector<std::shared_ptr<RateObserver>> rateObservers_;
};

/// Makes `ScriptedMediaPlayer`s (over `mainThread` when given) and keeps them for the test
/// (`players()`); each new player gets the factory's fault plan.
class ScriptedMediaPlayerFactory final : public platform::MediaPlayerFactory {
 public:
  explicit ScriptedMediaPlayerFactory(std::shared_ptr<platform::NotificationCenter> notificationCenter,
                                      std::shared_ptr<platform::MainThread> mainThread = nullptr)
      : notificationCenter_(std::move(notificationCenter)), mainThread_(std::move(mainThread)) {}

  /// For the players made from now on; null: never fail.
  void setFaultPlan(std::shared_ptr<FaultPlan> plan);
  std::shared_ptr<platform::MediaPlayer> makePlayer() override;
  std::shared_ptr<platform::MediaPlayerItem> makeItem(const Url& url) override;

  std::vector<std::shared_ptr<ScriptedMediaPlayer>> players() const;
  /// The player made last; null before the first.
  std::shared_ptr<ScriptedMediaPlayer> lastPlayer() const;

 private:
  std::shared_ptr<platform::NotificationCenter> notificationCenter_;
  std::shared_ptr<platform::MainThread> mainThread_;
  mutable std::mutex mutex_;
  std::shared_ptr<FaultPlan> plan_;
  std::vector<std::shared_ptr<ScriptedMediaPlayer>> players_;
};

}  // namespace applogic::testing
