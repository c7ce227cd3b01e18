#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "applogic/audio/vx_audio_session.h"
#include "applogic/export.h"
#include "applogic/platform/media_player.h"
#include "applogic/platform/notification_center.h"
#include "applogic/platform/platform.h"
#include "applogic/records/track.h"
#include "applogic/rx/observable.h"
#include "applogic/rx/subjects.h"

namespace applogic {

/// Plays the preview clip (`Track::previewURL`) of one track at a time through one media player,
/// and publishes which track is loaded and whether sound is coming out.
///
/// Empty (nothing loaded) or loaded (an item and its track). `changeTrack` loads without playing;
/// `resume` plays (after asking the app to pause its full-track player); the end of the clip
/// rewinds it and pauses, keeping it loaded; a clip that cannot be played is logged once, rewound
/// and paused the same way, and further failure reports are ignored until the app calls `resume`
/// or loads again. `isPlaying` is false after either. `releaseResources` empties. Every
/// `changeTrack` of a playable address adds one activation to the audio session, which this class
/// never releases: the app's full-track player shares the session and decides when it goes off.
///
/// Thread contract: the class takes no locks; the host calls it from one thread (the main
/// thread). The player's rate changes and end notifications arrive on the threads the media
/// player port documents and update `isPlaying` there; both streams deliver on the thread that
/// changed the value.
class APPLOGIC_EXPORT AudioPreviewController {
 public:
  /// A controller with an empty player made from `platform.mediaPlayers`, listening for the
  /// player's end notifications on `platform.notificationCenter` (the players must post to that
  /// center); stops the program (`fatalError`) when either is null. The player starts playing as soon as it can rather than
  /// buffering first. `audioSession` must be non-null and have `isApplicationInBackground` set
  /// before the first `changeTrack`.
  AudioPreviewController(std::shared_ptr<VXAudioSession> audioSession, const platform::Platform& platform);
  AudioPreviewController() = delete;
  /// Stops listening to the player; completes the two streams.
  ~AudioPreviewController();
  AudioPreviewController(const AudioPreviewController&) = delete;
  AudioPreviewController& operator=(const AudioPreviewController&) = delete;

  /// Called by `resume` before playing, when set; absent at first.
  const std::function<void()>& pauseFullTrackPlayer() const { return pauseFullTrackPlayer_; }
  void setPauseFullTrackPlayer(std::function<void()> callback) { pauseFullTrackPlayer_ = std::move(callback); }

  /// The loaded track (absent when empty); each subscriber gets the current value first.
  rx::Observable<std::optional<Track>> currentTrack() const { return currentTrackVar_.asObservable(); }

  /// Whether the player is playing (its rate is above 0); each subscriber gets the current value
  /// first. `changeTrack` sets it to true at once, before anything plays; the player's next rate
  /// change corrects it.
  rx::Observable<bool> isPlaying() const { return isPlayingVar_.asObservable(); }

  /// True when a track is loaded and its `id` is canonically equal to `track.id`; other fields
  /// are not compared.
  bool isCurrent(const Track& track) const;

  /// Empties the player, then loads `track`'s preview without playing it, sets the playback
  /// category and activates the audio session (failures of both are ignored). When `previewURL`
  /// is not an address (empty, a space, a bad escape ...), stays empty and reports nothing.
  void changeTrack(const Track& track);

  /// With a track loaded: calls `pauseFullTrackPlayer` when set, then plays. Otherwise nothing.
  void resume();

  /// With a track loaded: pauses. Otherwise nothing.
  void pause();

  /// Pauses and empties the player; `currentTrack` becomes absent. The session stays active.
  void releaseResources();

 private:
  void stop();
  void observeRate(float rate);
  void playerItemDidReachEnd(const platform::Notification& notification);
  void playerItemDidNotReachEnd(const platform::Notification& notification);
  void rewindAndPause();
  void removeItemObservers();

  std::function<void()> pauseFullTrackPlayer_;
  rx::Variable<std::optional<Track>> currentTrackVar_{std::nullopt};
  std::shared_ptr<platform::MediaPlayerFactory> media_;
  std::shared_ptr<platform::MediaPlayer> player_;
  rx::Variable<bool> isPlayingVar_{false};
  std::shared_ptr<VXAudioSession> audioSession_;
  std::shared_ptr<platform::NotificationCenter> notificationCenter_;
  std::vector<platform::NotificationObserverToken> itemObservers_;
  std::unique_ptr<platform::MediaPlayerRateObservation> rateObservation_;
  bool failed_ = false;
};

}  // namespace applogic
