#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "applogic/export.h"
#include "applogic/platform/main_thread.h"
#include "applogic/platform/media_player.h"
#include "applogic/platform/notification_center.h"

namespace applogic::platform {

/// In the failed-to-reach-end notification of a GStreamer player: GStreamer's reason for the
/// failure, a `std::string` ("Could not open resource for reading.", "Not Found" ...).
inline constexpr std::string_view kGStreamerErrorReasonKey = "GStreamerErrorReason";

/// Options of the GStreamer media players.
struct APPLOGIC_EXPORT GStreamerMediaOptions {
  /// The audio sink, as a pipeline description ("pulsesink", "alsasink device=hw:1"). Empty: the
  /// system's default output ("autoaudiosink"). "fakesink sync=true" plays in real time without
  /// a sound device (headless runs, CI).
  std::string audioSink;

  /// Called when the first audio buffer of an item reaches the sink: once for each item that
  /// `replaceCurrentItem` loads, whether the player is playing or paused (a paused sink holds
  /// that buffer as its preroll); not again after a seek. It runs on a GStreamer streaming
  /// thread, inside the stream, so it must be quick, thread-safe, and must not call the player.
  /// For measurements and diagnostics (the preview start-up benchmark times `changeTrack` +
  /// `resume` to it). Empty: no hook.
  std::function<void()> onFirstBuffer{};

  /// PEM certificates that the servers of https items must be signed by, in place of the
  /// system's (a loopback server's CA). Absent: the system's CAs.
  std::optional<std::filesystem::path> caFile{};
};

/// Whether GStreamer can reach a sound output: one of its device providers (the sound server's,
/// ALSA's, ...) lists at least one audio sink. False when GStreamer is missing or no provider
/// finds one (headless machines, containers, CI), where "fakesink sync=true" is the sink to use
/// instead of the default. Asks the providers on every call, which can take some milliseconds;
/// any thread.
APPLOGIC_EXPORT bool audioOutputDevicePresent();

/// The Linux `MediaPlayerFactory`: each player is a GStreamer `playbin` for http(s) and file
/// addresses, playing sound only.
///
/// GStreamer reports from threads of its own; the players hand every report to `mainThread`,
/// so rate changes that the player makes by itself (0 at the end or on a failure) and the end
/// and failed-to-reach-end notifications arrive on the main thread, when the host runs it. An
/// item that cannot be played (unreachable address, not audio, broken midway) posts the
/// failed-to-reach-end notification, once per failed load (GStreamer's several error reports of
/// one load make one notification). Rate changes made by `play` and `pause` are reported
/// inside those calls. The players run no GLib main loop.
///
/// After a failure the player keeps its item but holds nothing loaded: `pause` and `seek` do not
/// open the address again (the item will start from its beginning); the next `play` does. A
/// rewind to 0 after the item's end does the same instead of seeking, so that clips from servers
/// that cannot seek (no Range requests) play again. `duration` stays known meanwhile.
///
/// Returns null when GStreamer or its `playbin` element is not available, or when `audioSink`
/// does not describe an element. Any thread.
APPLOGIC_EXPORT std::shared_ptr<MediaPlayerFactory> makeGStreamerMediaPlayers(std::shared_ptr<MainThread> mainThread,
                                                              std::shared_ptr<NotificationCenter> notificationCenter,
                                                              GStreamerMediaOptions options = {});

}  // namespace applogic::platform
