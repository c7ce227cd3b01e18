#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "applogic/export.h"
#include "applogic/support/url.h"

namespace applogic::platform {

/// Posted by a player, with the finished item as object, when playback reached the item's end.
/// No user information.
inline constexpr std::string_view kMediaPlayerItemDidPlayToEndTimeNotification =
    "AVPlayerItemDidPlayToEndTimeNotification";
/// Posted by a player, with the item as object, when the item could not be played to its end
/// (unreachable address, not playable media, broken midway). No user information.
inline constexpr std::string_view kMediaPlayerItemFailedToPlayToEndTimeNotification =
    "AVPlayerItemFailedToPlayToEndTimeNotification";

/// One piece of media that a player can play. Made by `MediaPlayerFactory::makeItem`; compared
/// by identity (its address is the object of the player's notifications about it). Immutable;
/// any thread.
class APPLOGIC_EXPORT MediaPlayerItem {
 public:
  virtual ~MediaPlayerItem() = default;
  /// The address the item plays.
  virtual const Url& url() const = 0;
};

/// The registration of a rate observer. Destroying it ends the observation: once the destructor
/// returns, the handler is not called again.
class APPLOGIC_EXPORT MediaPlayerRateObservation {
 public:
  virtual ~MediaPlayerRateObservation() = default;
};

/// Plays one item at a time. A new player has no item, rate 0, and waits to minimise stalling.
///
/// Thread contract: members may be called from any thread; the host serialises them. The rate
/// handler and the end notifications arrive on the thread each port documents (the main thread
/// for the ports that run a thread of their own), and possibly synchronously inside `play`,
/// `pause` and `replaceCurrentItem`.
class APPLOGIC_EXPORT MediaPlayer {
 public:
  virtual ~MediaPlayer() = default;

  /// Makes `item` the current item (null: none), positioned at its start; the previous item is
  /// dropped. The rate is unchanged.
  virtual void replaceCurrentItem(std::shared_ptr<MediaPlayerItem> item) = 0;
  virtual std::shared_ptr<MediaPlayerItem> currentItem() const = 0;

  /// Start and stop playback of the current item (rate 1 and 0). Without an item, `play` only
  /// records the wish: the rate becomes 1 but nothing sounds until an item is playable.
  virtual void play() = 0;
  virtual void pause() = 0;

  /// The playback rate: 0 when paused or stalled, 1 when playing at normal speed.
  virtual float rate() const = 0;

  /// Calls `handler` with the rate once at once (inside this call) and then on every change,
  /// until the returned registration is destroyed.
  [[nodiscard]] virtual std::unique_ptr<MediaPlayerRateObservation> observeRate(std::function<void(float rate)> handler) = 0;

  /// Moves the play position of the current item to `time` from its start.
  virtual void seek(std::chrono::nanoseconds time) = 0;

  /// The play position in the current item; 0 without an item or before anything was loaded.
  virtual std::chrono::nanoseconds currentTime() const = 0;

  /// The length of the current item; absent without an item or while it is not known yet.
  virtual std::optional<std::chrono::nanoseconds> duration() const = 0;

  /// False makes playback start as soon as anything can be played, instead of buffering first.
  virtual void setAutomaticallyWaitsToMinimizeStalling(bool waits) = 0;
};

/// Makes players and items; each player posts its end notifications to the notification center
/// the factory was made with.
///
/// Thread contract: any thread.
class APPLOGIC_EXPORT MediaPlayerFactory {
 public:
  virtual ~MediaPlayerFactory() = default;
  /// A new player with no item.
  virtual std::shared_ptr<MediaPlayer> makePlayer() = 0;
  /// An item for `url`. Nothing is loaded until a player plays it.
  virtual std::shared_ptr<MediaPlayerItem> makeItem(const Url& url) = 0;
};

}  // namespace applogic::platform
