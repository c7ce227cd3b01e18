#include "applogic/platform/platform.h"

#include "applogic/platform/openssl_crypto.h"
#include "applogic/platform/sqlite_secure_store.h"

#include "applogic/platform/desktop_audio_session.h"
#include "applogic/platform/gstreamer_media_player.h"
#include "applogic/platform/run_loop.h"

namespace applogic::platform {
namespace {

class SystemClock final : public Clock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }
};

}  // namespace

Platform makeLinuxPlatform(const LinuxPlatformOptions& options) {
  Platform platform;
  platform.clock = std::make_shared<SystemClock>();
  platform.locale = systemLocale();
  platform.secureRandom = makeOpenSslSecureRandom();
  platform.crypto = makeOpenSslCrypto();
  platform.secureStore = makeSqliteSecureStore(options.secureStorePath.value_or(defaultSecureStorePath()));
  platform.mainThread = std::make_shared<RunLoop>();
  platform.notificationCenter = makeNotificationCenter();
  platform.audioSessionBackend = std::make_shared<DesktopAudioSession>(platform.notificationCenter);
  platform.mediaPlayers = makeGStreamerMediaPlayers(platform.mainThread, platform.notificationCenter,
                                                    GStreamerMediaOptions{options.audioSink});
  return platform;
}

}  // namespace applogic::platform
