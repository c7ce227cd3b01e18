#include "applogic/testing/scripted_media_player.h"

#include <algorithm>
#include <utility>

namespace applogic::testing {

struct ScriptedMediaPlayer::RateObserver {
  std::function<void(float)> handler;
};

class ScriptedMediaPlayer::Observation final : public platform::MediaPlayerRateObservation {
 public:
  Observation(std::weak_ptr<ScriptedMediaPlayer> player, std::shared_ptr<RateObserver> observer)
      : player_(std::move(player)), observer_(std::move(observer)) {}
  ~Observation() override {
    auto player = player_.lock();
    if (!player) return;
    std::lock_guard lock(player->mutex_);
    std::erase(player->rateObservers_, observer_);
  }

 private:
  std::weak_ptr<ScriptedMediaPlayer> player_;
  std::shared_ptr<RateObserver> observer_;
};

ScriptedMediaPlayer::ScriptedMediaPlayer(std::shared_ptr<platform::NotificationCenter> notificationCenter)
    : notificationCenter_(std::move(notificationCenter)) {}

void ScriptedMediaPlayer::replaceCurrentItem(std::shared_ptr<platform::MediaPlayerItem> item) {
  std::lock_guard lock(mutex_);
  calls_.push_back(item ? "replace " + item->url().string() : "replace none");
  item_ = std::move(item);
}

std::shared_ptr<platform::MediaPlayerItem> ScriptedMediaPlayer::currentItem() const {
  std::lock_guard lock(mutex_);
  return item_;
}

void ScriptedMediaPlayer::play() {
  {
    std::lock_guard lock(mutex_);
    calls_.emplace_back("play");
  }
  changeRate(1.0f);
}

void ScriptedMediaPlayer::pause() {
  {
    std::lock_guard lock(mutex_);
    calls_.emplace_back("pause");
  }
  changeRate(0.0f);
}

float ScriptedMediaPlayer::rate() const {
  std::lock_guard lock(mutex_);
  return rate_;
}

std::unique_ptr<platform::MediaPlayerRateObservation> ScriptedMediaPlayer::observeRate(
    std::function<void(float rate)> handler) {
  auto observer = std::make_shared<RateObserver>(RateObserver{std::move(handler)});
  float now = 0.0f;
  {
    std::lock_guard lock(mutex_);
    rateObservers_.push_back(observer);
    now = rate_;
  }
  if (observer->handler) observer->handler(now);
  return std::make_unique<Observation>(weak_from_this(), observer);
}

void ScriptedMediaPlayer::seek(std::chrono::nanoseconds time) {
  std::lock_guard lock(mutex_);
  calls_.push_back("seek " + std::to_string(time.count()));
  currentTime_ = time;
}

std::chrono::nanoseconds ScriptedMediaPlayer::currentTime() const {
  std::lock_guard lock(mutex_);
  return currentTime_;
}

std::optional<std::chrono::nanoseconds> ScriptedMediaPlayer::duration() const {
  std::lock_guard lock(mutex_);
  return duration_;
}

void ScriptedMediaPlayer::setTimes(std::chrono::nanoseconds currentTime,
                                   std::optional<std::chrono::nanoseconds> duration) {
  std::lock_guard lock(mutex_);
  currentTime_ = currentTime;
  duration_ = duration;
}

void ScriptedMediaPlayer::setAutomaticallyWaitsToMinimizeStalling(bool waits) {
  std::lock_guard lock(mutex_);
  calls_.push_back(std::string("waitsToMinimizeStalling ") + (waits ? "true" : "false"));
  waits_ = waits;
}

void ScriptedMediaPlayer::setRate(float rate) { changeRate(rate); }

void ScriptedMediaPlayer::postDidPlayToEnd(const std::shared_ptr<platform::MediaPlayerItem>& item) {
  postAbout(platform::kMediaPlayerItemDidPlayToEndTimeNotification, item);
}

void ScriptedMediaPlayer::postFailedToPlayToEnd(const std::shared_ptr<platform::MediaPlayerItem>& item) {
  postAbout(platform::kMediaPlayerItemFailedToPlayToEndTimeNotification, item);
}

std::vector<std::string> ScriptedMediaPlayer::calls() const {
  std::lock_guard lock(mutex_);
  return calls_;
}

void ScriptedMediaPlayer::clearCalls() {
  std::lock_guard lock(mutex_);
  calls_.clear();
}

std::size_t ScriptedMediaPlayer::rateObserverCount() const {
  std::lock_guard lock(mutex_);
  return rateObservers_.size();
}

bool ScriptedMediaPlayer::automaticallyWaitsToMinimizeStalling() const {
  std::lock_guard lock(mutex_);
  return waits_;
}

void ScriptedMediaPlayer::changeRate(float rate) {
  std::vector<std::shared_ptr<RateObserver>> observers;
  {
    std::lock_guard lock(mutex_);
    if (rate_ == rate) return;
    rate_ = rate;
    observers = rateObservers_;
  }
  for (const auto& observer : observers) {
    if (observer->handler) observer->handler(rate);
  }
}

void ScriptedMediaPlayer::postAbout(std::string_view name, const std::shared_ptr<platform::MediaPlayerItem>& item) {
  const auto about = item ? item : currentItem();
  notificationCenter_->post(platform::Notification{std::string(name), about.get(), {}});
}

std::shared_ptr<platform::MediaPlayer> ScriptedMediaPlayerFactory::makePlayer() {
  auto player = std::make_shared<ScriptedMediaPlayer>(notificationCenter_);
  std::lock_guard lock(mutex_);
  players_.push_back(player);
  return player;
}

std::shared_ptr<platform::MediaPlayerItem> ScriptedMediaPlayerFactory::makeItem(const Url& url) {
  return std::make_shared<ScriptedMediaPlayerItem>(url);
}

std::vector<std::shared_ptr<ScriptedMediaPlayer>> ScriptedMediaPlayerFactory::players() const {
  std::lock_guard lock(mutex_);
  return players_;
}

std::shared_ptr<ScriptedMediaPlayer> ScriptedMediaPlayerFactory::lastPlayer() const {
  std::lock_guard lock(mutex_);
  return players_.empty() ? nullptr : players_.back();
}

}  // namespace applogic::testing
