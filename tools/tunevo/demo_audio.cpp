#include "tunevo/demo_audio.h"


#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>

#include "applogic/audio/audio_preview_controller.h"
#include "applogic/audio/vx_audio_session.h"
#include "applogic/platform/gstreamer_media_player.h"
#include "applogic/platform/linux_platform.h"
#include "applogic/support/url.h"
#include "tunevo/kept_player_factory.h"

namespace tunevo {
namespace {

using namespace applogic;

constexpr auto kPatience = std::chrono::seconds(10);

std::string seconds(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", value);
  return text;
}

std::string seconds(std::chrono::nanoseconds time) { return seconds(std::chrono::duration<double>(time).count()); }

}  // namespace

bool showAudio(std::ostream& out, std::ostream& err, platform::LinuxPlatform& host, const Track& track,
               bool device) {
  out << "\n== AudioPreviewController ==\n";
  platform::Platform& system = host.platform;
  if (!system.mediaPlayers) {
    out << "  skipped: no media player (GStreamer with its playbin element is not installed)\n";
    return true;
  }
  // The controller's players are kept to read their time; the platform's factory is put back.
  const auto factory = system.mediaPlayers;
  auto players = std::make_shared<KeptPlayerFactory>(factory);
  system.mediaPlayers = players;

  auto session = std::make_shared<VXAudioSession>(system.audioSessionBackend, system.notificationCenter);
  session->setIsApplicationInBackground([] { return false; });
  AudioPreviewController controller(session, system);
  bool playing = false;
  std::optional<Track> current;
  // `controller` outlives both subscriptions: they end with its variables.
  controller.isPlaying().subscribe([&](bool value) { playing = value; });
  controller.currentTrack().subscribe([&](const std::optional<Track>& value) { current = value; });

 out << "\nchangeTrack(\"" << track.id << "\"), then resume()\n"
      << "  the preview " << track.previewURL << "\n  sink " << (device ? "the system's default output" : "the null sink \"fakesink sync=true\" (no sound device)")
      << "\n";
  controller.changeTrack(track);

  std::optional<std::string> ending;
  // Registered after `changeTrack`, so the controller has rewound and paused when these run.
  auto ended = system.notificationCenter->addObserver(
      std::string(platform::kMediaPlayerItemDidPlayToEndTimeNotification), nullptr,
      [&](const platform::Notification&) {
        ending = "ended";
        host.runLoop->quit();
      });
  auto failed = system.notificationCenter->addObserver(
      std::string(platform::kMediaPlayerItemFailedToPlayToEndTimeNotification), nullptr,
      [&](const platform::Notification&) {
        ending = "failed";
        host.runLoop->quit();
      });

  controller.resume();
  out << "  playing: isPlaying " << (playing ? "true" : "false") << ", currentTrack \""
      << (current ? current->id : "none") << "\"" << std::endl;

  std::atomic<bool> finished{false};
  std::thread guard([&] {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!finished.load() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    host.runLoop->quit();
  });
  host.runLoop->run();
  finished.store(true);
  guard.join();
  host.runLoop->runUntilIdle();

  bool ok = true;
  if (ending == "ended") {
    const auto length = players->player->duration();
    out << "  ended: isPlaying " << (playing ? "true" : "false") << ", paused at "
        << seconds(players->player->currentTime()) << " of " << (length ? seconds(*length) : std::string("?"))
        << ", currentTrack \"" << (current ? current->id : "none") << "\"\n";
  } else {
    err << "tunevo demo: the preview " << (ending ? "could not be played" : "did not end within 10 s") << "\n";
    ok = false;
  }
  controller.releaseResources();
  system.notificationCenter->removeObserver(ended);
  system.notificationCenter->removeObserver(failed);
  system.mediaPlayers = factory;
  return ok;
}

}  // namespace tunevo
