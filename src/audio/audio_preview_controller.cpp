#include "applogic/audio/audio_preview_controller.h"

#include <chrono>
#include <string>
#include <utility>

#include "applogic/support/fatal.h"
#include "applogic/support/log.h"
#include "applogic/support/strings.h"
#include "applogic/support/url.h"

namespace applogic {
namespace {

const platform::Platform& requireMedia(const platform::Platform& platform) {
  if (!platform.mediaPlayers || !platform.notificationCenter) {
    fatalError("AudioPreviewController needs a platform with media players and a notification center");
  }
  return platform;
}

}  // namespace

AudioPreviewController::AudioPreviewController(std::shared_ptr<VXAudioSession> audioSession,
                                               const platform::Platform& platform)
    : media_(requireMedia(platform).mediaPlayers),
      player_(media_->makePlayer()),
      audioSession_(std::move(audioSession)),
      notificationCenter_(platform.notificationCenter) {
  player_->setAutomaticallyWaitsToMinimizeStalling(false);
  // Captures `this`: the destructor ends the observation before any member goes.
  rateObservation_ = player_->observeRate([this](float rate) { observeRate(rate); });
}

AudioPreviewController::~AudioPreviewController() {
  removeItemObservers();
  rateObservation_.reset();
}

bool AudioPreviewController::isCurrent(const Track& track) const {
  const auto current = currentTrackVar_.value();
  return current && canonicallyEqual(current->id, track.id);
}

void AudioPreviewController::changeTrack(const Track& track) {
  stop();
  const auto url = Url::parse(track.previewURL);
  if (!url) return;
  auto item = media_->makeItem(*url);
  // Set before anything plays, so that a view shows "playing" at once; the player's next rate
  // change corrects it.
  isPlayingVar_.setValue(true);
  currentTrackVar_.setValue(track);
  // The handlers capture `this`: the observers are removed in `stop` and in the destructor.
  itemObservers_.push_back(notificationCenter_->addObserver(
      std::string(platform::kMediaPlayerItemDidPlayToEndTimeNotification), item.get(),
      [this](const platform::Notification& notification) { playerItemDidReachEnd(notification); }));
  itemObservers_.push_back(notificationCenter_->addObserver(
      std::string(platform::kMediaPlayerItemFailedToPlayToEndTimeNotification), item.get(),
      [this](const platform::Notification& notification) { playerItemDidNotReachEnd(notification); }));
  player_->replaceCurrentItem(std::move(item));
  Error ignored;
  audioSession_->setCategory(platform::kAudioSessionCategoryPlayback, &ignored);
  // Never balanced by a deactivation here: the full-track player shares the session.
  audioSession_->setActive(true, &ignored);
}

void AudioPreviewController::resume() {
  if (!player_->currentItem()) return;
  failed_ = false;
  if (pauseFullTrackPlayer_) pauseFullTrackPlayer_();
  player_->play();
}

void AudioPreviewController::pause() {
  if (player_->currentItem()) player_->pause();
}

void AudioPreviewController::releaseResources() { stop(); }

void AudioPreviewController::stop() {
  pause();
  failed_ = false;
  currentTrackVar_.setValue(std::nullopt);
  if (player_->currentItem()) removeItemObservers();
  player_->replaceCurrentItem(nullptr);
}

void AudioPreviewController::observeRate(float rate) { isPlayingVar_.setValue(rate > 0.0f); }

void AudioPreviewController::playerItemDidReachEnd(const platform::Notification& /*notification*/) {
  rewindAndPause();
}

// A failure is handled once until the app plays again: a player whose rewind or pause tries the
// item again, and fails again, would otherwise make this handler log and retry for ever.
void AudioPreviewController::playerItemDidNotReachEnd(const platform::Notification& /*notification*/) {
  if (std::exchange(failed_, true)) return;
  log("AudioPreviewController Failed to play to the end");
  rewindAndPause();
}

// The rate may not change here (an item that ended or failed before `resume` was never played),
// so `isPlaying` is brought back to the rate: otherwise the `true` forced by `changeTrack` stays.
void AudioPreviewController::rewindAndPause() {
  player_->seek(std::chrono::seconds(0));
  pause();
  const bool playing = player_->rate() > 0.0f;
  if (isPlayingVar_.value() != playing) isPlayingVar_.setValue(playing);
}

void AudioPreviewController::removeItemObservers() {
  for (const auto& token : std::exchange(itemObservers_, {})) notificationCenter_->removeObserver(token);
}

}  // namespace applogic
