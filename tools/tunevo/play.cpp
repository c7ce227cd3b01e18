#include "tunevo/play.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "applogic/audio/audio_preview_controller.h"
#include "applogic/audio/vx_audio_session.h"
#include "applogic/platform/gstreamer_media_player.h"
#include "applogic/platform/linux_platform.h"
#include "applogic/support/log.h"
#include "applogic/support/url.h"
#include "tunevo/exit_codes.h"
#include "tunevo/kept_player_factory.h"

namespace tunevo {
namespace {

using namespace applogic;

constexpr const char* kUsage =
    "usage: tunevo play [--sink DESCRIPTION] URL|FILE\n"
    "\n"
    "Plays a track preview (an http(s) or file address, or a local file) and shows its progress.\n"
    "Enter pauses and resumes; Ctrl-C stops. --sink names a GStreamer audio sink\n"
    "(\"fakesink sync=true\" plays without a sound device); the default is the system's output.\n";

std::atomic<bool> interrupted{false};

extern "C" void onInterrupt(int /*signal*/) { interrupted.store(true); }

// A local path as a file address: absolute, with every byte outside the unreserved set and '/'
// percent-encoded.
std::string fileAddress(const std::string& path) {
  std::error_code error;
  const std::string absolute = std::filesystem::absolute(path, error).string();
  std::string address = "file://";
  for (const unsigned char c : absolute) {
    if (std::isalnum(c) || c == '/' || c == '-' || c == '.' || c == '_' || c == '~') {
      address.push_back(static_cast<char>(c));
    } else {
      char escaped[4];
      std::snprintf(escaped, sizeof escaped, "%%%02X", c);
      address += escaped;
    }
  }
  return address;
}

std::string clock(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(seconds / 60),
                static_cast<long long>(seconds % 60));
  return text;
}

}  // namespace

// The controller logs a failure to play in its own words; `play` reports the same failure with
// GStreamer's reason, so that line is left out and the user reads one line, not two.
class PlayLogSink final : public LogSink {
 public:
  void write(std::string_view line) override {
    if (line == "AudioPreviewController Failed to play to the end") return;
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fputc('\n', stderr);
  }
};

int runPlay(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  std::string sink;
  std::optional<std::string> target;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--help" || args[i] == "-h") {
      std::cout << kUsage;
      return kExitOk;
    }
    if (args[i] == "--sink" && i + 1 < args.size()) {
      sink = args[++i];
    } else if (!target && !args[i].starts_with("--")) {
      target = args[i];
    } else {
      std::cerr << kUsage;
      return kExitUsage;
    }
  }
  if (!target) {
    std::cerr << kUsage;
    return kExitUsage;
  }
  const std::string address = target->find("://") != std::string::npos ? *target : fileAddress(*target);
  const auto url = Url::parse(address);
  if (!url) {
    std::cerr << "tunevo play: not an address: " << *target << "\n";
    return kExitUsage;
  }

  platform::LinuxPlatformOptions options;
  options.audioSink = sink;
  platform::LinuxPlatform host = platform::makeLinuxPlatformWithRunLoop(options);
  Track track;
  track.id = "tunevo.play";
  track.previewURL = url->string();
  return playPreview(host, track, "play", sink);
}

int playPreview(platform::LinuxPlatform& host, const Track& track, std::string_view command, const std::string& sink) {
  platform::Platform& system = host.platform;
  const std::shared_ptr<platform::RunLoop>& loop = host.runLoop;
  if (!system.mediaPlayers) {
    std::cerr << "tunevo " << command
              << ": no media player: GStreamer with its playbin element is not installed, or the sink \"" << sink
              << "\" does not exist\n";
    return kExitUnavailable;
  }
  auto players = std::make_shared<KeptPlayerFactory>(system.mediaPlayers);
  system.mediaPlayers = players;

  VXAudioSession::installPlatform(system);
  auto session = VXAudioSession::sharedSession();
  session->setIsApplicationInBackground([] { return false; });
  const ScopedLogSink logSink(std::make_shared<PlayLogSink>());
  AudioPreviewController controller(session, system);
  controller.changeTrack(track);

  int status = kExitOk;
  std::string ending;
  std::string reason;
  // Registered after `changeTrack`, so the controller has rewound and paused when these run.
  auto ended = system.notificationCenter->addObserver(
      std::string(platform::kMediaPlayerItemDidPlayToEndTimeNotification), nullptr,
      [&](const platform::Notification&) {
        ending = "played to the end";
        loop->quit();
      });
  auto failed = system.notificationCenter->addObserver(
      std::string(platform::kMediaPlayerItemFailedToPlayToEndTimeNotification), nullptr,
      [&](const platform::Notification& notification) {
        status = kExitUnavailable;
        const auto* said = platform::userInfoValue<std::string>(notification, platform::kGStreamerErrorReasonKey);
        reason = said != nullptr && !said->empty() ? *said : "the player gave no reason";
        loop->quit();
      });

  bool playing = false;
  controller.isPlaying().subscribe([&](bool value) { playing = value; });
  const auto showProgress = [&] {
    const auto duration = players->player->duration();
    std::cout << "\r" << clock(players->player->currentTime()) << " / "
              << (duration ? clock(*duration) : std::string("?:??")) << "  " << (playing ? "playing" : "paused ")
              << std::flush;
  };

  interrupted.store(false);
  struct sigaction action {};
  action.sa_handler = &onInterrupt;
  sigemptyset(&action.sa_mask);
  struct sigaction previous {};
  sigaction(SIGINT, &action, &previous);

  // Two helper threads feed the main loop: a ticker (progress, Ctrl-C) and a reader of Enter.
  std::atomic<bool> done{false};
  std::thread ticker([&] {
    while (!done.load()) {
      if (interrupted.exchange(false)) {
        loop->post([&] {
          ending = "stopped";
          loop->quit();
        });
      }
      loop->post(showProgress);
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
  });
  std::thread reader([&] {
    while (!done.load()) {
      pollfd input{STDIN_FILENO, POLLIN, 0};
      if (poll(&input, 1, 200) <= 0) continue;
      char buffer[256];
      const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
      if (count <= 0) return;  // end of input: no more toggles
      for (ssize_t i = 0; i < count; ++i) {
        if (buffer[i] != '\n') continue;
        loop->post([&] {
          if (playing) {
            controller.pause();
          } else {
            controller.resume();
          }
        });
      }
    }
  });

  controller.resume();
  loop->run();
  done.store(true);
  ticker.join();
  reader.join();
  loop->runUntilIdle();
  sigaction(SIGINT, &previous, nullptr);

  showProgress();
  std::cout << "\n";
  controller.releaseResources();
  system.notificationCenter->removeObserver(ended);
  system.notificationCenter->removeObserver(failed);
  if (status != kExitOk) {
    std::cerr << "tunevo " << command << ": cannot play " << track.previewURL << ": " << reason << "\n";
    return status;
  }
  std::cout << ending << "\n";
  return kExitOk;
}

}  // namespace tunevo
