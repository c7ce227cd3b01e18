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

ScriptedMediaPlayer::ScriptedMediaPlayer(std::shared_ptr<platform::NotificationCenter> notificationCenter,
                                         std::shared_ptr<platform::MainThread> mainThread)
    : notificationCenter_(std::move(notificationCenter)), mainThread_(std::move(mainThread)) {}

void ScriptedMediaPlayer::replaceCurrentItem(std::shared_ptr<platform::MediaPlayerItem> item) {
  const bool opens = item != nullptr;
  {
    std::lock_guard lock(mutex_);
    calls_.push_back(item ? "replace " + item->url().string() : "replace none");
    item_ = std::move(item);
    ++generation_;
    loaded_ = opens;
    if (opens) ++loads_;
  }
  if (opens && fails("player.preroll")) report(true);
}

std::shared_ptr<platform::MediaPlayerItem> ScriptedMediaPlayer::currentItem() const {
  std::lock_guard lock(mutex_);
  return item_;
}

void ScriptedMediaPlayer::play() {
  bool hasItem = false;
  bool reopens = false;
  {
    std::lock_guard lock(mutex_);
    calls_.emplace_back("play");
    hasItem = item_ != nullptr;
    reopens = hasItem && !loaded_;
    if (reopens) {
      loaded_ = true;
      ++loads_;
    }
  }
  changeRate(1.0f);
  if (hasItem && ((reopens && fails("player.preroll")) || fails("player.start"))) report(true);
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

void ScriptedMediaPlayer::setFaultPlan(std::shared_ptr<FaultPlan> plan) {
  std::lock_guard lock(mutex_);
  plan_ = std::move(plan);
}

void ScriptedMediaPlayer::playToEnd() {
  {
    std::lock_guard lock(mutex_);
    if (!item_ || !loaded_ || rate_ <= 0.0f) return;
  }
  report(fails("player.midClip"));
}

bool ScriptedMediaPlayer::fails(std::string_view site) const {
  std::shared_ptr<FaultPlan> plan;
  {
    std::lock_guard lock(mutex_);
    plan = plan_;
  }
  return plan && plan->fails(site);
}

void ScriptedMediaPlayer::report(bool failure) {
  std::uint64_t generation = 0;
  {
    std::lock_guard lock(mutex_);
    generation = generation_;
  }
  if (!mainThread_) return deliver(failure, generation);
  mainThread_->post([player = weak_from_this(), failure, generation] {
    if (auto self = player.lock()) self->deliver(failure, generation);
  });
}

// Reports about an item that was replaced since, or about a load that already failed, are
// dropped, as the platform's player drops them.
void ScriptedMediaPlayer::deliver(bool failure, std::uint64_t generation) {
  std::shared_ptr<platform::MediaPlayerItem> item;
  {
    std::lock_guard lock(mutex_);
    if (generation != generation_ || !item_) return;
    item = item_;
    if (failure) {
      loaded_ = false;
      ++generation_;
    }
  }
  changeRate(0.0f);
  postAbout(failure ? platform::kMediaPlayerItemFailedToPlayToEndTimeNotification
                    : platform::kMediaPlayerItemDidPlayToEndTimeNotification,
            item);
}

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

std::size_t ScriptedMediaPlayer::loadCount() const {
  std::lock_guard lock(mutex_);
  return loads_;
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

void ScriptedMediaPlayerFactory::setFaultPlan(std::shared_ptr<FaultPlan> plan) {
  std::lock_guard lock(mutex_);
  plan_ = std::move(plan);
}

std::shared_ptr<platform::MediaPlayer> ScriptedMediaPlayerFactory::makePlayer() {
  auto player = std::make_shared<ScriptedMediaPlayer>(notificationCenter_, mainThread_);
  std::lock_guard lock(mutex_);
  player->setFaultPlan(plan_);
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
